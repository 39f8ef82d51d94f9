#include "Logging/LogConfig.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

#include "LogReaders.h"

LogConfig& LogConfig::Instance() {
    // sGlobal empties the configuration at process exit but leaves the object itself alone: threads that end
    // later still reach it through their log statements.
    struct ProcessConfig {
        ProcessConfig() : config(::new (static_cast<void*>(storage)) LogConfig(g_logLevel)) {}
        ~ProcessConfig() { config->Reset(false); }
        alignas(LogConfig) std::byte storage[sizeof(LogConfig)];
        LogConfig* const config;
    };
    static ProcessConfig sGlobal;
    return *sGlobal.config;
}

LogConfig::LogConfig(std::atomic<std::int32_t>& level) : m_level(level) {
    Publish({});
    Reset(true);
}

LogConfig::LogConfig(bool withStdio) : m_level(m_ownLevel) {
    Publish({});
    Reset(withStdio);
}

LogConfig::~LogConfig() {
    Reset(false);
}

void LogConfig::Reset(bool withStdio) {
    SetLevel(LogLevel::Info);
    Handlers handlers;
    LogCallback callback;
    {
        std::lock_guard lock(m_mutex);
        callback.swap(m_callback);
        m_hasCallback = false;
        handlers = *m_list;
        Publish({});
    }
    DeleteHandlers(handlers);
    if (withStdio) {
        EnsureHandler(LogTarget::Stdout);
        EnsureHandler(LogTarget::Stderr);
    }
}

LogLevel LogConfig::SetLevel(LogLevel level) {
    return static_cast<LogLevel>(m_level.exchange(static_cast<std::int32_t>(level)));
}

LogCallback LogConfig::SetLogCallback(LogCallback callback) {
    std::lock_guard lock(m_mutex);
    m_hasCallback = callback != nullptr;
    return std::exchange(m_callback, std::move(callback));
}

std::vector<LogHandler*> LogConfig::GetLogHandlers() const {
    std::lock_guard lock(m_mutex);
    return *m_list;
}

/// Takes the place of the present list; the mutex is held, or nobody knows of the configuration yet.
void LogConfig::Publish(Handlers handlers) {
    if (m_list) {
        m_formerLists.push_back(std::move(m_list));
    }
    m_list = std::make_unique<Handlers const>(std::move(handlers));
    m_handlers = m_list.get();
    if (!LogReaders::AreThere()) {
        m_formerLists.clear();
    }
}

LogHandler* LogConfig::FindLocked(LogTarget target) const {
    auto const found = std::find_if(m_list->begin(), m_list->end(),
                                    [target](LogHandler* handler) { return handler->GetTarget() == target; });
    return found != m_list->end() ? *found : nullptr;
}

LogHandler* LogConfig::FindLogHandler(LogTarget target) const {
    std::lock_guard lock(m_mutex);
    return FindLocked(target);
}

LogHandler* LogConfig::EnsureHandler(LogTarget target) {
    if (LogHandler* const present = FindLogHandler(target)) {
        return present;
    }
    // Made outside the mutex: a handler may log, or look at the configuration, while it is made.
    std::unique_ptr<LogHandler> made(LogFactory::CreateLogHandler(*this, target));
    if (!made) {
        return nullptr;
    }
    std::lock_guard lock(m_mutex);
    if (LogHandler* const present = FindLocked(target)) {
        return present;  // another thread was faster
    }
    Handlers handlers = *m_list;
    handlers.push_back(made.get());
    Publish(std::move(handlers));
    return made.release();
}

bool LogConfig::AddLogHandler(LogHandler* handler) {
    std::lock_guard lock(m_mutex);
    Handlers handlers = *m_list;
    if (handler == nullptr || std::find(handlers.begin(), handlers.end(), handler) != handlers.end()) {
        return false;
    }
    handlers.push_back(handler);
    Publish(std::move(handlers));
    return true;
}

bool LogConfig::RemoveLogHandler(LogHandler* handler) {
    std::lock_guard lock(m_mutex);
    Handlers handlers = *m_list;
    if (std::erase(handlers, handler) == 0) {
        return false;
    }
    Publish(std::move(handlers));
    return true;
}

bool LogConfig::DeleteLogHandler(LogHandler* handler) {
    bool const removed = RemoveLogHandler(handler);
    if (removed) {
        DeleteHandlers({handler});
    }
    return removed;
}

void LogConfig::DeleteHandlers(std::vector<LogHandler*> const& removed) {
    // Another thread may still be using them. One that stays, blocked in a write, keeps them for good: then
    // only what they hold back is written.
    if (removed.empty() || LogReaders::WaitForOthers(std::chrono::seconds(1))) {
        std::for_each(removed.begin(), removed.end(), std::default_delete<LogHandler>());
    } else {
        for (LogHandler* const handler : removed) {
            handler->FlushWithin(std::chrono::seconds(15));  // a file's lock may be long in coming
        }
    }
}

/// The callback's verdict.
bool LogConfig::AsksCallback(LogRecord const& record) const {
    LogCallback callback;
    {
        std::lock_guard lock(m_mutex);
        callback = m_callback;
    }
    return !callback || callback(record);
}

void LogConfig::CallHandlers(LogRecord const& record) {
    if (m_hasCallback && !AsksCallback(record)) {
        return;
    }
    LogReaders::Mark const mark;
    for (LogHandler* const handler : *m_handlers.load()) {
        if (record.plain || !handler->IsSilenced()) {
            handler->Log(record);
        }
    }
}

void LogConfig::Dispatch(LogRecord const& record) {
    CallHandlers(record);
    if (record.level == LogLevel::Fatal) {
        // Deleting is what writes out a handler's buffer. When several threads die at once, the first does it
        // and the others wait for its abort: theirs would cut it short. A handler's own end may be fatal,
        // too.
        static std::recursive_mutex dying;
        std::lock_guard const lock(dying);
        std::vector<LogHandler*> removed = GetLogHandlers();
        std::erase_if(removed, [this](LogHandler* handler) { return !RemoveLogHandler(handler); });
        DeleteHandlers(removed);
        std::abort();
    }
}
