#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "Logging/LogHandler.h"

/// Sees every reported record before the handlers; false keeps it from them. Runs on the logging thread, for
/// several threads at once, with no lock held.
using LogCallback = std::function<bool(LogRecord const&)>;

/// Level, callback and handlers of the log. Statements use the process-wide one. Any thread; a handler goes
/// when no other thread is inside it, or stays in memory, written out, where one is not done in a second.
class LogConfig {
public:
    /// The process-wide configuration: made at first use with both console handlers. At process exit its
    /// handlers are deleted; the object itself stays valid, so that what logs later is merely not printed.
    static LogConfig& Instance();

    /// A private configuration, with a level of its own.
    explicit LogConfig(bool withStdio);
    ~LogConfig();
    LogConfig(LogConfig const&) = delete;
    LogConfig& operator=(LogConfig const&) = delete;

    /// Level info, no callback, and no handlers but, when asked for, standard output and standard error.
    void Reset(bool withStdio);

    LogLevel GetLevel() const { return static_cast<LogLevel>(m_level.load(std::memory_order_relaxed)); }
    /// @param level  the most verbose level that is reported; a negative one silences even fatal statements.
    /// @return the previous level.
    LogLevel SetLevel(LogLevel level);

    /// Installs a callback, an empty one for none.
    /// @return the previous one.
    LogCallback SetLogCallback(LogCallback callback);

    /// A copy of the list; the configuration keeps owning the handlers.
    std::vector<LogHandler*> GetLogHandlers() const;

    /// The handler of that target, made and added when missing. Null when it cannot be made or is of another
    /// type.
    template <typename Handler>
    Handler* EnsureLogHandler(LogTarget target) {
        return dynamic_cast<Handler*>(EnsureHandler(target));
    }

    /// Appends a handler and takes ownership of it. False, without taking it, for null or one already there.
    bool AddLogHandler(LogHandler* handler);
    /// Takes a handler out; the caller owns it, and others may still be in it. False for null or none such.
    bool RemoveLogHandler(LogHandler* handler);
    /// Takes a handler out and deletes it. False as above.
    bool DeleteLogHandler(LogHandler* handler);

    /// The first handler of that target, or null.
    LogHandler* FindLogHandler(LogTarget target) const;
    LogHandler* FindFileLogHandler() const { return FindLogHandler(LogTarget::File); }

    /// Hands a record to the callback and the handlers on the calling thread, whatever its level. A fatal one
    /// then deletes the handlers and aborts.
    void Dispatch(LogRecord const& record);

private:
    /// The process-wide one: its level is the one that statements test.
    explicit LogConfig(std::atomic<std::int32_t>& level);

    using Handlers = std::vector<LogHandler*>;

    LogHandler* EnsureHandler(LogTarget target);
    LogHandler* FindLocked(LogTarget target) const;
    void Publish(Handlers handlers);
    bool AsksCallback(LogRecord const& record) const;
    void CallHandlers(LogRecord const& record);
    void DeleteHandlers(std::vector<LogHandler*> const& removed);

    mutable std::mutex m_mutex;
    std::atomic<std::int32_t> m_ownLevel = 0;
    std::atomic<std::int32_t>& m_level;
    LogCallback m_callback;
    std::atomic<bool> m_hasCallback = false;
    // The handlers, read without the mutex by threads that are marked as readers. A list is never changed:
    // another takes its place, and it stays until no thread can still be reading it.
    std::unique_ptr<Handlers const> m_list;
    std::atomic<Handlers const*> m_handlers = nullptr;
    std::vector<std::unique_ptr<Handlers const>> m_formerLists;
};

/// While it lives, every record goes to standard error through a handler of its own, and not to the
/// configured handlers: for phases in which a handler itself may fail. Restores the previous callback at its
/// end.
class LogToStderrRedirector {
public:
    explicit LogToStderrRedirector(LogConfig& config);
    ~LogToStderrRedirector();
    LogToStderrRedirector(LogToStderrRedirector const&) = delete;
    LogToStderrRedirector& operator=(LogToStderrRedirector const&) = delete;

private:
    LogConfig& m_config;
    std::shared_ptr<LogHandler> m_handler;
    LogCallback m_previous;
};
