#include "Logging/StdioLogHandler.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

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
    std::string const line = FormatLine(record);
    if (std::fwrite(line.data(), 1, line.size(), stream) != line.size()) {
        m_stream = nullptr;
        return;
    }
    std::fflush(stream);
}

std::string StdioLogHandler::FormatLine(LogRecord const& record) const {
    std::string line;
    line.reserve(record.message.size() + 96);
    if (!record.plain) {
        SetColor(line, LogColor::Location);
        if (record.tag != nullptr) {
            line += record.tag;
            line += ' ';
        }
        if (IsLogged(LogLevel::Verbose)) {
            line += std::to_string(::getpid());
            line += ' ';
        }
        line += ShortLevelName(record.level);
        line += ' ';
        FormatConsoleLocation(line, record);
        SetColor(line, LogColor::Reset);
    }
    SetColor(line, GetLevelColor(record.level));
    if (record.plain && record.level < LogLevel::Info) {
        line += LongLevelName(record.level);
        line += ": ";
    }
    line += record.message;
    line += '\n';
    SetColor(line, LogColor::Reset);
    return line;
}
