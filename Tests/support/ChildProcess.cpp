#include "TestSupport/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>

namespace vq::test {

namespace {

using Clock = std::chrono::steady_clock;

std::chrono::milliseconds Left(Clock::time_point deadline) {
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

/// One of our programs has no path.
std::string PathOf(std::string const& program) {
    return program.find('/') == std::string::npos ? ProgramPath(program) : program;
}

bool PollOne(int fd, std::chrono::milliseconds timeout) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(timeout.count())) > 0;
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> const& arguments, Environment const& environment) {
    int input[2] = {-1, -1};
    int output[2] = {-1, -1};
    if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    std::vector<std::string> words = {"/usr/bin/env"};
    for (auto const& [name, value] : environment) {
        words.emplace_back(name).append("=").append(value);
    }
    words.push_back(PathOf(arguments.at(0)));
    words.insert(words.end(), arguments.begin() + 1, arguments.end());
    std::vector<char*> argv;
    std::ranges::transform(words, std::back_inserter(argv), [](std::string& word) { return word.data(); });
    argv.push_back(nullptr);
    pid_t const parent = ::getpid();

    m_pid = ::fork();
    if (m_pid == 0) {
        // Only async-signal-safe calls from here on: the test may have threads.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) {
            ::_exit(126);
        }
        ::dup2(input[0], 0);
        ::dup2(output[1], 1);
        ::dup2(output[1], 2);
        ::signal(SIGPIPE, SIG_DFL);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(input[0]);
    ::close(output[1]);
    m_input = input[1];
    m_outputFd = output[0];
    if (m_pid < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    ::signal(SIGPIPE, SIG_IGN);
    m_pidFd = static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0));
}

ChildProcess::~ChildProcess() {
    if (!m_exit) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    CloseInput();
    ::close(m_outputFd);
    if (m_pidFd >= 0) {
        ::close(m_pidFd);
    }
}

bool ChildProcess::WriteLine(std::string const& line) {
    std::string const text = line + "\n";
    return m_input >= 0 && ::write(m_input, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool ChildProcess::ReadSome(std::chrono::milliseconds timeout) {
    if (!PollOne(m_outputFd, timeout)) {
        return false;
    }
    char buffer[4096];
    ssize_t const count = ::read(m_outputFd, buffer, sizeof buffer);
    if (count <= 0) {
        return false;
    }
    m_output.append(buffer, static_cast<std::size_t>(count));
    return true;
}

std::optional<std::string> ChildProcess::ReadLineWith(std::string const& prefix,
                                                      std::chrono::milliseconds timeout) {
    Clock::time_point const deadline = Clock::now() + timeout;
    for (;;) {
        std::size_t const end = m_output.find('\n', m_scanned);
        if (end == std::string::npos) {
            if (!ReadSome(Left(deadline))) {
                return std::nullopt;
            }
            continue;
        }
        std::size_t const start = m_scanned;
        m_scanned = end + 1;
        if (m_output.compare(start, prefix.size(), prefix) == 0) {
            return m_output.substr(start + prefix.size(), end - start - prefix.size());
        }
    }
}

void ChildProcess::Signal(int number) const {
    if (!m_exit) {
        ::kill(m_pid, number);
    }
}

void ChildProcess::CloseInput() {
    if (m_input >= 0) {
        ::close(std::exchange(m_input, -1));
    }
}

std::optional<int> ChildProcess::WaitForExit(std::chrono::milliseconds timeout) {
    Clock::time_point const deadline = Clock::now() + timeout;
    while (!m_exit) {
        // The child may be blocked on a full pipe: keep reading while we wait.
        pollfd entries[2] = {{m_pidFd, POLLIN, 0}, {m_outputFd, POLLIN, 0}};
        int const ready = ::poll(entries, 2, static_cast<int>(Left(deadline).count()));
        if (ready <= 0) {
            return std::nullopt;
        }
        bool const readable = (entries[1].revents & POLLIN) != 0;
        if (readable) {
            ReadSome(std::chrono::milliseconds(0));
        }
        if (entries[0].revents != 0) {
            int status = 0;
            ::waitpid(m_pid, &status, 0);
            m_exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        } else if (!readable) {
            // The output is closed but the program lives on: wait for its end alone.
            PollOne(m_pidFd, Left(deadline));
        }
    }
    DrainOutput();
    return m_exit;
}

Outcome ChildProcess::Finish() {
    int const status = WaitForExit().value_or(-1);
    return {status, DrainOutput()};
}

std::string const& ChildProcess::DrainOutput() {
    while (ReadSome(std::chrono::milliseconds(0))) {
    }
    return m_output;
}

}  // namespace vq::test
