#pragma once

#include <pthread.h>

#include <chrono>
#include <thread>

/// A mutex for sections of a few dozen instructions: a thread that finds it held first looks again for a
/// moment, which is cheaper than to be put to sleep and woken.
class SpinningMutex {
public:
    SpinningMutex() = default;
    SpinningMutex(SpinningMutex const&) = delete;
    SpinningMutex& operator=(SpinningMutex const&) = delete;

    void lock() { ::pthread_mutex_lock(&m_mutex); }
    /// Polls: a timed wait would follow a wall clock that is set meanwhile.
    /// @return false when the limit passes first.
    bool try_lock_for(std::chrono::seconds limit) {
        auto const end = std::chrono::steady_clock::now() + limit;
        while (::pthread_mutex_trylock(&m_mutex) != 0) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }
    void unlock() { ::pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutex_t m_mutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
};
