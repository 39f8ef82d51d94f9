#pragma once

#include "Logging/LogConfig.h"

/// Takes all log lines but fatal ones: a fuzzer makes millions of them.
inline void KeepLogQuiet() {
    static bool const quiet = [] {
        LogConfig::Instance().SetLogCallback(
            [](LogRecord const& record) { return record.level == LogLevel::Fatal; });
        return true;
    }();
    static_cast<void>(quiet);
}
