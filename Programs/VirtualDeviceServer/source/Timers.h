#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>
#include <vector>

namespace vq::server {

/// Things to do again and again. Threads: one.
class Timers {
public:
    using Clock = std::chrono::steady_clock;
    /// @return the time until it is to be called again
    using Task = std::function<std::chrono::milliseconds(Clock::time_point now)>;

    /// @param first  the time until the first call
    void Add(std::chrono::milliseconds first, Task task) {
        m_timers.push_back({Clock::now() + first, std::move(task)});
    }

    /// Calls what is due. A call that comes late is not made up for.
    void RunDue(Clock::time_point now) {
        for (Timer& timer : m_timers) {
            if (timer.due <= now) {
                timer.due = now + timer.task(now);
            }
        }
    }

    /// Time until something is due, rounded up.
    std::chrono::milliseconds UntilNext(Clock::time_point now) const {
        Clock::time_point next = now + std::chrono::seconds(1);
        for (Timer const& timer : m_timers) {
            next = std::min(next, timer.due);
        }
        return std::chrono::ceil<std::chrono::milliseconds>(std::max(next - now, Clock::duration::zero()));
    }

private:
    struct Timer {
        Clock::time_point due;
        Task task;
    };
    std::vector<Timer> m_timers;
};

}  // namespace vq::server
