// Pairs of ports, one here and one on a headset.

#include "Logging/Log.h"
#include "Messaging/SocketServerClient.h"
#include "Messaging/VqdbAccessor.h"

SocketServerClient::PortMaps const* SocketServerClient::MapsOf(SocketRole role) const {
    switch (role) {
        case SocketRole::Connect:
            return &m_forward;
        case SocketRole::Bind:
            return &m_reverse;
    }
    LOG_E("unexpected hostRole %d", static_cast<int>(role));
    return nullptr;
}

bool SocketServerClient::CreatePortPair(SocketRole role, int& local, int& remote) {
    remote = -1;
    return GetEphemeralPort(local) && CreatePairedRemotePort(role, local, remote);
}

bool SocketServerClient::CreatePairedRemotePort(SocketRole role, int local, int& remote) {
    return AllocateRemotePort(remote) && PerformPortForwardReverse(role, local, remote);
}

bool SocketServerClient::CreatePairedLocalPort(SocketRole role, int remote, int& local) {
    return GetEphemeralPort(local) && PerformPortForwardReverse(role, local, remote);
}

bool SocketServerClient::FindPairedRemotePort(SocketRole role, int local, int& remote) const {
    remote = -1;
    PortMaps const* const maps = MapsOf(role);
    if (maps == nullptr) {
        return false;
    }
    auto const found = maps->localToRemote.find(local);
    if (found == maps->localToRemote.end()) {
        return false;
    }
    remote = found->second;
    return true;
}

bool SocketServerClient::FindPairedLocalPort(SocketRole role, int /*remote*/, int& local) const {
    local = -1;
    PortMaps const* const maps = MapsOf(role);
    return maps != nullptr && maps->remoteToLocal.contains(local);
}

bool SocketServerClient::PerformPortForwardReverse(SocketRole role, int local, int remote) {
    if (MapsOf(role) == nullptr) {
        return false;
    }
    bool const forward = role == SocketRole::Connect;
    if (!(forward ? m_bridge->ForwardPort(local, remote) : m_bridge->ReversePort(local, remote))) {
        return false;
    }
    PortMaps& maps = forward ? m_forward : m_reverse;
    maps.localToRemote[local] = remote;
    maps.remoteToLocal[remote] = local;
    return true;
}

bool SocketServerClient::PerformPortUnforwardReverse(SocketRole role, int local, int remote) {
    if (MapsOf(role) == nullptr) {
        return false;
    }
    bool const forward = role == SocketRole::Connect;
    if (!(forward ? m_bridge->UnforwardPort(local, remote) : m_bridge->UnreversePort(local, remote))) {
        return false;
    }
    PortMaps& maps = forward ? m_forward : m_reverse;
    maps.localToRemote.erase(local);
    maps.remoteToLocal.erase(remote);
    return true;
}
