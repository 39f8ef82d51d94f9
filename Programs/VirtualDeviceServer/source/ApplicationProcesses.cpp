#include "ApplicationProcesses.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "Logging/Log.h"
#include "Utils/OSUtils.h"
#include "Utils/TextUtils.h"

namespace vq::server {

namespace {

std::string Describe(int status) {
    return WIFSIGNALED(status) ? "was ended by signal " + std::to_string(WTERMSIG(status))
                               : "ended with exit status " + std::to_string(WEXITSTATUS(status));
}

/// What a child is to have of us: no blocked signals, no input, maybe no output, a group of its own.
class SpawnSettings {
public:
    explicit SpawnSettings(bool keepOutput) {
        ::posix_spawn_file_actions_init(&m_actions);
        ::posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (!keepOutput) {
            ::posix_spawn_file_actions_addopen(&m_actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
            ::posix_spawn_file_actions_adddup2(&m_actions, STDOUT_FILENO, STDERR_FILENO);
        }
        ::posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1);
        ::posix_spawnattr_init(&m_attributes);
        sigset_t none;
        ::sigemptyset(&none);
        sigset_t defaults;
        ::sigemptyset(&defaults);
        ::sigaddset(&defaults, SIGPIPE);
        ::posix_spawnattr_setsigmask(&m_attributes, &none);
        ::posix_spawnattr_setsigdefault(&m_attributes, &defaults);
        ::posix_spawnattr_setpgroup(&m_attributes, 0);
        ::posix_spawnattr_setflags(&m_attributes,
                                   POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    SpawnSettings(SpawnSettings const&) = delete;
    SpawnSettings& operator=(SpawnSettings const&) = delete;
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&m_actions);
        ::posix_spawnattr_destroy(&m_attributes);
    }

    /// 0, or the error.
    int Spawn(pid_t& pid, std::vector<std::string> arguments, std::vector<std::string> environment) const {
        std::vector<char*> argv = ArgumentPointers(arguments);
        std::vector<char*> envp = ArgumentPointers(environment);
        return ::posix_spawn(&pid, argv[0], &m_actions, &m_attributes, argv.data(), envp.data());
    }

private:
    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
};

/// Ours, with the server's address in place of what it may say of one.
std::vector<std::string> EnvironmentWith(std::string const& address) {
    std::vector<std::string> environment = {"VQ_VDS_ADDRESS=" + address};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string const text = *entry;
        if (!text.starts_with("VQ_VDS_ADDRESS=") && !text.starts_with("VQ_VDS_NAME=")) {
            environment.push_back(text);
        }
    }
    return environment;
}

}  // namespace

ApplicationProcesses::ApplicationProcesses(std::string directory, std::string address, DescriptorPoll& poll,
                                           OnEnded onEnded)
    : m_directory(directory.empty() ? std::move(directory) : EnsureDirectoryPath(directory)),
      m_address(std::move(address)),
      m_poll(poll),
      m_onEnded(std::move(onEnded)) {}

ApplicationProcesses::~ApplicationProcesses() {
    for (auto const& [processId, descriptor] : m_watched) {
        m_poll.Unwatch(descriptor.Get());
    }
}

std::string ApplicationProcesses::PathOf(std::string const& name) const {
    bool const isName = !name.empty() && name.find('/') == std::string::npos && name != "." && name != "..";
    std::string const path = m_directory + name;
    bool const good = !m_directory.empty() && isName && FileExists(path) && ::access(path.c_str(), X_OK) == 0;
    return good ? path : std::string();
}

std::vector<std::string> ApplicationProcesses::Available() const {
    std::vector<std::string> names;
    if (!m_directory.empty()) {
        names = GetDirectoryEntries(m_directory);
        std::erase_if(names, [this](std::string const& name) { return PathOf(name).empty(); });
        std::ranges::sort(names);
    }
    return names;
}

ApplicationProcesses::Refusal ApplicationProcesses::Launch(std::string const& name,
                                                           std::string const& manifest, bool keepOutput,
                                                           std::int64_t& processId) {
    if (m_directory.empty()) {
        return "this server launches no programs: it was started without --launch-from";
    }
    std::string const path = PathOf(name);
    if (path.empty()) {
        return "there is no program '" + name + "' in " + m_directory;
    }
    std::vector<std::string> arguments = {path};
    if (!manifest.empty()) {
        arguments.insert(arguments.end(), {"--manifest", manifest});
    }
    pid_t pid = 0;
    int const error = SpawnSettings(keepOutput).Spawn(pid, arguments, EnvironmentWith(m_address));
    if (error != 0) {
        return "cannot start " + path + ": " + GetOSErrorText(error);
    }
    LOG_I("Launched %s as process %d", path.c_str(), static_cast<int>(pid));
    m_own.emplace(pid, std::nullopt);
    processId = pid;
    return std::nullopt;
}

void ApplicationProcesses::Terminate(std::int64_t processId, TimePoint now) {
    auto const found = m_own.find(static_cast<pid_t>(processId));
    if (found != m_own.end() && !found->second) {
        ::kill(found->first, SIGTERM);
        found->second = now + kTerminateTime;
    }
}

void ApplicationProcesses::Watch(std::int64_t processId) {
    bool const possible = processId > 0 && processId <= std::numeric_limits<pid_t>::max();
    if (!possible || IsOwn(processId) || m_watched.contains(processId) ||
        m_watched.size() >= kMaximumWatched) {
        return;
    }
    FileDescriptor descriptor(static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(processId), 0)));
    if (!descriptor) {
        LOG_V("Cannot watch process %lld: %s", static_cast<long long>(processId),
              GetOSErrorText(errno).c_str());
        return;
    }
    // The poll also calls once before anything has happened.
    m_poll.Watch(descriptor.Get(), [this, processId, raw = descriptor.Get()] {
        pollfd ended{.fd = raw, .events = POLLIN, .revents = 0};
        if (::poll(&ended, 1, 0) == 1) {
            m_poll.Unwatch(raw);
            m_watched.erase(processId);
            m_onEnded(processId, "has ended");
        }
        return false;
    });
    m_watched.emplace(processId, std::move(descriptor));
}

void ApplicationProcesses::Tick(TimePoint now) {
    std::vector<std::pair<pid_t, std::string>> ended;
    for (auto own = m_own.begin(); own != m_own.end();) {
        int status = 0;
        pid_t const result = ::waitpid(own->first, &status, WNOHANG);
        if (result == 0) {
            if (own->second && *own->second <= now) {
                ::kill(own->first, SIGKILL);
            }
            ++own;
            continue;
        }
        ended.emplace_back(own->first, result > 0 ? Describe(status) : "has ended");
        own = m_own.erase(own);
    }
    for (auto const& [processId, how] : ended) {
        LOG_I("Process %d %s", static_cast<int>(processId), how.c_str());
        m_onEnded(processId, how);
    }
}

}  // namespace vq::server
