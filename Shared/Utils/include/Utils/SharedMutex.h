#pragma once

#include <semaphore.h>

#include <chrono>
#include <string>

/// A named mutex between processes: a counting semaphore of count 1. It has no owner: anybody may release it,
/// a process that dies holding it leaves it locked, and a second Lock on one thread waits for itself. One
/// name is one object on the machine, whoever's home the caller lives in. The destructor closes the handle
/// and never removes the name. One object is not thread-safe but for Lock and Unlock, which any number of
/// threads may call while it is open.
class SharedMutex {
public:
    SharedMutex() = default;
    /// Opens nothing.
    /// @param name  as the system's semaphore calls take it: no slash behind the first character.
    explicit SharedMutex(std::string name);
    SharedMutex(SharedMutex&& other) noexcept;
    SharedMutex& operator=(SharedMutex&& other) noexcept;
    SharedMutex(SharedMutex const&) = delete;
    SharedMutex& operator=(SharedMutex const&) = delete;
    ~SharedMutex();

    /// Whether a semaphore of that name is there.
    bool Exists();
    /// Opens an existing one; false with an error line when it is already open.
    bool Open();
    /// Creates one, free and with mode 0644, or opens it if it is there.
    bool Create();
    /// False, silently, when not open.
    bool Close();
    /// Closes and removes the name; true also when there was none.
    bool Delete();

    /// Waits without limit. A signal handler that interrupts the wait ends it with false and an error line.
    bool Lock();
    bool Unlock();

    /// Polls every 10 ms: a contended lock takes that long at least.
    /// @param timeout   milliseconds::max() waits without limit; 0 makes one attempt.
    /// @param timedOut  may be null; set when the time is up, cleared otherwise.
    bool Lock(std::chrono::milliseconds timeout, bool* timedOut);
    /// The same as Unlock(), for symmetry.
    bool Unlock(std::chrono::milliseconds timeout, bool* timedOut);

private:
    bool IsOpen() const { return m_handle != SEM_FAILED; }

    sem_t* m_handle = SEM_FAILED;
    std::string m_name;
};
