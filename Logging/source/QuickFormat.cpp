#include "QuickFormat.h"

#include <charconv>
#include <cstring>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace {

/// How wide an integer argument is.
enum class Width { Int, Long, LongLong };
static_assert(std::is_same_v<std::size_t, unsigned long>, "z counts as l");

Width TakeWidth(char const*& format) {
    if (*format != 'l' && *format != 'z') {
        return Width::Int;
    }
    bool const isTwice = format[0] == 'l' && format[1] == 'l';
    format += isTwice ? 2 : 1;
    return isTwice ? Width::LongLong : Width::Long;
}

/// A list of arguments that ends with its scope.
struct Arguments {
    explicit Arguments(std::va_list other) { va_copy(list, other); }
    ~Arguments() { va_end(list); }
    Arguments(Arguments const&) = delete;
    Arguments& operator=(Arguments const&) = delete;

    long long TakeSigned(Width width) {
        if (width == Width::Int) {
            return va_arg(list, int);
        }
        return width == Width::Long ? va_arg(list, long) : va_arg(list, long long);
    }
    unsigned long long TakeUnsigned(Width width) {
        if (width == Width::Int) {
            return va_arg(list, unsigned);
        }
        return width == Width::Long ? va_arg(list, unsigned long) : va_arg(list, unsigned long long);
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
