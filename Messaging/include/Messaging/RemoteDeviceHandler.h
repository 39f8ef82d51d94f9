#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <stop_token>
#include <string>

class AMessageContext;
class SocketServerClient;

/// Keeps the link to each headset that is connected.
///
/// Threads: one at a time.
class RemoteDeviceHandler {
public:
    RemoteDeviceHandler();
    RemoteDeviceHandler(RemoteDeviceHandler const&) = delete;
    RemoteDeviceHandler& operator=(RemoteDeviceHandler const&) = delete;
    /// Closes every link.
    ~RemoteDeviceHandler();

    /// Makes the link to a headset; one that is there already is given back.
    /// @param context       over ZeroMQ, anything else is a fatal error; outlives the link
    /// @param serial        of the headset
    /// @param port          where its socket server listens, on the headset
    /// @param minimumLevel  the least platform API level that it must have
    /// @param error         for the user, on failure
    /// @param stop          see VqdbAccessor
    /// @return owned by this object; null on failure. Throws zmq::error_t when no socket can be had.
    SocketServerClient* ConnectRemoteClient(AMessageContext* context, std::string const& serial, int port,
                                            std::uint32_t minimumLevel, std::string& error,
                                            std::stop_token stop = {});
    /// False when there is no link to that headset.
    bool DisconnectRemoteClient(std::string const& serial);
    /// @return owned by this object; null when there is none
    SocketServerClient* FindRemoteClient(std::string const& serial) const;
    SocketServerClient* FindRemoteClientByIdentity(std::string const& identity) const;

    /// Closes every link; the handler can be used again afterwards.
    void Cleanup();

private:
    std::map<std::string, std::unique_ptr<SocketServerClient>> m_clients;
};
