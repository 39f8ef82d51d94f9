#pragma once

#include <string>
#include <utility>

#include "Logging/LogConfig.h"

/// A record of "/a/Channel.cpp", line 120, without a place in a log.
inline LogRecord MakeRecord(LogLevel level, std::string text = "hello", char const* function = "Run") {
    LogRecord record;
    record.file = "/a/Channel.cpp";
    record.line = 120;
    record.function = function;
    record.level = level;
    record.toStderr = level < LogLevel::Info;
    record.message = std::move(text);
    return record;
}
