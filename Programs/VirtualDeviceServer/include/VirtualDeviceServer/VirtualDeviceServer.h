#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "Messaging/MessageAddress.h"

namespace vq::server {

/// How a server is to run. A plain value.
struct ServerOptions {
    /// Where it takes requests. A logical SOCKET address gets a free port.
    MessageAddress address{"localhost:" + std::to_string(kDefaultServerPort),
                           MessageAddress::Transport::SOCKET, ""};
    /// What its line in the registry is called; not two servers of one name may live. Empty: made from the
    /// address.
    std::string name;
    /// Directory that holds ShimMultiDeviceManifest.json; clients are told its full path.
    std::string dataDirectory;
    /// A device that is silent for so long is unregistered; 0 for never.
    std::chrono::milliseconds pruneAfter{15000};
    /// Between two heartbeats; at most a second.
    std::chrono::milliseconds heartbeatPeriod{500};
    /// How long, on the way out, devices have to say goodbye.
    std::chrono::milliseconds stopGrace{500};
    std::int32_t protocolVersion = 12;
    /// Clients may have the programs in this directory started; empty: none.
    std::string launchDirectory;
    /// Headsets with a lower platform API level are not connected.
    std::uint32_t minimumHeadsetLevel = 0;
};

/// The server of virtual devices: keeps the registry of devices, channels and applications, maps channels to
/// producers, publishes events and a heartbeat, and has its line in the table of the machine's servers.
///
/// Threads: Start, Run and the destructor on one thread, which owns every socket; RequestStop on any, also in
/// a signal handler. Nobody may use the message manager's context of the server's address from another
/// thread.
class VirtualDeviceServer {
public:
    explicit VirtualDeviceServer(ServerOptions options);
    VirtualDeviceServer(VirtualDeviceServer const&) = delete;
    VirtualDeviceServer& operator=(VirtualDeviceServer const&) = delete;
    /// Closes what Run has not closed: the line in the registry is removed, devices are told nothing.
    ~VirtualDeviceServer();

    /// Opens the sockets and takes the line in the registry: from here on clients can connect, and are served
    /// by Run.
    /// @return false, with an error line, when the server cannot run: bad options, address in use, a living
    ///         server of the same name
    bool Start();

    /// Serves until it is stopped. On the way out the registry's line is removed, the stop is announced, and
    /// devices have the grace time to unregister.
    void Run();

    /// Ends Run. A second call ends the grace time too.
    void RequestStop();

    /// A readable descriptor counts as RequestStop: one that gives signals, say. Before Run.
    /// @param descriptor  not owned; read without waiting, content ignored
    void StopWhenReadable(int descriptor);

    /// The physical address where requests are taken; after Start.
    MessageAddress const& GetAddress() const;
    /// The name in the registry; after Start.
    std::string const& GetName() const;

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

}  // namespace vq::server
