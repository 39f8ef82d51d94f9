#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Output.h"
#include "Peer.h"
#include "Utils/ServerDescriptor.h"

namespace vq::rigctl {

/// What the command line says for every command.
struct CommonOptions {
    std::string address;  ///< of the server; empty: VQ_VDS_ADDRESS, or by name, or the first in the registry
    std::string name;     ///< of the server; empty: VQ_VDS_NAME
    std::chrono::milliseconds timeout{2000};
    bool timeoutGiven = false;
    bool json = false;
    std::string color = "auto";
};

/// One command's dealings with the server and its devices, which must end within the time limit. Nothing is
/// connected before it is asked for.
///
/// Threads: one.
class Session {
public:
    explicit Session(CommonOptions options);

    CommonOptions const& Options() const { return m_options; }
    Output const& Out() const { return m_output; }
    Clock::time_point Deadline() const { return m_deadline; }
    /// Begins the time limit anew, for commands that go on for longer.
    void RestartTimeLimit() { m_deadline = Clock::now() + m_options.timeout; }
    /// For commands that take longer by nature, unless the user has chosen a limit.
    void ExtendTimeLimit(std::chrono::milliseconds limit);

    /// The address that the user has chosen, by the command line or the environment; empty for none.
    std::string ChosenAddress() const;
    /// The address of the server that was chosen. Throws Failure when there is none.
    std::string const& ServerAddress();
    /// The registry's line of that server; null when it is not in it.
    ServerDescriptor const* ServerLine();

    /// One exchange with the server. Throws Failure.
    Json::Value Ask(std::string const& request, Json::Value const& fields = Json::Value(Json::objectValue));
    /// One exchange with a device, at the address that the server tells. One that has not answered is looked
    /// up and connected anew the next time. Throws Failure.
    Json::Value AskDevice(std::string const& device, std::string const& request,
                          Json::Value const& fields = Json::Value(Json::objectValue));

    /// True for a process of this machine that is there.
    static bool IsAlive(std::int64_t processId);

private:
    void ChooseServer();

    CommonOptions m_options;
    Output m_output;
    Clock::time_point m_deadline;
    std::string m_address;
    std::unique_ptr<ServerDescriptor> m_line;
    std::unique_ptr<Peer> m_server;
    std::map<std::string, std::unique_ptr<Peer>> m_devices;
};

/// The table of the servers.
struct Registry {
    std::vector<ServerDescriptor> lines;  ///< those that can be read
    bool whole = true;                    ///< no broken line hides the rest
};

/// Throws Failure when the registry's mutex is not to be had in time.
Registry ReadRegistry(Clock::time_point deadline);

}  // namespace vq::rigctl
