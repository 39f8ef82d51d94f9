#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iosfwd>
#include <sstream>
#include <string>
#include <string_view>

#include "Logging/LogRecord.h"

class LogConfig;

/// Where a handler writes to.
enum class LogTarget : std::int32_t { Stdout = 0, Stderr = 1, File = 2 };

/// Terminal colours of a line's parts.
enum class LogColor : std::int32_t {
    Reset = 0,
    Bright = 1,
    Header = 2,
    Location = 3,
    Verbose = 4,
    Trace = 5,
    Warning = 6,
    Error = 7,
};

/// A sink of log records. Handlers of a LogConfig are owned by it. Log runs on the logging thread, for
/// several threads at once.
class LogHandler {
public:
    LogHandler(LogConfig& config, LogTarget target) : m_config(config), m_target(target) {}
    virtual ~LogHandler();
    virtual void Log(LogRecord const& record) = 0;
    /// Writes out what the handler holds back, for one that cannot be deleted because another thread is in
    /// it.
    /// @param limit  how long to wait for that thread; after it nothing is written.
    virtual void FlushWithin(std::chrono::seconds /*limit*/) {}

    LogHandler(LogHandler const&) = delete;
    LogHandler& operator=(LogHandler const&) = delete;

    LogConfig& GetConfig() const { return m_config; }
    LogTarget GetTarget() const { return m_target; }

    bool UsesColor() const { return m_color.load(std::memory_order_relaxed); }
    void SetUsesColor(bool color) { m_color = color; }
    /// A silenced handler gets plain records only.
    bool IsSilenced() const { return m_silenced.load(std::memory_order_relaxed); }
    void SetSilenced(bool silenced) { m_silenced = silenced; }

    /// Sets the use of colour from VQLOG_COLOR: "0", "off", "no" and "false" turn it off, any other value,
    /// the empty one too, turns it on. False, and no change, when the variable is not set.
    bool SetColorFromEnvironment();

    /// One letter; "?" for a value outside the levels.
    static char const* ShortLevelName(LogLevel level);
    /// "???" for a value outside the levels.
    static char const* LongLevelName(LogLevel level);
    static LogColor GetLevelColor(LogLevel level);

    // Forms of a record's place of origin, appended to `out`; each is in square brackets with a blank behind.
    /// Short form, for errors the medium one.
    static void FormatConsoleLocation(std::string& out, LogRecord const& record);
    /// Class or function name, in 16 characters.
    static void FormatShortLocation(std::string& out, LogRecord const& record);
    /// File name and line.
    static void FormatMediumLocation(std::string& out, LogRecord const& record);
    /// File name, line and function.
    static void FormatLongLocation(std::string& out, LogRecord const& record);

    /// The name that best identifies the call, clipped to `maxLength` characters: the class of a qualified
    /// function, else the function, else (for lambdas, operators and test bodies) file name and line; the
    /// line is not clipped.
    static std::string GetShortLocation(LogRecord const& record, std::size_t maxLength);

    /// Writes local time: the locale's date and time in the long form, "HHMMSS.mmm" in the short one.
    static void FormatTime(std::ostream& stream, LogTimePoint time, bool longForm);

private:
    LogConfig& m_config;
    LogTarget const m_target;
    // Options may change them while other threads log.
    std::atomic<bool> m_color = false;
    std::atomic<bool> m_silenced = false;
};

/// A handler that writes lines to a C stream.
class BaseStdioLogHandler : public LogHandler {
public:
    using LogHandler::LogHandler;

    /// Appends the escape text of a colour; nothing when colour is off.
    void SetColor(std::stringstream& stream, LogColor color) const;

protected:
    /// The escape text of a colour, empty when colour is off.
    std::string_view ColorText(LogColor color) const {
        return UsesColor() ? FindColorText(color) : std::string_view();
    }

    /// The stream written to, or null. Atomic, since one thread may give it up while another writes.
    std::atomic<std::FILE*> m_stream = nullptr;

private:
    static std::string_view FindColorText(LogColor color);
};

/// What makes the handlers.
class LogFactory {
public:
    /// A new handler, not added to the configuration. Null for a target that this program has no handler for:
    /// an unknown one, which standard error is told, or a file where the file log is not linked in.
    /// @return owned by the caller.
    static LogHandler* CreateLogHandler(LogConfig& config, LogTarget target);
};
