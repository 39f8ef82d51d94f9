#include "RegistryEntry.h"

#include <algorithm>
#include <chrono>

#include "AddressProbe.h"
#include "Logging/Log.h"
#include "Utils/ServerRegistry.h"

namespace vq::server {

namespace {

constexpr std::chrono::milliseconds kTimeout{2000};

bool BreaksTheTable(std::string const& text) {
    return text.empty() || text.find_first_of(std::string_view("\t\n\0", 3)) != std::string::npos;
}

}  // namespace

bool RegistryEntry::Enter(ServerDescriptor const& descriptor) {
    for (std::string const& text :
         {descriptor.name, descriptor.address.location, descriptor.heartbeatAddress.location}) {
        if (BreaksTheTable(text)) {
            LOG_E("The registry cannot hold the name or address '%s'", text.c_str());
            return false;
        }
    }
    ServerRegistry& registry = ServerRegistry::Instance();
    ServerRegistry::Servers servers;
    bool timedOut = false;
    registry.GetServers(servers, kTimeout, &timedOut);
    if (timedOut) {
        // Nobody holds it for so long: its holder died.
        LOG_W("The registry of servers stayed locked: replacing its mutex");
        registry.Recover();
    }
    if (!IsNameFree(descriptor)) {
        return false;
    }
    m_descriptor = descriptor;
    m_entered = registry.RegisterServer(descriptor, kTimeout, nullptr);
    if (!m_entered) {
        LOG_E("Failed to enter the server in the registry");
    }
    return m_entered;
}

bool RegistryEntry::IsNameFree(ServerDescriptor const& descriptor) {
    ServerDescriptor other;
    if (!ServerRegistry::Instance().FindServerByName(descriptor.name, other, kTimeout, nullptr) ||
        other.address == descriptor.address || !IsServed(other.address)) {
        return true;
    }
    LOG_E("A server named '%s' runs at %s (process %d): choose another name", other.name.c_str(),
          other.address.ToString().c_str(), other.pid);
    return false;
}

void RegistryEntry::Remove() {
    if (!m_entered) {
        return;
    }
    m_entered = false;
    ServerRegistry& registry = ServerRegistry::Instance();
    ServerRegistry::Servers servers;
    registry.GetServers(servers, kTimeout, nullptr);
    bool const ours = std::ranges::any_of(servers, [this](ServerDescriptor const& server) {
        return server.name == m_descriptor.name && server.address == m_descriptor.address &&
               server.pid == m_descriptor.pid;
    });
    if (ours && !registry.RemoveServer(m_descriptor, kTimeout, nullptr)) {
        LOG_W("Failed to remove the server from the registry");
    }
}

}  // namespace vq::server
