#include "Utils/ProcessFactory.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>

#include "Logging/Log.h"
#include "ProcessRunState.h"
#include "Utils/FileDescriptor.h"
#include "Utils/OSUtils.h"
#include "Utils/TextUtils.h"
#include "Utils/ThreadUtils.h"

namespace {

[[noreturn]] void Fail(std::string const& what, int error) {
    throw ProcessException(what + GetOSErrorText(error));
}

/// A pipe that no other child inherits.
struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;

    void Open() {
        std::array<int, 2> ends{-1, -1};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            Fail("Failed to pipe2: ", errno);
        }
        readEnd.Reset(ends[0]);
        writeEnd.Reset(ends[1]);
        MoveUp(readEnd);
        MoveUp(writeEnd);
    }

private:
    /// Away from the numbers of the standard streams, which the child overwrites one after the other.
    static void MoveUp(FileDescriptor& end) {
        if (end.Get() <= STDERR_FILENO) {
            end.Reset(::fcntl(end.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
            if (!end) {
                Fail("Failed to pipe2: ", errno);
            }
        }
    }
};

struct Pipes {
    Pipe input;
    Pipe output;
    Pipe error;
};

/// Changes the working directory while it lives.
class WorkingDirectory {
public:
    explicit WorkingDirectory(std::string const& path) {
        if (path.empty()) {
            return;
        }
        if (::getcwd(m_saved.data(), m_saved.size()) == nullptr) {
            Fail("cannot save current working directory: ", errno);
        }
        if (::chdir(path.c_str()) != 0) {
            Fail("current working directory '" + path + "' not found: ", errno);
        }
        m_changed = true;
    }
    WorkingDirectory(WorkingDirectory const&) = delete;
    WorkingDirectory& operator=(WorkingDirectory const&) = delete;
    ~WorkingDirectory() {
        if (m_changed && ::chdir(m_saved.data()) != 0) {
            LOG_W("Lost current directory %s (%s)", m_saved.data(), GetOSErrorText(errno).c_str());
        }
    }

private:
    std::array<char, 1024> m_saved;
    bool m_changed = false;
};

/// What the system is told of a child. The pipes' own numbers need not be closed in it: exec does that.
class SpawnSettings {
public:
    SpawnSettings(Pipes const& pipes, bool detached) {
        ::posix_spawn_file_actions_init(&m_actions);
        ::posix_spawnattr_init(&m_attributes);
        if (pipes.output.writeEnd) {
            ::posix_spawn_file_actions_adddup2(&m_actions, pipes.output.writeEnd.Get(), STDOUT_FILENO);
            ::posix_spawn_file_actions_adddup2(&m_actions, pipes.error.writeEnd.Get(), STDERR_FILENO);
        }
        if (pipes.input.readEnd) {
            ::posix_spawn_file_actions_adddup2(&m_actions, pipes.input.readEnd.Get(), STDIN_FILENO);
        } else if (detached) {
            ::posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY | O_NONBLOCK,
                                               0);
        }
        // Our own threads block all signals, and our log ignores SIGPIPE. A tool must not inherit that: a
        // service that it leaves behind could not be ended any more, and pipes in a script would complain.
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&m_attributes, &signals);
        ::sigaddset(&signals, SIGPIPE);
        ::posix_spawnattr_setsigdefault(&m_attributes, &signals);
        int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (detached) {
            ::posix_spawnattr_setpgroup(&m_attributes, 0);
            flags |= POSIX_SPAWN_SETPGROUP;
        }
        if (HasRealTimeScheduling()) {
            sched_param const parameters{};
            ::posix_spawnattr_setschedpolicy(&m_attributes, SCHED_OTHER);
            ::posix_spawnattr_setschedparam(&m_attributes, &parameters);
            flags |= POSIX_SPAWN_SETSCHEDULER;
        }
        ::posix_spawnattr_setflags(&m_attributes, static_cast<short>(flags));
    }
    SpawnSettings(SpawnSettings const&) = delete;
    SpawnSettings& operator=(SpawnSettings const&) = delete;
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&m_actions);
        ::posix_spawnattr_destroy(&m_attributes);
    }

    /// @param environment  empty: ours
    /// @return the child's id; -1 when the file turns out to be no program.
    pid_t SpawnChild(std::string const& executable, std::vector<std::string> arguments,
                     std::vector<std::string> environment) const {
        pid_t pid = -1;
        std::vector<char*> const argv = ArgumentPointers(arguments);
        std::vector<char*> const extended = ArgumentPointers(environment);
        char* const* const envp = environment.empty() ? environ : extended.data();
        int const error =
            ::posix_spawn(&pid, executable.c_str(), &m_actions, &m_attributes, argv.data(), envp);
        // Only a negative result fails: the errors that a caller can do something about were found before.
        if (error < 0) {
            Fail("Failed to spawn: ", -error);
        }
        if (error > 0) {
            LOG_V("'%s' cannot be executed: %s", executable.c_str(), GetOSErrorText(error).c_str());
        }
        return pid;
    }

private:
    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
};

std::string_view NameOf(std::string_view entry) {
    return entry.substr(0, entry.find('='));
}

/// Keeps what is needed of the pipes. A child whose output nobody can read is ended again.
std::unique_ptr<ProcessRunState> KeepParentEnds(Pipes& pipes, pid_t pid) {
    try {
        return std::make_unique<ProcessRunState>(
            ProcessRunState::Pipes{.input = std::move(pipes.input.writeEnd),
                                   .output = std::move(pipes.output.readEnd),
                                   .error = std::move(pipes.error.readEnd)});
    } catch (std::system_error const& error) {
        Process(pid).Kill();
        throw ProcessException(std::string("Failed to capture output: ") + error.what());
    }
}

}  // namespace

ProcessFactory::ProcessFactory(std::vector<std::string> arguments)
    : m_arguments(std::move(arguments)),
      m_executable(m_arguments.empty() ? std::string() : ResolveOnPath(m_arguments.front())) {}

ProcessFactory& ProcessFactory::AddEnvironment(std::vector<std::string> const& entries) {
    m_extraEnvironment.insert(m_extraEnvironment.end(), entries.begin(), entries.end());
    return *this;
}

ProcessFactory& ProcessFactory::WithCurrentWorkingDirectory(std::string path) {
    m_workingDirectory = std::move(path);
    return *this;
}

ProcessFactory& ProcessFactory::WithExecutableWorkingDirectory() {
    m_workingDirectory = GetDirectoryOf(m_executable);
    return *this;
}

ProcessFactory& ProcessFactory::RunInConsole() {
    m_runInConsole = true;
    return *this;
}

ProcessFactory& ProcessFactory::ReadingStdoutStderr() {
    m_readingStdoutStderr = true;
    return *this;
}

ProcessFactory& ProcessFactory::WritingStdin() {
    m_writingStdin = true;
    return *this;
}

ProcessFactory& ProcessFactory::RunDetached() {
    m_detached = true;
    return *this;
}

ProcessFactory& ProcessFactory::Debuggable() {
    m_debuggable = true;
    return *this;
}

std::string ProcessFactory::Describe() const {
    std::string text = m_workingDirectory + "$ ";
    for (auto const* const list : {&m_extraEnvironment, &m_arguments}) {
        for (std::string const& entry : *list) {
            text += entry + " ";
        }
    }
    return text;
}

std::vector<std::string> ProcessFactory::Environment() const {
    if (m_extraEnvironment.empty()) {
        return {};
    }
    std::vector<std::string> environment = m_extraEnvironment;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        // Of two entries of one name some programs take the first and some the last.
        bool const replaced = std::ranges::any_of(
            m_extraEnvironment, [&](std::string const& extra) { return NameOf(extra) == NameOf(*entry); });
        if (!replaced) {
            environment.emplace_back(*entry);
        }
    }
    return environment;
}

Process ProcessFactory::Spawn() const {
    if (IsLogged(LogLevel::Verbose)) {
        LOG_V("Spawning process: %s", Describe().c_str());
    }
    Pipes pipes;
    if (m_readingStdoutStderr) {
        pipes.output.Open();
        pipes.error.Open();
        // A reader that could be held up could not be told to stop.
        for (FileDescriptor const* const end : {&pipes.output.readEnd, &pipes.error.readEnd}) {
            ::fcntl(end->Get(), F_SETFL, O_RDONLY | O_NONBLOCK);
        }
    }
    if (m_writingStdin) {
        pipes.input.Open();
    }
    if (::access(m_executable.c_str(), X_OK) != 0) {
        Fail("Failed to spawn: ", errno);
    }
    pid_t pid = -1;
    {
        WorkingDirectory const directory(m_workingDirectory);
        pid = SpawnSettings(pipes, m_detached).SpawnChild(m_executable, m_arguments, Environment());
    }
    pipes.input.readEnd.Reset();
    pipes.output.writeEnd.Reset();
    pipes.error.writeEnd.Reset();
    return Process(pid, KeepParentEnds(pipes, pid));
}

ProcessResult ProcessFactory::Run() const {
    return Spawn().WaitForExit(std::chrono::milliseconds::max());
}
