#include "QuickFormat.h"

#include <charconv>
#include <cstring>
#include <string_view>
#include <system_error>

namespace {

/// How wide an integer argument is.
enum class Width { Int, Long, LongLong, Size };

Width TakeWidth(char const*& format) {
    if (*format == 'z') {
        ++format;
        return Width::Size;
    }
    if (*format != 'l') {
        return Width::Int;
    }
    ++format;
    if (*format != 'l') {
        return Width::Long;
    }
    ++format;
    return Width::LongLong;
}

/// A list of arguments that ends with its scope.
struct Arguments {
    explicit Arguments(std::va_list other) { va_copy(list, other); }
    ~Arguments() { va_end(list); }
    Arguments(Arguments const&) = delete;
    Arguments& operator=(Arguments const&) = delete;

    long long TakeSigned(Width width) {
        switch (width) {
            case Width::Int:
                return va_arg(list, int);
            case Width::Long:
                return va_arg(list, long);
            case Width::LongLong:
                return va_arg(list, long long);
            case Width::Size:
                return va_arg(list, std::ptrdiff_t);
        }
        return 0;
    }
    unsigned long long TakeUnsigned(Width width) {
        switch (width) {
            case Width::Int:
                return va_arg(list, unsigned);
            case Width::Long:
                return va_arg(list, unsigned long);
            case Width::LongLong:
                return va_arg(list, unsigned long long);
            case Width::Size:
                return va_arg(list, std::size_t);
        }
        return 0;
    }

    std::va_list list;
};

/// Room for a text. What does not fit makes the additions fail.
struct Room {
    bool Add(std::string_view text) {
        if (static_cast<std::size_t>(end - next) < text.size()) {
            return false;
        }
        std::memcpy(next, text.data(), text.size());
        next += text.size();
        return true;
    }
    template <typename Integer>
    bool AddNumber(Integer number, int base) {
        auto const result = std::to_chars(next, end, number, base);
        next = result.ptr;
        return result.ec == std::errc();
    }

    char* next;
    char* end;
};

/// One conversion, `format` behind its percent sign; moves behind it.
bool AddConversion(Room& room, char const*& format, Arguments& arguments) {
    Width const width = TakeWidth(format);
    char const kind = *format;
    format += kind != '\0';
    switch (kind) {
        case 'd':
        case 'i':
            return room.AddNumber(arguments.TakeSigned(width), 10);
        case 'u':
            return room.AddNumber(arguments.TakeUnsigned(width), 10);
        case 'x':
            return room.AddNumber(arguments.TakeUnsigned(width), 16);
        default:
            break;
    }
    if (width != Width::Int) {
        return false;  // %ls and %lc convert characters
    }
    if (kind == 's') {
        char const* const text = va_arg(arguments.list, char const*);
        return room.Add(text != nullptr ? text : "(null)");
    }
    if (kind == 'c') {
        auto const character = static_cast<char>(va_arg(arguments.list, int));
        return room.Add({&character, 1});
    }
    return kind == '%' && room.Add("%");
}

}  // namespace

std::ptrdiff_t QuickFormat(char* out, std::size_t size, char const* format, std::va_list arguments) {
    Room room{out, out + size};
    Arguments own(arguments);
    for (;;) {
        char const* const percent = ::strchrnul(format, '%');
        if (!room.Add({format, static_cast<std::size_t>(percent - format)})) {
            return -1;
        }
        if (*percent == '\0') {
            return room.next - out;
        }
        format = percent + 1;
        if (!AddConversion(room, format, own)) {
            return -1;
        }
    }
}
