#include <algorithm>
#include <thread>

#include "Commands.h"
#include "Messaging/VqdbAccessor.h"

// Headsets behind the device bridge. The bridge is asked here; links are the server's.

namespace vq::rigctl {

namespace {

/// The server's words while it is still busy with what it was asked for.
constexpr std::string_view kAskAgain = " is under way: ask again";

/// What commands have that must wait for the bridge, unless the user has chosen a limit.
constexpr std::chrono::seconds kLinkTime{30};

/// What the tool of the bridge has left of the time limit.
std::chrono::milliseconds TimeLeft(Session const& session) {
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(session.Deadline() - Clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

/// Behind a run of the tool that has failed: it may have been ended by the time limit.
void ThrowIfLate(Session const& session) {
    if (Clock::now() >= session.Deadline()) {
        throw Failure(Status::NoAnswer, "No answer from the device bridge (vqdb) within the time limit.");
    }
}

/// The headset that the user means.
std::string ChooseHeadset(Session& session, std::string const& serial) {
    session.ExtendTimeLimit(kLinkTime);
    std::string chosen = serial;
    std::string error;
    if (chosen.empty() && !VqdbAccessor::GetDefaultDevice(chosen, error, TimeLeft(session))) {
        ThrowIfLate(session);
        throw Failure(Status::Refused, error);
    }
    return chosen;
}

/// Asks until the server has done it.
Json::Value AskUntilDone(Session& session, std::string const& request, Json::Value const& fields) {
    constexpr std::chrono::milliseconds kPause{50};
    session.ExtendTimeLimit(kLinkTime);
    while (true) {
        try {
            return session.Ask(request, fields);
        } catch (Failure const& failure) {
            bool const busy = std::string_view(failure.what()).ends_with(kAskAgain);
            if (!busy || Clock::now() >= session.Deadline()) {
                throw;
            }
            Output::Progress(failure.what());
        }
        std::this_thread::sleep_for(kPause);
    }
}

}  // namespace

Status ListHeadsets(Session& session) {
    session.ExtendTimeLimit(kLinkTime);
    std::vector<std::string> serials;
    if (!VqdbAccessor("", {}, TimeLeft(session)).GetConnectedDevices(serials)) {
        ThrowIfLate(session);
        throw Failure(Status::Refused, "Failed to talk to vqdb.");
    }
    std::vector<Json::Value> rows;
    for (std::string const& serial : serials) {
        Json::Value row;
        bool const answers = VqdbAccessor(serial, {}, TimeLeft(session)).IsConnected();
        if (!answers) {
            ThrowIfLate(session);
        }
        row["serial"] = serial;
        row["answers"] = answers;
        rows.push_back(row);
    }
    session.Out().List({{"SERIAL", "serial"}, {"ANSWERS", "answers"}}, rows);
    return Status::Done;
}

Status ConnectHeadset(Session& session, std::string const& serial, unsigned port) {
    Json::Value fields;
    fields["device"] = ChooseHeadset(session, serial);
    fields["port"] = port;
    AskUntilDone(session, "vq.vds.ConnectRemoteDevice", fields);
    return Status::Done;
}

Status DisconnectHeadset(Session& session, std::string const& serial) {
    Json::Value fields;
    fields["device"] = ChooseHeadset(session, serial);
    AskUntilDone(session, "vq.vds.DisconnectRemoteDevice", fields);
    return Status::Done;
}

Status ForwardPorts(Session& session, std::vector<unsigned> const& ports, bool listensHere) {
    std::vector<Json::Value> rows;
    for (unsigned const port : ports) {
        Json::Value fields;
        fields["port"] = port;
        fields["flag_2"] = listensHere;
        Json::Value const other = AskUntilDone(session, "vq.vds.MapRemotePort", fields)["port"];
        Json::Value row;
        row["here"] = listensHere ? Json::Value(port) : other;
        row["headset"] = listensHere ? other : Json::Value(port);
        row["listens"] = listensHere ? "here" : "headset";
        rows.push_back(row);
    }
    session.Out().List({{"HERE", "here"}, {"HEADSET", "headset"}, {"LISTENS", "listens"}}, rows);
    return Status::Done;
}

}  // namespace vq::rigctl
