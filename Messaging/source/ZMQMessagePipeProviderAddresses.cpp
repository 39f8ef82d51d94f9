// How the pipe provider turns addresses into what a socket binds or connects.

#include <zmq.h>

#include <cstdlib>
#include <string_view>

#include "Logging/Log.h"
#include "Messaging/ZMQMessagePipeProvider.h"

bool ZMQMessagePipeProvider::ParseHostPort(std::string const& hostPort, std::string& host, int& port) {
    host = hostPort;
    port = 0;
    if (std::size_t const colon = hostPort.rfind(':'); colon != std::string::npos) {
        port = static_cast<int>(std::strtol(hostPort.c_str() + colon + 1, nullptr, 10));
        if (port == 0) {
            LOG_E("Invalid port in %s", hostPort.c_str());
            return false;
        }
        host.resize(colon);
    } else {
        port = kDefaultServerPort;
    }
    if (host.empty()) {
        host = "localhost";
    }
    return true;
}

std::shared_ptr<TransportProvider> ZMQMessagePipeProvider::EnsureProvider(MessageAddress const& address) {
    using Transport = MessageAddress::Transport;

    std::lock_guard const lock(m_mutex);
    auto const key = std::make_pair(address.location, address.transport);
    if (auto const found = m_providers.find(key); found != m_providers.end()) {
        return found->second;
    }
    std::shared_ptr<TransportProvider> provider;
    switch (address.transport) {
        case Transport::NONE:
            return nullptr;
        case Transport::LOOPBACK:
            provider = std::make_shared<ZMQLoopbackAddressProvider>(address.location);
            break;
        case Transport::SOCKET: {
            std::string host;
            int port = 0;
            if (!ParseHostPort(address.location, host, port)) {
                return nullptr;
            }
            provider = std::make_shared<ZMQSocketAddressProvider>(host, port);
            break;
        }
        case Transport::IPC:
            provider = std::make_shared<ZMQIPCAddressProvider>(address.location);
            break;
        default:
            std::abort();
    }
    m_providers.emplace(key, provider);
    return provider;
}

MessageAddress ZMQMessagePipeProvider::Resolve(MessageAddress const& address, bool force) {
    std::lock_guard const lock(m_mutex);
    std::shared_ptr<TransportProvider> const provider = EnsureProvider(address);
    if (provider == nullptr) {
        return {};
    }
    MessageAddress resolved = provider->Resolve(address.logicalName, force);
    LOG_V("Resolved address for %s is %s", address.ToString().c_str(), resolved.ToString().c_str());
    return resolved;
}

std::string ZMQMessagePipeProvider::GetURL(MessageAddress const& address) {
    using Transport = MessageAddress::Transport;

    if (EnsureProvider(address) == nullptr) {
        return "";
    }
    std::string url;
    switch (address.transport) {
        case Transport::NONE:
            return "";
        case Transport::LOOPBACK:
            url = "inproc://";
            break;
        case Transport::SOCKET:
            url = "tcp://";
            break;
        case Transport::IPC:
            url = "ipc://";
            break;
    }
    url += address.location;
    if (!address.logicalName.empty()) {
        url += "?" + address.logicalName;
    }
    return url;
}

void ZMQMessagePipeProvider::BindOrConnect(zmq::socket_t* socket, MessageAddress const& address,
                                           SocketRole role) {
    std::string url = GetURL(address);
    if (role == SocketRole::Connect) {
        socket->connect(url);
        return;
    }
    constexpr std::string_view kLocalhost = "localhost";
    if (std::size_t const position = url.find(kLocalhost); position != std::string::npos) {
        url.replace(position, kLocalhost.size(), 1, '*');
    }
    socket->bind(url);
}
