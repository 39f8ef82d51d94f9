#include "Logging/LogConfig.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <span>
#include <utility>

/// The handlers as they were at one moment; a few fit without an allocation.
class LogConfig::HandlerList {
public:
    explicit HandlerList(std::vector<LogHandler*> const& handlers) : m_count(handlers.size()) {
        if (m_count <= m_few.size()) {
            std::copy(handlers.begin(), handlers.end(), m_few.begin());
        } else {
            m_many = handlers;
        }
    }
    std::span<LogHandler* const> View() const {
        return {m_count <= m_few.size() ? m_few.data() : m_many.data(), m_count};
    }

private:
    std::size_t m_count;
    std::array<LogHandler*, 4> m_few;
    std::vector<LogHandler*> m_many;
};

/// A thread's stay in the handlers of a configuration; none of them is deleted meanwhile by another thread.
class LogConfig::InHandlers {
public:
    /// @param lock  holds the mutex of the configuration; given up at the end.
    InHandlers(LogConfig& config, std::unique_lock<std::mutex> lock)
        : m_config(config), m_handlers(config.m_handlers), m_outer(std::exchange(t_innermost, this)) {
        ++m_config.m_inHandlers;
        lock.unlock();
    }
    ~InHandlers() {
        t_innermost = m_outer;
        std::lock_guard const lock(m_config.m_mutex);
        --m_config.m_inHandlers;
        if (m_config.m_deleting != 0) {
            m_config.m_left.notify_all();
        }
    }
    InHandlers(InHandlers const&) = delete;
    InHandlers& operator=(InHandlers const&) = delete;

    std::span<LogHandler* const> Handlers() const { return m_handlers.View(); }

    /// How often the calling thread itself is inside.
    static int CountOwn(LogConfig const& config) {
        int count = 0;
        for (InHandlers const* mark = t_innermost; mark != nullptr; mark = mark->m_outer) {
            count += &mark->m_config == &config;
        }
        return count;
    }

private:
    static thread_local InHandlers* t_innermost;

    LogConfig& m_config;
    HandlerList const m_handlers;
    InHandlers* const m_outer;
};

thread_local LogConfig::InHandlers* LogConfig::InHandlers::t_innermost = nullptr;

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
    Reset(true);
}

LogConfig::LogConfig(bool withStdio) : m_level(m_ownLevel) {
    Reset(withStdio);
}

LogConfig::~LogConfig() {
    Reset(false);
}

void LogConfig::Reset(bool withStdio) {
    SetLevel(LogLevel::Info);
    std::vector<LogHandler*> handlers;
    LogCallback callback;
    {
        std::lock_guard lock(m_mutex);
        callback.swap(m_callback);
        handlers.swap(m_handlers);
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
    return std::exchange(m_callback, std::move(callback));
}

std::vector<LogHandler*> LogConfig::GetLogHandlers() const {
    std::lock_guard lock(m_mutex);
    return m_handlers;
}

LogHandler* LogConfig::FindLocked(LogTarget target) const {
    auto const found = std::find_if(m_handlers.begin(), m_handlers.end(),
                                    [target](LogHandler* handler) { return handler->GetTarget() == target; });
    return found != m_handlers.end() ? *found : nullptr;
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
    m_handlers.push_back(made.get());
    return made.release();
}

bool LogConfig::AddLogHandler(LogHandler* handler) {
    std::lock_guard lock(m_mutex);
    if (handler == nullptr || std::find(m_handlers.begin(), m_handlers.end(), handler) != m_handlers.end()) {
        return false;
    }
    m_handlers.push_back(handler);
    return true;
}

bool LogConfig::RemoveLogHandler(LogHandler* handler) {
    std::lock_guard lock(m_mutex);
    auto const found = std::find(m_handlers.begin(), m_handlers.end(), handler);
    if (found == m_handlers.end()) {
        return false;
    }
    m_handlers.erase(found);
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
    // Another thread may still be using them. One that stays, blocked in a write, keeps them for good.
    constexpr auto limit = std::chrono::seconds(1);
    int const own = InHandlers::CountOwn(*this);
    std::unique_lock lock(m_mutex);
    ++m_deleting;
    bool const left = m_left.wait_for(lock, limit, [&] { return m_inHandlers <= own; });
    --m_deleting;
    lock.unlock();
    if (left) {
        std::for_each(removed.begin(), removed.end(), std::default_delete<LogHandler>());
    }
}

void LogConfig::CallHandlers(LogRecord const& record) {
    std::unique_lock lock(m_mutex);
    if (m_callback) {
        LogCallback const callback = m_callback;
        lock.unlock();
        if (!callback(record)) {
            return;
        }
        lock.lock();
    }
    InHandlers const inside(*this, std::move(lock));
    for (LogHandler* handler : inside.Handlers()) {
        if (record.plain || !handler->IsSilenced()) {
            handler->Log(record);
        }
    }
}

void LogConfig::Dispatch(LogRecord const& record) {
    CallHandlers(record);
    if (record.level == LogLevel::Fatal) {
        // Deleting is what writes out a handler's buffer. When several threads die at once, one gets each
        // handler.
        std::vector<LogHandler*> removed = GetLogHandlers();
        std::erase_if(removed, [this](LogHandler* handler) { return !RemoveLogHandler(handler); });
        DeleteHandlers(removed);
        std::abort();
    }
}
