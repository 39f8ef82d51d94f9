#include <chrono>
#include <thread>

#include "Commands.h"
#include "ServerProgram.h"

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

void Start(Session& session, std::string const& address, std::string const& name) {
    session.ExtendTimeLimit(kLifeLimit);
    Output::Progress("Starting a server at " + address + " ...");
    ChildProgram::Options options;
    options.background = true;
    StartServerProgram(address, name, options, session.Deadline());
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
    auto const isThere = [&] {
        return line != nullptr ? Session::IsAlive(line->pid) : !IsDeserted(session.ServerAddress());
    };
    while (isThere()) {
        if (Clock::now() > session.Deadline()) {
            throw Failure(Status::NoAnswer, "The server at " + session.ServerAddress() + " does not end.");
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
