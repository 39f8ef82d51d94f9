#include "Logging/Log.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "Logging/LogConfig.h"

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
std::string FormatMessage(char const* format, std::va_list arguments) {
    int result = 0;
    if (PrintInto(g_print_buffer, kPrintBufferSize, format, arguments, result)) {
        return {g_print_buffer, static_cast<std::size_t>(result)};
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
            return format;
        }
        static_cast<void>(buffer.release());
        buffer.reset(static_cast<char*>(grown));
        if (PrintInto(buffer.get(), size, format, arguments, result)) {
            return {buffer.get(), static_cast<std::size_t>(result)};
        }
    }
}

char const* OrEmpty(char const* text) {
    return text != nullptr ? text : "";
}

}  // namespace

void LogInternal(bool plain, char const* tag, char const* file, int line, char const* function,
                 LogLevel level, char const* format, ...) {
    if (format == nullptr) {
        return;
    }
    LogRecord record;
    record.time = std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
    record.tag = tag != nullptr && *tag != '\0' ? tag : nullptr;
    record.file = OrEmpty(file);
    record.line = line;
    record.function = OrEmpty(function);
    record.level = level;
    record.plain = plain;
    record.toStderr = level < LogLevel::Info;

    std::va_list arguments;
    va_start(arguments, format);
    if (std::strcmp(format, "%s") == 0) {
        char const* const text = va_arg(arguments, char const*);
        record.message = text != nullptr ? text : "(null)";
    } else {
        record.message = FormatMessage(format, arguments);
    }
    va_end(arguments);
    LogConfig::Instance().Dispatch(record);
}

LogBuffer::LogBuffer(bool plain, char const* tag, char const* file, int line, char const* function,
                     LogLevel level)
    : m_plain(plain), m_tag(tag), m_file(file), m_line(line), m_function(function), m_level(level) {}

LogBuffer::~LogBuffer() {
    std::string const text = str();
    LogInternal(m_plain, m_tag, m_file, m_line, m_function, m_level, "%s", text.c_str());
}
