#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "Logging/Log.h"

using LogTimePoint = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

/// One log message. The texts it points to are literals of the statement and outlive it.
struct LogRecord {
    LogTimePoint time{};
    /// Prefix on the console line, or null.
    char const* tag = nullptr;
    /// Source path; null only in an empty record.
    char const* file = nullptr;
    std::int32_t line = 0;
    /// Name of the calling function; null only in an empty record.
    char const* function = nullptr;
    LogLevel level = LogLevel::Fatal;
    /// A message of the logging layer itself or a word to the user: passes a silenced console, without
    /// location.
    bool plain = false;
    /// Fatal, error and warning records go to standard error.
    bool toStderr = false;
    std::string message{};

    /// Nothing to print: no message, no line and no file. Handing one to a file log opens the file.
    bool IsEmpty() const { return message.empty() && line == 0 && (file == nullptr || *file == '\0'); }

    /// The same statement with the same text: compares addresses of tag, file and function, then line, level
    /// and message.
    bool IsRepeatOf(LogRecord const& other) const {
        return tag == other.tag && file == other.file && function == other.function && line == other.line &&
               level == other.level && message == other.message;
    }
};
