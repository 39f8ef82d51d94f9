#include "Logging/Log.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

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
void FormatMessage(std::string& message, char const* format, std::va_list arguments) {
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

/// Lends a record the memory of the thread's last message, so that only a thread's first lines allocate. A
/// record inside another, logged by a handler, finds none and allocates for itself.
class MessageMemory {
public:
    explicit MessageMemory(std::string& message) : m_message(message) {
        if (!t_ended) {
            m_message = std::move(t_spare.text);
            m_message.clear();
        }
    }
    ~MessageMemory() {
        if (!t_ended && m_message.capacity() <= kPrintBufferSize) {
            t_spare.text = std::move(m_message);
        }
    }
    MessageMemory(MessageMemory const&) = delete;
    MessageMemory& operator=(MessageMemory const&) = delete;

private:
    struct Spare {
        ~Spare() { t_ended = true; }
        std::string text;
    };
    static thread_local Spare t_spare;
    // Statements may still run behind the end of the thread's other objects: in destructors of static ones.
    static constinit thread_local bool t_ended;

    std::string& m_message;
};

thread_local MessageMemory::Spare MessageMemory::t_spare;
constinit thread_local bool MessageMemory::t_ended = false;

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

    MessageMemory const memory(record.message);
    std::va_list arguments;
    va_start(arguments, format);
    if (std::strcmp(format, "%s") == 0) {
        char const* const text = va_arg(arguments, char const*);
        record.message = text != nullptr ? text : "(null)";
    } else {
        FormatMessage(record.message, format, arguments);
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
