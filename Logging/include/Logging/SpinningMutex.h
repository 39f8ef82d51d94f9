#pragma once

#include <pthread.h>

#include <chrono>
#include <ctime>

/// A mutex for sections of a few dozen instructions: a thread that finds it held first looks again for a
/// moment, which is cheaper than to be put to sleep and woken.
class SpinningMutex {
public:
    SpinningMutex() = default;
    SpinningMutex(SpinningMutex const&) = delete;
    SpinningMutex& operator=(SpinningMutex const&) = delete;

    void lock() { ::pthread_mutex_lock(&m_mutex); }
    /// @return false when the limit passes first.
    bool try_lock_for(std::chrono::seconds limit) {
        std::timespec end{};
        ::clock_gettime(CLOCK_MONOTONIC, &end);
        end.tv_sec += limit.count();
        return ::pthread_mutex_clocklock(&m_mutex, CLOCK_MONOTONIC, &end) == 0;
    }
    void unlock() { ::pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutex_t m_mutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
};
