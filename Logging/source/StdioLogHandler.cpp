#include "Logging/StdioLogHandler.h"

#include <signal.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "LogLine.h"
#include "LogPlace.h"

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
    LogPlace const place = LogPlace::FindForConsole(record);
    std::string_view const tag = record.tag != nullptr ? record.tag : "";
    // Beside these texts: colours, the process, the level's name, the line's number.
    LogLine line(tag.size() + place.name.size() + record.message.size() + 128);
    Format(line, record, tag, place);
    std::string_view const text = line.View();
    if (std::fwrite(text.data(), 1, text.size(), stream) != text.size()) {
        m_stream = nullptr;
    } else if (UsesColor() || ::__flbf(stream) == 0) {
        // Without colour a line ends in its line feed, and a line-buffered stream has let it go already.
        std::fflush(stream);
    }
}

void StdioLogHandler::Format(LogLine& line, LogRecord const& record, std::string_view tag,
                             LogPlace const& place) const {
    if (!record.plain) {
        line.Add(ColorText(LogColor::Location));
        if (record.tag != nullptr) {
            line.Add(tag);
            line.Add(' ');
        }
        if (IsLogged(LogLevel::Verbose)) {
            line.Add(static_cast<int>(::getpid()));
            line.Add(' ');
        }
        line.Add(*ShortLevelName(record.level));
        line.Add(' ');
        line.Add(place, record);
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
