#pragma once

#include <atomic>
#include <cstdint>
#include <sstream>
#include <string>

/// Severity of a log record. Smaller is more severe; the configured level is the most verbose one reported.
enum class LogLevel : std::int32_t {
    Fatal = 0,
    Error = 1,
    Warning = 2,
    Info = 3,
    Verbose = 4,
    Trace = 5,
};

/// The level of the process-wide LogConfig. Constant-initialised, so that a statement below the level costs
/// one relaxed load and a compare; change it through LogConfig::SetLevel only.
extern std::atomic<std::int32_t> g_logLevel;

/// True when a statement of this level is reported. Any thread. Test it before building an expensive text.
inline bool IsLogged(LogLevel level) {
    return g_logLevel.load(std::memory_order_relaxed) >= static_cast<std::int32_t>(level);
}

/// Formats one record and hands it to every sink on the calling thread. The statement macros below test the
/// level first; this function never does. A record of level Fatal ends the process after the sinks have been
/// flushed.
/// @param plain     a message of the logging layer itself or a word to the user: also reaches a
///                  console that has been silenced,
///                  and is printed there without a location.
/// @param tag       prefix on the console line; null or empty for none. Must outlive the process (a literal).
/// @param file      source path of the statement; null counts as empty. A literal.
/// @param function  name of the calling function; null counts as empty. A literal.
/// @param format    printf format; null logs nothing at all.
///                  Exactly "%s" passes its argument through unformatted,
///                  at any length.
void LogInternal(bool plain, char const* tag, char const* file, int line, char const* function,
                 LogLevel level, char const* format, ...) __attribute__((format(printf, 7, 8)));

/// Collects streamed text; the destructor logs it as one record.
class LogBuffer : public std::stringbuf {
public:
    LogBuffer(bool plain, char const* tag, char const* file, int line, char const* function, LogLevel level);
    LogBuffer(LogBuffer const&) = delete;
    LogBuffer& operator=(LogBuffer const&) = delete;
    ~LogBuffer() override;

private:
    bool const m_plain;
    char const* const m_tag;
    char const* const m_file;
    int const m_line;
    char const* const m_function;
    LogLevel const m_level;
};

/// Stream front end of LogInternal: one temporary object is one record.
class LogStream : public std::ostream {
public:
    LogStream(bool plain, char const* tag, char const* file, int line, char const* function, LogLevel level)
        : std::ostream(nullptr), m_buffer(plain, tag, file, line, function, level) {
        rdbuf(&m_buffer);
    }

private:
    LogBuffer m_buffer;
};

#define VQ_LOG_AT(plain, level, ...)                                                       \
    do {                                                                                   \
        if (IsLogged(level)) {                                                             \
            LogInternal(plain, nullptr, __FILE__, __LINE__, __func__, level, __VA_ARGS__); \
        }                                                                                  \
    } while (false)

// Ordinary statements, printf style: LOG_E("Failed to open '%s'", path.c_str()).
#define LOG_F(...) VQ_LOG_AT(false, LogLevel::Fatal, __VA_ARGS__)
#define LOG_E(...) VQ_LOG_AT(false, LogLevel::Error, __VA_ARGS__)
#define LOG_W(...) VQ_LOG_AT(false, LogLevel::Warning, __VA_ARGS__)
#define LOG_I(...) VQ_LOG_AT(false, LogLevel::Info, __VA_ARGS__)
#define LOG_V(...) VQ_LOG_AT(false, LogLevel::Verbose, __VA_ARGS__)
#define LOG_T(...) VQ_LOG_AT(false, LogLevel::Trace, __VA_ARGS__)

// Plain records: a word to the user, without location.
#define LOG_PLAIN_E(...) VQ_LOG_AT(true, LogLevel::Error, __VA_ARGS__)
#define LOG_PLAIN_W(...) VQ_LOG_AT(true, LogLevel::Warning, __VA_ARGS__)
#define LOG_PLAIN_I(...) VQ_LOG_AT(true, LogLevel::Info, __VA_ARGS__)
#define LOG_PLAIN_V(...) VQ_LOG_AT(true, LogLevel::Verbose, __VA_ARGS__)

// Streamed statement: VQ_LOG_STREAM(LogLevel::Info) << server;
#define VQ_LOG_STREAM(level) \
    if (!IsLogged(level)) {  \
    } else                   \
        LogStream(false, nullptr, __FILE__, __LINE__, __func__, level)

/// Fatal check: when the condition does not hold, logs it at level Fatal and ends the process.
#define VQ_CHECK(condition)                                                         \
    do {                                                                            \
        if (!(condition)) {                                                         \
            if (IsLogged(LogLevel::Fatal)) {                                        \
                LogStream(false, "", __FILE__, __LINE__, __func__, LogLevel::Fatal) \
                    << "**** CHECK FAILED (aborting) **** " << #condition;          \
            }                                                                       \
        }                                                                           \
    } while (false)
