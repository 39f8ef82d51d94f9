#pragma once

#include <string_view>

#include "Logging/LogHandler.h"

class LogLine;
struct LogPlace;

/// Prints records of levels I, V and T on standard output, or those of F, E and W on standard error, one line
/// each. After a failed write it stays mute.
class StdioLogHandler : public BaseStdioLogHandler {
public:
    /// Makes the process ignore SIGPIPE and its stream line-buffered.
    /// @param target  Stdout or Stderr; another one aborts.
    StdioLogHandler(LogConfig& config, LogTarget target);
    void Log(LogRecord const& record) override;

private:
    void Format(LogLine& line, LogRecord const& record, std::string_view tag, LogPlace const& place) const;
};
