#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Messaging/MessageAddress.h"
#include "Messaging/SocketServerBase.h"

class VqdbAccessor;
namespace vq::vds {
class ServerSharedMemoryChangedEvent;
}

/// This machine's end of the link to the socket server on a headset. The link is a port that the device
/// bridge carries; commands on it ask the headset for ports, tell it of servers here, and connect shared
/// memory.
///
/// Ports come in pairs, one here and one on the headset. SocketRole is the role of this end: with Connect the
/// headset listens and we connect (the bridge forwards our port), with Bind the other way round.
///
/// A command that fails logs why and gives false. A headset that does not answer costs each command 5 s; a
/// command that has once been left without an answer lets all that follow fail in the same way.
///
/// Threads: one at a time. Operations throw zmq::error_t when a socket cannot be had or used.
class SocketServerClient final : public SocketServerBase {
public:
    /// @param context  not owned, outlives this object
    /// @param serial   of the headset
    /// @param port     where its socket server listens, on the headset
    /// @param stop     once it is requested, no command waits any longer; for the bridge see VqdbAccessor
    SocketServerClient(zmq::context_t* context, std::string const& serial, int port,
                       std::stop_token stop = {});
    /// Disconnects all ports.
    ~SocketServerClient() override;

    int GetServerPort() const { return m_serverPort; }
    /// The serial.
    std::string const& GetIdentity() const { return m_identity; }
    /// Limit of each send and each receive; 5 s unless set.
    void SetTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }

    /// Makes the link. It can be used once Validate has been passed.
    bool Init();
    /// Asks the headset for its platform API level.
    /// @param error  for the user, on failure
    bool Validate(std::uint32_t minimumLevel, std::string& error);

    /// @param port  free on the headset; -1 on failure
    bool AllocateRemotePort(int& port);
    /// Connects two new ports.
    bool CreatePortPair(SocketRole role, int& local, int& remote);
    /// Connects a new port of the headset to one that we know.
    bool CreatePairedRemotePort(SocketRole role, int local, int& remote);
    /// Connects a new port of ours to one that the headset knows.
    bool CreatePairedLocalPort(SocketRole role, int remote, int& local);
    /// @param remote  the other end of a pair of that role; -1 when there is none
    bool FindPairedRemotePort(SocketRole role, int local, int& remote) const;
    /// Never finds anything: it looks for what it has just put into `local`, and callers rely on that.
    /// @param local  -1
    bool FindPairedLocalPort(SocketRole role, int remote, int& local) const;
    bool PerformPortForwardReverse(SocketRole role, int local, int remote);
    bool PerformPortUnforwardReverse(SocketRole role, int local, int remote);

    /// Tells the headset of a server here.
    /// @param port  where the server listens
    /// @param name  of the server; may hold any byte
    bool AdvertiseVDS(int port, std::string const& name);

    /// Connects a shared memory buffer: we write to localWrite and read from localRead.
    bool ConnectSharedMemory(vq::vds::ServerSharedMemoryChangedEvent const& event, int& localRead,
                             int& localWrite, int& remoteWrite, int& remoteRead);
    /// @param flag  one byte whose meaning is the headset's
    bool DisconnectSharedMemory(std::string const& id, std::uint8_t flag, int localRead, int localWrite,
                                int remoteWrite, int remoteRead);

    /// @param duration  its seconds are cut to 16 bits
    bool RunRemoteTest(std::uint8_t test, std::uint16_t port, std::chrono::seconds duration);

private:
    using Ports = std::unordered_map<int, int>;
    struct PortMaps {
        Ports localToRemote;
        Ports remoteToLocal;
    };

    /// The maps of a role; null, logged, for a role that does not exist.
    PortMaps const* MapsOf(SocketRole role) const;
    using Transfer = bool (*)(zmq::socket_t&, zmq::message_t&, std::chrono::milliseconds, bool&);
    /// Sends or receives within the limit, unless the word to stop comes before.
    bool Try(Transfer transfer, zmq::message_t& message, bool& timedOut);
    bool Exchange(std::string const& request, zmq::message_t& reply);
    /// A command whose reply carries nothing.
    bool Command(std::string const& request);

    int const m_serverPort;
    std::unique_ptr<zmq::socket_t> m_socket;
    std::unique_ptr<VqdbAccessor> m_bridge;
    std::chrono::milliseconds m_timeout{5000};
    PortMaps m_forward;
    PortMaps m_reverse;
    std::string const m_identity;
    std::stop_token const m_stop;
};
