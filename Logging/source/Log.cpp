#include "Logging/Log.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "Logging/LogConfig.h"
#include "QuickFormat.h"

constinit std::atomic<std::int32_t> g_logLevel{static_cast<std::int32_t>(LogLevel::Info)};

namespace {

constexpr std::size_t kPrintBufferSize = 4096;
thread_local char g_print_buffer[kPrintBufferSize];

struct Freed {
    void operator()(char* buffer) const { std::free(buffer); }
};

/// One vsnprintf on a copy of the arguments. True when the whole text fitted.
bool PrintInto(char* buffer, std::size_t size, char const* format, std::va_list arguments, int& result) {
    std::va_list copy;
    va_copy(copy, arguments);
    result = std::vsnprintf(buffer, size, format, copy);
    va_end(copy);
    buffer[size - 1] = '\0';
    return result >= 0 && static_cast<std::size_t>(result) < size;
}

/// Formats in the thread's buffer, or in a growing one on the heap when the text is longer.
void FormatMessage(std::string& message, char const* format, std::va_list arguments) {
    std::ptrdiff_t const length = QuickFormat(g_print_buffer, kPrintBufferSize, format, arguments);
    if (length >= 0) {
        message.assign(g_print_buffer, static_cast<std::size_t>(length));
        return;
    }
    int result = 0;
    if (PrintInto(g_print_buffer, kPrintBufferSize, format, arguments, result)) {
        message.assign(g_print_buffer, static_cast<std::size_t>(result));
        return;
    }
    std::unique_ptr<char, Freed> buffer;
    std::size_t size = kPrintBufferSize;
    for (;;) {
        size = result > 0 ? static_cast<std::size_t>(result) + 1 : size * 2;
        // The bound ends the growth for a text that the formatter refuses at any size; no result can need
        // more.
        void* const grown = size > INT_MAX ? nullptr : std::realloc(buffer.get(), size);
        if (grown == nullptr) {
            std::fputs("*** out of memory allocating log buffer", stderr);
            std::fflush(stderr);
            message = format;
            return;
        }
        static_cast<void>(buffer.release());
        buffer.reset(static_cast<char*>(grown));
        if (PrintInto(buffer.get(), size, format, arguments, result)) {
            message.assign(buffer.get(), static_cast<std::size_t>(result));
            return;
        }
    }
}

/// The memory of the thread's last message, for the next one: only a thread's first lines allocate. A record
/// inside another, logged by a handler, finds none and allocates for itself.
class SpareText {
public:
    static std::string Take() {
        std::string text;
        if (!t_ended) {
            text = std::move(t_kept.text);
            text.clear();
        }
        return text;
    }
    static void Give(std::string&& text) {
        if (!t_ended && text.capacity() <= kPrintBufferSize) {
            t_kept.text = std::move(text);
        }
    }

private:
    struct Kept {
        ~Kept() { t_ended = true; }
        std::string text;
    };
    static thread_local Kept t_kept;
    // Statements may still run behind the end of the thread's other objects: in destructors of static ones.
    static constinit thread_local bool t_ended;
};

thread_local SpareText::Kept SpareText::t_kept;
constinit thread_local bool SpareText::t_ended = false;

char const* OrEmpty(char const* text) {
    return text != nullptr ? text : "";
}

/// A record without its message, of this moment.
LogRecord MakeRecord(bool plain, char const* tag, char const* file, int line, char const* function,
                     LogLevel level) {
    LogRecord record;
    record.time = std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
    record.tag = tag != nullptr && *tag != '\0' ? tag : nullptr;
    record.file = OrEmpty(file);
    record.line = line;
    record.function = OrEmpty(function);
    record.level = level;
    record.plain = plain;
    record.toStderr = level < LogLevel::Info;
    return record;
}

void Dispatch(LogRecord& record) {
    LogConfig::Instance().Dispatch(record);
    SpareText::Give(std::move(record.message));
}

}  // namespace

void LogInternal(bool plain, char const* tag, char const* file, int line, char const* function,
                 LogLevel level, char const* format, ...) {
    if (format == nullptr) {
        return;
    }
    LogRecord record = MakeRecord(plain, tag, file, line, function, level);
    record.message = SpareText::Take();
    std::va_list arguments;
    va_start(arguments, format);
    if (format[0] == '%' && format[1] == 's' && format[2] == '\0') {
        char const* const text = va_arg(arguments, char const*);
        record.message = text != nullptr ? text : "(null)";
    } else {
        FormatMessage(record.message, format, arguments);
    }
    va_end(arguments);
    Dispatch(record);
}

LogBuffer::LogBuffer(bool plain, char const* tag, char const* file, int line, char const* function,
                     LogLevel level)
    : m_plain(plain), m_tag(tag), m_file(file), m_line(line), m_function(function), m_level(level) {
    str(SpareText::Take());
}

LogBuffer::~LogBuffer() {
    LogRecord record = MakeRecord(m_plain, m_tag, m_file, m_line, m_function, m_level);
    record.message = std::move(*this).str();
    // As text for "%s": up to the first NUL.
    record.message.resize(std::min(record.message.find('\0'), record.message.size()));
    Dispatch(record);
}
