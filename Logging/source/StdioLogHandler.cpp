#include "Logging/StdioLogHandler.h"

#include <signal.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>

#include "LogPlace.h"

/// The text of one line, on the stack while it is short.
class StdioLogHandler::Line {
public:
    void Add(char character) {
        *MakeRoom(1) = character;
        ++m_size;
    }
    void Add(std::string_view text) {
        if (text.empty()) {
            return;  // most colours
        }
        std::memcpy(MakeRoom(text.size()), text.data(), text.size());
        m_size += text.size();
    }
    void Add(int number) {
        char digits[12];
        char const* const end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
        Add(std::string_view(digits, static_cast<std::size_t>(end - digits)));
    }

    bool WriteTo(std::FILE* stream) const { return std::fwrite(m_text, 1, m_size, stream) == m_size; }

private:
    char* MakeRoom(std::size_t size) {
        if (m_capacity - m_size < size) {
            Grow(size);
        }
        return m_text + m_size;
    }

    void Grow(std::size_t size) {
        m_capacity = std::max(m_size + size, 2 * m_capacity);
        std::unique_ptr<char[]> larger(new char[m_capacity]);
        std::memcpy(larger.get(), m_text, m_size);
        m_large = std::move(larger);
        m_text = m_large.get();
    }

    char m_small[512];
    std::unique_ptr<char[]> m_large;
    char* m_text = m_small;
    std::size_t m_size = 0;
    std::size_t m_capacity = sizeof m_small;
};

StdioLogHandler::StdioLogHandler(LogConfig& config, LogTarget target) : BaseStdioLogHandler(config, target) {
    // A reader of our output that goes away must not kill the process: the write fails instead.
    ::signal(SIGPIPE, SIG_IGN);
    std::FILE* stream = nullptr;
    if (target == LogTarget::Stdout) {
        stream = stdout;
    } else if (target == LogTarget::Stderr) {
        stream = stderr;
    } else {
        std::abort();
    }
    // No buffer of ours: the stream would go on using it after the handler or its library is gone.
    std::setvbuf(stream, nullptr, _IOLBF, 1024);
    m_stream = stream;
    if (!SetColorFromEnvironment()) {
        SetUsesColor(::isatty(::fileno(stream)) != 0);
    }
}

void StdioLogHandler::Log(LogRecord const& record) {
    std::FILE* const stream = m_stream;
    if (record.toStderr != (GetTarget() == LogTarget::Stderr) || stream == nullptr || record.IsEmpty()) {
        return;
    }
    Line line;
    Format(line, record);
    if (!line.WriteTo(stream)) {
        m_stream = nullptr;
    } else if (UsesColor() || ::__flbf(stream) == 0) {
        // Without colour a line ends in its line feed, and a line-buffered stream has let it go already.
        std::fflush(stream);
    }
}

void StdioLogHandler::Format(Line& line, LogRecord const& record) const {
    if (!record.plain) {
        line.Add(ColorText(LogColor::Location));
        if (record.tag != nullptr) {
            line.Add(std::string_view(record.tag));
            line.Add(' ');
        }
        if (IsLogged(LogLevel::Verbose)) {
            line.Add(static_cast<int>(::getpid()));
            line.Add(' ');
        }
        line.Add(*ShortLevelName(record.level));
        line.Add(' ');
        AddPlace(line, record);
        line.Add(ColorText(LogColor::Reset));
    }
    line.Add(ColorText(GetLevelColor(record.level)));
    if (record.plain && record.level < LogLevel::Info) {
        line.Add(std::string_view(LongLevelName(record.level)));
        line.Add(std::string_view(": "));
    }
    line.Add(std::string_view(record.message));
    line.Add('\n');
    line.Add(ColorText(LogColor::Reset));
}

void StdioLogHandler::AddPlace(Line& line, LogRecord const& record) {
    LogPlace const place = LogPlace::FindForConsole(record);
    line.Add('[');
    line.Add(place.name);
    if (place.HasColon(record)) {
        line.Add(':');
    }
    if (place.withLine) {
        line.Add(static_cast<int>(record.line));
    }
    line.Add(']');
    line.Add(' ');
}
