#pragma once

#include <cstddef>
#include <string_view>

#include "Logging/LogRecord.h"

/// A record's place of origin in parts. They point into the record's own texts.
struct LogPlace {
    std::string_view name{};
    /// The record's line follows: behind a colon, or alone when there is no name for want of a file.
    bool withLine = false;

    bool HasColon(LogRecord const& record) const { return withLine && record.file != nullptr; }

    /// The name that best identifies the call, clipped to `maxLength` characters.
    static LogPlace FindShort(LogRecord const& record, std::size_t maxLength);
    /// File name and line.
    static LogPlace FindMedium(LogRecord const& record);
    /// What the console shows for a record of this level.
    static LogPlace FindForConsole(LogRecord const& record);
};
