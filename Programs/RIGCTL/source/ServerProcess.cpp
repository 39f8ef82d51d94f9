#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "Commands.h"
#include "Utils/FileDescriptor.h"
#include "Utils/OSUtils.h"

// Starting and stopping the server.

namespace vq::rigctl {

namespace {

constexpr std::chrono::seconds kLifeLimit{15};
constexpr std::chrono::milliseconds kLook{20};
constexpr char kDefaultAddress[] = "SOCKET:127.0.0.1:17975";

bool Answers(Session& session) {
    try {
        session.Ask("vq.vds.Ping");
        return true;
    } catch (Failure const&) {
        return false;
    }
}

/// Starts the program with the writing end of a pipe as descriptor 3, in a session of its own.
void Spawn(std::vector<std::string> arguments, int ready) {
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, ready, 3);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t pid = 0;
    int const error = ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw Failure(Status::Refused, "Cannot start " + arguments[0] + ": " + GetOSErrorText(error) + ".");
    }
}

/// True when the server has said that it can be reached; false when it has ended or the time is over.
bool AwaitReady(int descriptor, Clock::time_point deadline) {
    auto const rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd waiting{.fd = descriptor, .events = POLLIN, .revents = 0};
    char byte = 0;
    return rest.count() > 0 && ::poll(&waiting, 1, static_cast<int>(rest.count())) == 1 &&
           ::read(descriptor, &byte, 1) == 1;
}

void Start(Session& session, std::string const& address, std::string const& name) {
    session.ExtendTimeLimit(kLifeLimit);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw Failure(Status::Refused, "Cannot make a pipe: " + GetOSErrorText(errno) + ".");
    }
    FileDescriptor const reading(ends[0]);
    FileDescriptor writing(ends[1]);
    std::vector<std::string> arguments = {GetExecutableDirectory() + "vdserver", "--address", address,
                                          "--ready-fd", "3"};
    if (!name.empty()) {
        arguments.insert(arguments.end(), {"--name", name});
    }
    Output::Progress("Starting a server at " + address + " ...");
    Spawn(arguments, writing.Get());
    writing.Reset();
    if (!AwaitReady(reading.Get(), session.Deadline())) {
        throw Failure(Status::NoServer, "The server did not start at " + address +
                                            ": run 'vdserver --address " + address + "' to see why.");
    }
}

}  // namespace

Status ShowStatus(Session& session) {
    Json::Value row;
    row["address"] = session.ServerAddress();
    ServerDescriptor const* const line = session.ServerLine();
    row["name"] = line != nullptr ? line->name : "";
    row["process"] = line != nullptr ? line->pid : 0;
    row["protocol"] = session.Ask("vq.vds.GetProtocolVersion")["protocol_version"];
    row["devices"] = session.Ask("vq.vds.GetDeviceInfos")["infos"].size();
    row["channels"] = session.Ask("vq.vds.GetChannelInfos")["infos"].size();
    session.Out().List({{"SERVER", "name"},
                        {"ADDRESS", "address"},
                        {"PROCESS", "process"},
                        {"PROTOCOL", "protocol"},
                        {"DEVICES", "devices"},
                        {"CHANNELS", "channels"}},
                       {row});
    return Status::Done;
}

Status StartServer(Session& session) {
    if (Answers(session)) {
        Output::Progress("The server at " + session.ServerAddress() + " runs already.");
        return Status::Done;
    }
    std::string const chosen = session.ChosenAddress();
    Start(session, chosen.empty() ? kDefaultAddress : chosen, session.Options().name);
    return Status::Done;
}

Status StopServer(Session& session) {
    session.Ask("vq.vds.KillServer");
    session.ExtendTimeLimit(kLifeLimit);
    ServerDescriptor const* const line = session.ServerLine();
    while (line != nullptr && Session::IsAlive(line->pid)) {
        if (Clock::now() > session.Deadline()) {
            throw Failure(Status::NoAnswer, "The server does not end: process " + std::to_string(line->pid) +
                                                " is still there.");
        }
        std::this_thread::sleep_for(kLook);
    }
    return Status::Done;
}

Status RestartServer(Session& session) {
    ServerDescriptor former;
    try {
        StopServer(session);
        former = session.ServerLine() != nullptr ? *session.ServerLine() : former;
    } catch (Failure const& failure) {
        if (failure.GetStatus() != Status::NoServer) {
            throw;
        }
    }
    std::string const chosen = session.ChosenAddress();
    std::string const address = !former.name.empty() ? former.address.ToString() : chosen;
    Start(session, address.empty() ? kDefaultAddress : address,
          !former.name.empty() ? former.name : session.Options().name);
    return Status::Done;
}

}  // namespace vq::rigctl
