#pragma once

#include <pthread.h>

/// A mutex for sections of a few dozen instructions: a thread that finds it held first looks again for a
/// moment, which is cheaper than to be put to sleep and woken.
class SpinningMutex {
public:
    SpinningMutex() = default;
    SpinningMutex(SpinningMutex const&) = delete;
    SpinningMutex& operator=(SpinningMutex const&) = delete;

    void lock() { ::pthread_mutex_lock(&m_mutex); }
    void unlock() { ::pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutex_t m_mutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
};
