#include "Messaging/TransportProvider.h"

#include <algorithm>
#include <utility>

#include "Utils/OSUtils.h"

namespace {

std::string OrUnderscore(std::string const& location) {
    return location.empty() ? "_" : location;
}

}  // namespace

ZMQLoopbackAddressProvider::ZMQLoopbackAddressProvider(std::string const& location)
    : m_base(OrUnderscore(location)) {}

MessageAddress ZMQLoopbackAddressProvider::Resolve(std::string const& logicalName, bool) {
    return {
        logicalName.empty() ? m_base : m_base + "." + logicalName, MessageAddress::Transport::LOOPBACK, {}};
}

ZMQSocketAddressProvider::ZMQSocketAddressProvider(std::string const& host, int port)
    : m_base((host.empty() ? "localhost" : host) + ":"), m_ports{{std::string(), port}} {}

MessageAddress ZMQSocketAddressProvider::Resolve(std::string const& logicalName, bool force) {
    auto const known = m_ports.find(logicalName);
    int port = 0;
    if (known != m_ports.end() && !force) {
        port = known->second;
    } else {
        if (!GetEphemeralPort(port)) {
            return {};
        }
        m_ports.insert_or_assign(logicalName, port);
    }
    return {m_base + std::to_string(port), MessageAddress::Transport::SOCKET, {}};
}

ZMQIPCAddressProvider::ZMQIPCAddressProvider(std::string const& location) : m_base(OrUnderscore(location)) {
    if (!IsFullPath(m_base)) {
        m_base.insert(0, GetUserTempDirectory());
    }
}

MessageAddress ZMQIPCAddressProvider::Resolve(std::string const& logicalName, bool) {
    std::string path = m_base;
    if (!logicalName.empty()) {
        std::string name = logicalName;
        std::replace(name.begin(), name.end(), '/', '_');
        path += "." + name;
    }
    return {std::move(path), MessageAddress::Transport::IPC, {}};
}
