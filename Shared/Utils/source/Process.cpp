#include "Utils/Process.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Logging/Log.h"
#include "ProcessHost.h"
#include "ProcessRunState.h"
#include "Utils/OSUtils.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPollPeriod{50};

/// It has ended, and its status is unknown.
ProcessResult Gone() {
    return {ProcessResult::kUnknownCode, ProcessResult::kExited, {}, {}};
}

ProcessResult NoSuchProcess() {
    return {ProcessResult::kUnknownCode, ProcessResult::kNoProcess, {}, {}};
}

ProcessResult Decode(int status) {
    if (WIFEXITED(status)) {
        return {WEXITSTATUS(status), ProcessResult::kExited, {}, {}};
    }
    if (WIFSIGNALED(status)) {
        return {WTERMSIG(status), ProcessResult::kSignalled, {}, {}};
    }
    if (WIFSTOPPED(status)) {
        return {WSTOPSIG(status), ProcessResult::kNone, {}, {}};
    }
    return {status, ProcessResult::kNoProcess, {}, {}};
}

/// Time that is left of a limit; the greatest limit never ends.
class Limit {
public:
    explicit Limit(milliseconds limit) : m_limit(limit) {}
    bool IsUnlimited() const { return m_limit == milliseconds::max(); }
    /// At most the poll period; 0 or less when it is over.
    milliseconds Left() const {
        // In whole milliseconds: the difference of great limits would overflow in finer ones.
        auto const spent =
            std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - m_start);
        return IsUnlimited() ? kPollPeriod
                             : std::min(kPollPeriod, std::max(m_limit, milliseconds(0)) - spent);
    }

private:
    milliseconds const m_limit;
    std::chrono::steady_clock::time_point const m_start = std::chrono::steady_clock::now();
};

}  // namespace

Process::Process(std::int32_t pid) : m_pid(pid) {}
Process::Process(std::int32_t pid, std::unique_ptr<ProcessRunState> runState)
    : m_pid(pid), m_runState(std::move(runState)) {}
Process::Process(Process&& other) noexcept = default;
Process& Process::operator=(Process&& other) noexcept = default;
Process::~Process() = default;

std::int32_t Process::GetCurrent() {
    return ::getpid();
}

ProcessResult const& Process::Finalize(ProcessResult const& result) {
    LOG_V("The result of finalizing pid %d is %d / 0x%x", m_pid, result.state,
          static_cast<unsigned>(result.code));
    m_result = std::make_unique<ProcessResult>(result);
    if (m_runState != nullptr) {
        m_runState->Complete(*m_result);
        m_runState.reset();
    }
    return *m_result;
}

ProcessResult Process::DecodeAndFinalize(int status) {
    return Finalize(Decode(status));
}

bool Process::IsRunning() {
    if (m_result != nullptr) {
        return false;
    }
    // As a target of signals such a number would stand for a whole group of processes.
    if (m_pid < 1) {
        Finalize(NoSuchProcess());
        return false;
    }
    if (::kill(m_pid, 0) != 0) {
        return errno != ESRCH;
    }
    int status = 0;
    pid_t const waited = ::waitpid(m_pid, &status, WNOHANG);
    if (waited == m_pid) {
        DecodeAndFinalize(status);
        return false;
    }
    return waited == 0 || errno == ECHILD;
}

ProcessResult Process::WaitForExit(milliseconds timeout) {
    if (m_result != nullptr) {
        return *m_result;
    }
    if (m_pid < 1) {
        return Finalize(NoSuchProcess());
    }
    if (::kill(m_pid, 0) != 0) {
        return errno == ESRCH ? Finalize(Gone()) : ProcessResult();
    }
    Limit const limit(timeout);
    int status = 0;
    pid_t waited = ::waitpid(m_pid, &status, WNOHANG);
    if (waited < 0 && errno == ECHILD) {  // somebody else's child
        ProcessWatch const watch(m_pid);
        bool ended = false;
        while (!ended && IsRunning()) {
            milliseconds const left = limit.Left();
            if (left.count() <= 0) {
                return {};
            }
            ended = watch.Wait(left);
        }
        return m_result != nullptr ? *m_result : Finalize(Gone());
    }
    if (waited == 0 && limit.IsUnlimited()) {
        do {
            waited = ::waitpid(m_pid, &status, 0);
        } while (waited < 0 && errno == EINTR);
    } else if (waited == 0) {
        ProcessWatch const watch(m_pid);
        while (waited == 0) {
            milliseconds const left = limit.Left();
            if (left.count() <= 0) {
                return {};
            }
            watch.Wait(left);
            waited = ::waitpid(m_pid, &status, WNOHANG);
        }
    }
    // A failure here: where this process ignores its children's end, their status is nowhere to be had.
    return waited == m_pid ? DecodeAndFinalize(status) : Finalize(Gone());
}

ProcessResult Process::Kill() {
    if (m_result != nullptr) {
        return *m_result;
    }
    if (m_pid < 1) {
        return Finalize(NoSuchProcess());
    }
    for (int const signal : {SIGTERM, SIGKILL}) {
        if (signal == SIGKILL && !IsRunning()) {
            break;
        }
        if (::kill(m_pid, signal) != 0) {
            return errno == ESRCH ? Finalize(Gone()) : ProcessResult{errno, ProcessResult::kNone, {}, {}};
        }
    }
    return WaitForExit(milliseconds::max());
}

std::FILE* Process::GetInputFileDescriptor() const {
    if (m_runState == nullptr) {
        return nullptr;
    }
    std::FILE* const stream = m_runState->TakeInput();
    if (stream == nullptr) {
        LOG_E("Failed to map input to file: %s", GetOSErrorText(errno).c_str());
    }
    return stream;
}
