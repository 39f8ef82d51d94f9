#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Logging/LogConfig.h"

namespace vq::test {

/// Collects what the process logs, from every thread, and keeps it off the console (a fatal record still
/// aborts). Restores the previous callback and level at its end: nest them in stack order.
class LogCapture {
public:
    /// @param level  the most verbose level to report meanwhile; none leaves the level alone.
    explicit LogCapture(std::optional<LogLevel> level = std::nullopt) : m_state(std::make_shared<State>()) {
        LogConfig& config = LogConfig::Instance();
        m_previous = config.SetLogCallback([state = m_state](LogRecord const& record) {
            std::lock_guard lock(state->mutex);
            state->records.push_back(record);
            state->changed.notify_all();
            return record.level == LogLevel::Fatal;  // its text is what a death test looks for
        });
        if (level) {
            m_level = config.SetLevel(*level);
        }
    }
    ~LogCapture() {
        LogConfig::Instance().SetLogCallback(std::move(m_previous));
        if (m_level) {
            LogConfig::Instance().SetLevel(*m_level);
        }
    }
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    /// Records of this level whose message holds the text.
    std::size_t Count(LogLevel level, std::string_view substring) const {
        std::lock_guard lock(m_state->mutex);
        return m_state->Count(level, substring);
    }
    bool Has(LogLevel level, std::string_view substring) const { return Count(level, substring) != 0; }

    /// Waits until there is such a record; false when the limit passes first.
    bool WaitFor(LogLevel level, std::string_view substring,
                 std::chrono::milliseconds limit = std::chrono::seconds(30)) const {
        std::unique_lock lock(m_state->mutex);
        return m_state->changed.wait_for(lock, limit, [&] { return m_state->Count(level, substring) != 0; });
    }

    /// All messages in order, each behind its level letter and a blank: "E lost the pipe".
    std::vector<std::string> Lines() const {
        std::lock_guard lock(m_state->mutex);
        std::vector<std::string> lines;
        for (LogRecord const& record : m_state->records) {
            lines.push_back(std::string(LogHandler::ShortLevelName(record.level)) + " " + record.message);
        }
        return lines;
    }

    std::vector<LogRecord> Records() const {
        std::lock_guard lock(m_state->mutex);
        return m_state->records;
    }

    void Clear() {
        std::lock_guard lock(m_state->mutex);
        m_state->records.clear();
    }

private:
    // Shared with the callback: a thread may still be in it when the capture ends.
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<LogRecord> records;

        std::size_t Count(LogLevel level, std::string_view substring) const {
            std::size_t count = 0;
            for (LogRecord const& record : records) {
                count += record.level == level && record.message.find(substring) != std::string::npos;
            }
            return count;
        }
    };

    std::shared_ptr<State> m_state;
    LogCallback m_previous;
    std::optional<LogLevel> m_level;
};

}  // namespace vq::test
