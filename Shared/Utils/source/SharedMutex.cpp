#include "Utils/SharedMutex.h"

#include <fcntl.h>

#include <cerrno>
#include <thread>
#include <utility>

#include "Logging/Log.h"
#include "Utils/OSUtils.h"

namespace {

constexpr mode_t kMode = 0644;
constexpr unsigned kFree = 1;
/// A waiter is to cost next to nothing; waking fast does not count.
constexpr std::chrono::milliseconds kPollInterval{10};

/// Logs "Failed to <what> mutex '<name>': <system error>". Always false.
bool ReportFailure(char const* what, std::string const& name) {
    std::string const error = GetOSErrorText(errno);
    LOG_E("Failed to %s mutex '%s': %s", what, name.c_str(), error.c_str());
    return false;
}

}  // namespace

SharedMutex::SharedMutex(std::string name) : m_name(std::move(name)) {}

SharedMutex::SharedMutex(SharedMutex&& other) noexcept
    : m_handle(std::exchange(other.m_handle, SEM_FAILED)), m_name(std::move(other.m_name)) {}

SharedMutex& SharedMutex::operator=(SharedMutex&& other) noexcept {
    SharedMutex taken(std::move(other));
    std::swap(m_handle, taken.m_handle);
    std::swap(m_name, taken.m_name);
    return *this;
}

SharedMutex::~SharedMutex() {
    Close();
}

bool SharedMutex::Exists() {
    sem_t* const handle = ::sem_open(m_name.c_str(), 0);
    if (handle == SEM_FAILED) {
        return false;
    }
    ::sem_close(handle);
    return true;
}

bool SharedMutex::Open() {
    if (IsOpen()) {
        LOG_E("Failed to open mutex %s, already open", m_name.c_str());
        return false;
    }
    m_handle = ::sem_open(m_name.c_str(), 0);
    if (!IsOpen()) {
        std::string const error = GetOSErrorText(errno);
        LOG_E("Failed to open mutex %s: %s", m_name.c_str(), error.c_str());
        return false;
    }
    return true;
}

bool SharedMutex::Create() {
    if (IsOpen()) {
        LOG_E("Failed to create Mutex '%s', already open", m_name.c_str());
        return false;
    }
    m_handle = ::sem_open(m_name.c_str(), O_CREAT, kMode, kFree);
    return IsOpen() || ReportFailure("create", m_name);
}

bool SharedMutex::Close() {
    if (!IsOpen()) {
        return false;
    }
    if (::sem_close(m_handle) != 0) {
        return ReportFailure("close", m_name);
    }
    m_handle = SEM_FAILED;
    return true;
}

bool SharedMutex::Delete() {
    Close();
    if (::sem_unlink(m_name.c_str()) != 0 && errno != ENOENT && errno != EINVAL) {
        return ReportFailure("delete", m_name);
    }
    return true;
}

bool SharedMutex::Lock() {
    if (!IsOpen()) {
        LOG_E("Failed to lock mutex '%s', not open", m_name.c_str());
        return false;
    }
    if (::sem_wait(m_handle) != 0) {
        return ReportFailure("lock", m_name);
    }
    LOG_T("Locked shared mutex '%s'", m_name.c_str());
    return true;
}

bool SharedMutex::Unlock() {
    if (!IsOpen()) {
        LOG_E("Failed to unlock mutex '%s', not open", m_name.c_str());
        return false;
    }
    if (::sem_post(m_handle) != 0) {
        return ReportFailure("unlock", m_name);
    }
    LOG_T("Unlocked shared mutex '%s'", m_name.c_str());
    return true;
}

bool SharedMutex::Lock(std::chrono::milliseconds timeout, bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    if (!IsOpen()) {
        LOG_E("Failed to lock mutex '%s', not open", m_name.c_str());
        return false;
    }
    if (timeout == std::chrono::milliseconds::max()) {
        return Lock();
    }
    auto const start = std::chrono::steady_clock::now();
    while (::sem_trywait(m_handle) != 0) {
        if (errno != EAGAIN) {
            return ReportFailure("lock", m_name);
        }
        std::this_thread::sleep_for(kPollInterval);
        // In milliseconds: a long timeout has no representation in the clock's own unit.
        auto const waited =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
        if (waited >= timeout) {
            if (timedOut != nullptr) {
                *timedOut = true;
            }
            return false;
        }
    }
    LOG_T("Locked shared mutex '%s'", m_name.c_str());
    return true;
}

bool SharedMutex::Unlock(std::chrono::milliseconds, bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    return Unlock();
}
