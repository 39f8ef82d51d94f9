#include "SimulatedHeadset/BridgeTunnels.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "Relay.h"
#include "Utils/OSUtils.h"
#include "Utils/PathText.h"

namespace vq::headset {

namespace {

bool TryLock(FileDescriptor const& record) {
    return ::flock(record.Get(), LOCK_EX | LOCK_NB) == 0;
}

struct Content {
    int pid = 0;
    int target = 0;
    std::string serial;
};

/// What the process behind a tunnel has written; the serial comes last, since nobody knows what is in it.
Content ReadRecord(FileDescriptor const& record) {
    std::array<char, 512> text{};
    Content content;
    int serialAt = 0;
    if (::pread(record.Get(), text.data(), text.size() - 1, 0) > 0 &&
        std::sscanf(text.data(), "%d %d %n", &content.pid, &content.target, &serialAt) == 2) {
        content.serial = text.data() + serialAt;
    }
    return content;
}

/// The process of a tunnel: nothing of its parent's but the listener and the record, whose lock it keeps.
[[noreturn]] void RunTunnel(FileDescriptor listener, FileDescriptor record, std::string const& recordPath,
                            BridgeTunnels::Tunnel const& tunnel) {
    ::setsid();
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGTERM, SIG_DFL);
    int const nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int const stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::dup2(nowhere, stream);
    }
    std::string const content =
        std::to_string(::getpid()) + " " + std::to_string(tunnel.target) + " " + tunnel.serial;
    static_cast<void>(!::pwrite(record.Get(), content.data(), content.size(), 0));
    Relay(std::move(listener), tunnel.target, [&] { return FileExists(recordPath); });
}

}  // namespace

std::string BridgeTunnels::RecordOf(Kind kind, int listen) const {
    return m_directory + (kind == Kind::Forward ? "forward-" : "reverse-") + std::to_string(listen);
}

std::vector<BridgeTunnels::Tunnel> BridgeTunnels::List() const {
    std::vector<Tunnel> tunnels;
    for (std::string const& name : GetDirectoryEntries(m_directory)) {
        FileDescriptor const record(::open((m_directory + name).c_str(), O_RDONLY | O_CLOEXEC));
        if (record && !TryLock(record)) {
            Content const content = ReadRecord(record);
            tunnels.push_back({name.starts_with("forward-") ? Kind::Forward : Kind::Reverse, content.serial,
                               std::atoi(name.c_str() + name.find('-') + 1), content.target});
        }
    }
    return tunnels;
}

std::optional<std::string> BridgeTunnels::Add(Tunnel const& tunnel, bool rebind) const {
    if (rebind) {
        Remove(tunnel.kind, tunnel.listen);
    }
    std::string const path = RecordOf(tunnel.kind, tunnel.listen);
    FileDescriptor record(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!record || !TryLock(record)) {
        return "cannot rebind existing socket";
    }
    FileDescriptor listener = ListenLocally(tunnel.listen);
    if (!listener) {
        std::string const reason = GetOSErrorText(errno);
        RemoveFile(path);
        return "cannot bind to port " + std::to_string(tunnel.listen) + ": " + reason;
    }
    pid_t const pid = ::fork();
    if (pid == 0) {
        RunTunnel(std::move(listener), std::move(record), path, tunnel);
    }
    return pid > 0 ? std::nullopt : std::optional("cannot start a process");
}

std::optional<std::string> BridgeTunnels::Remove(Kind kind, int listen) const {
    std::string const path = RecordOf(kind, listen);
    FileDescriptor const record(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!record) {
        return "listener 'tcp:" + std::to_string(listen) + "' not found";
    }
    // While it holds the lock, the number in the record is its own.
    while (!TryLock(record)) {
        if (int const pid = ReadRecord(record).pid; pid > 0) {
            ::kill(pid, SIGTERM);
            ::flock(record.Get(), LOCK_EX);
            break;
        }
        ::usleep(1000);  // it is just starting
    }
    RemoveFile(path);
    return std::nullopt;
}

}  // namespace vq::headset
