#include "ChildProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Failure.h"
#include "Utils/OSUtils.h"
#include "Utils/TextUtils.h"

namespace vq::rigctl {

namespace {

constexpr std::chrono::seconds kPatience{3};

/// The child's side, where only plain system calls are allowed: other threads may have held locks.
/// @param report  gets the error when the program cannot be started
[[noreturn]] void Become(char* const* argv, ChildProgram::Options const& options, pid_t parent, int report) {
    if (options.bond == ChildProgram::Bond::Lifelong) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) {
            ::_exit(kCannotStart);
        }
    }
    if (options.third >= 0 && options.third != 3) {
        // The report must not lie where the third descriptor goes.
        report = ::fcntl(report, F_DUPFD_CLOEXEC, 10);
        ::dup2(options.third, 3);
    } else if (options.third == 3) {
        ::fcntl(3, F_SETFD, 0);
    }
    if (options.background) {
        ::setsid();
        int const nothing = ::open("/dev/null", O_RDWR);
        for (int const stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            ::dup2(nothing, stream);
        }
        if (nothing > STDERR_FILENO) {
            ::close(nothing);
        }
    }
    if (options.mask != nullptr) {
        ::sigprocmask(SIG_SETMASK, options.mask, nullptr);
    }
    ::execvp(argv[0], argv);
    int const error = errno;
    static_cast<void>(!::write(report, &error, sizeof error));
    ::_exit(kCannotStart);
}

}  // namespace

ChildProgram::ChildProgram(std::vector<std::string> const& arguments, Options const& options)
    : m_bond(options.bond) {
    std::vector<std::string> texts = arguments;
    std::vector<char*> const argv = ArgumentPointers(texts);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw Failure(Status::Refused, "Cannot make a pipe: " + GetOSErrorText(errno) + ".");
    }
    FileDescriptor const reading(ends[0]);
    FileDescriptor writing(ends[1]);
    pid_t const parent = ::getpid();
    m_id = ::fork();
    if (m_id == 0) {
        Become(argv.data(), options, parent, writing.Get());
    }
    int error = m_id < 0 ? errno : 0;
    writing.Reset();
    if (m_id > 0 && ::read(reading.Get(), &error, sizeof error) == sizeof error) {
        ::waitpid(m_id, nullptr, 0);
    }
    if (error != 0) {
        throw Failure(static_cast<rigctl::Status>(kCannotStart),
                      "Cannot start " + arguments[0] + ": " + GetOSErrorText(error) + ".");
    }
    m_descriptor.Reset(static_cast<int>(::syscall(SYS_pidfd_open, m_id, 0U)));
}

ChildProgram::~ChildProgram() {
    if (m_bond == Bond::Lifelong) {
        End(Clock::now() + kPatience);
    }
}

std::optional<int> ChildProgram::Status() {
    Wait(WNOHANG);
    return m_status;
}

void ChildProgram::Wait(int options) {
    int how = 0;
    if (!m_status && ::waitpid(m_id, &how, options) == m_id) {
        m_status = WIFSIGNALED(how) ? 128 + WTERMSIG(how) : WEXITSTATUS(how);
    }
}

void ChildProgram::Signal(int number) const {
    if (!m_status) {
        ::kill(m_id, number);
    }
}

void ChildProgram::End(Clock::time_point deadline) {
    if (Status()) {
        return;
    }
    Signal(SIGTERM);
    auto const rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd waiting{.fd = m_descriptor.Get(), .events = POLLIN, .revents = 0};
    ::poll(&waiting, 1, static_cast<int>(std::max<std::int64_t>(rest, 0)));
    if (!Status()) {
        Signal(SIGKILL);
        Wait(0);
    }
}

}  // namespace vq::rigctl
