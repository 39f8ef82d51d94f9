#pragma once

#include "Logging/LogHandler.h"

/// Prints records of levels I, V and T on standard output, or those of F, E and W on standard error, one line
/// each. After a failed write it stays mute.
class StdioLogHandler : public BaseStdioLogHandler {
public:
    /// Makes the process ignore SIGPIPE and its stream line-buffered.
    /// @param target  Stdout or Stderr; another one aborts.
    StdioLogHandler(LogConfig& config, LogTarget target);
    void Log(LogRecord const& record) override;

private:
    class Line;
    void Format(Line& line, LogRecord const& record) const;
    static void AddPlace(Line& line, LogRecord const& record);
};
