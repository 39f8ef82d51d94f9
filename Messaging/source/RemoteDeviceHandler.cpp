#include "Messaging/RemoteDeviceHandler.h"

#include <algorithm>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/SocketServerClient.h"
#include "Messaging/ZMQMessageContext.h"

RemoteDeviceHandler::RemoteDeviceHandler() = default;
RemoteDeviceHandler::~RemoteDeviceHandler() = default;

SocketServerClient* RemoteDeviceHandler::ConnectRemoteClient(AMessageContext* context,
                                                             std::string const& serial, int port,
                                                             std::uint32_t minimumLevel, std::string& error,
                                                             std::stop_token stop) {
    error.clear();
    auto* const zmqContext = dynamic_cast<ZMQMessageContext*>(context);
    VQ_CHECK(zmqContext != nullptr);
    if (SocketServerClient* const present = FindRemoteClient(serial)) {
        if (present->GetServerPort() != port) {
            error = "Remote client already connected at port " + std::to_string(present->GetServerPort());
            return nullptr;
        }
        LOG_I("Remote client already connected");
        return present;
    }
    auto client =
        std::make_unique<SocketServerClient>(zmqContext->GetZMQContext(), serial, port, std::move(stop));
    if (!client->Init()) {
        error = "Remote client is not available";
        return nullptr;
    }
    if (!client->Validate(minimumLevel, error)) {
        return nullptr;
    }
    return m_clients.emplace(serial, std::move(client)).first->second.get();
}

bool RemoteDeviceHandler::DisconnectRemoteClient(std::string const& serial) {
    return m_clients.erase(serial) != 0;
}

SocketServerClient* RemoteDeviceHandler::FindRemoteClient(std::string const& serial) const {
    auto const found = m_clients.find(serial);
    return found == m_clients.end() ? nullptr : found->second.get();
}

SocketServerClient* RemoteDeviceHandler::FindRemoteClientByIdentity(std::string const& identity) const {
    auto const found = std::ranges::find_if(
        m_clients, [&](auto const& entry) { return entry.second->GetIdentity() == identity; });
    return found == m_clients.end() ? nullptr : found->second.get();
}

void RemoteDeviceHandler::Cleanup() {
    m_clients.clear();
}
