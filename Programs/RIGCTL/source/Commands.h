#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Failure.h"
#include "Session.h"

namespace vq::rigctl {

// The commands, one function each. They print to the session's output and give the exit status; what ends a
// command early is thrown as a Failure.

using Texts = std::vector<std::string>;

// ---- the server ----

/// Says which server runs and what it holds.
Status ShowStatus(Session& session);
/// Starts a server in the background and waits until it answers. One that runs already is success.
Status StartServer(Session& session);
/// Stops the server and waits until it has gone.
Status StopServer(Session& session);
/// Stops the server, if there is one, and starts it again under its address and name.
Status RestartServer(Session& session);

// ---- what there is ----

Status ListServers(Session& session);
Status ListDevices(Session& session);
Status ListChannels(Session& session);
Status ListMappings(Session& session);
/// @param request  "vq.vds.AddChannelMappings" or "vq.vds.RemoveChannelMappings"
Status ChangeMapping(Session& session, std::string const& request, std::string const& device,
                     std::string const& channel);
Status ListApplications(Session& session);
/// Names of the programs that the server would launch.
Status ListAvailable(Session& session);
Status LaunchApplication(Session& session, std::string const& name, std::string const& manifest);
Status KillApplication(Session& session, unsigned id);
/// @param devices  none: all of them
Status ListStats(Session& session, Texts const& devices);

// ---- one device ----

Texts SettingNames(Session& session, std::string const& device);
Status ListSettings(Session& session, std::string const& device);
Status GetSettings(Session& session, std::string const& device, Texts const& names);
/// @param settings  each NAME=VALUE; the device brings the text to the setting's type
Status SetSettings(Session& session, std::string const& device, Texts const& settings);
/// @param remove  instead of going back to the default
Status ResetSettings(Session& session, std::string const& device, Texts const& names, bool remove);
/// @param path  of the manifest; "-" is standard output or input
Status SaveSettings(Session& session, std::string const& device, std::string const& path);
Status LoadSettings(Session& session, std::string const& device, std::string const& path);
/// @param hertz  nothing: show it
Status UpdateRate(Session& session, std::string const& device, std::optional<double> hertz);
/// @param application  end the whole program of the device
Status QuitDevice(Session& session, std::string const& device, bool application);
Status PruneDevice(Session& session, std::string const& device);
/// @param target      a device, or "server"
/// @param parameters  none: show them
Status LogParameters(Session& session, std::string const& target, Texts const& parameters);

// ---- headsets ----

/// Those that the device bridge knows.
Status ListHeadsets(Session& session);
/// Lets the server make the link to a headset.
/// @param serial  empty: the one of VQ_SERIAL, or the only one
/// @param port    of the socket server on it
Status ConnectHeadset(Session& session, std::string const& serial, unsigned port);
Status DisconnectHeadset(Session& session, std::string const& serial);
/// Connects ports to the other end of the server's link, and shows the pairs.
/// @param listensHere  the ports are of this machine; otherwise of the headset
Status ForwardPorts(Session& session, std::vector<unsigned> const& ports, bool listensHere);

// ---- as it happens ----

struct WatchOptions {
    Texts channels;                           ///< samples of these only; none: everything that is published
    std::optional<unsigned> count;            ///< end after so many
    std::optional<Clock::duration> duration;  ///< end after so long
};
/// Prints server events and channel samples as they come, until the server stops.
Status Watch(Session& session, WatchOptions const& options);

struct TopOptions {
    Clock::duration interval = std::chrono::seconds(1);
    std::optional<unsigned> count;  ///< end after so many tables
};
/// What every device is busy with, over and over.
Status Top(Session& session, TopOptions const& options);

// ---- this machine ----

/// Every line of the table of servers.
Status ShowRegistry(Session& session);
/// @param which  a server's name or address
Status RemoveRegistryLine(Session& session, std::string const& which);
/// Replaces the mutex of the table if somebody holds it for the whole time limit.
Status RecoverRegistry(Session& session);
/// Looks for what would keep the library from connecting, and says what to do about it.
Status Examine(Session& session);

// ---- programs ----

/// Makes the library's own calls and prints the profile.
Status ShowIdentity(Session& session);
/// Runs a program with a home, a server and an identity provider of its own. The status is the program's.
Status RunProgram(CommonOptions options, Texts const& command);

// ---- the rest ----

/// @param type    full name of a request, or its last part
/// @param fields  each FIELD=VALUE
/// @param device  whom to ask; empty: the server
Status Call(Session& session, std::string const& type, Texts const& fields, std::string const& device);
/// The types that may be called, and their fields.
Status ListRequests(Session& session);

}  // namespace vq::rigctl
