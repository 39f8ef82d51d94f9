#include "Messaging/ZMQMessageManager.h"

#include <cstddef>
#include <new>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/ZMQMessageContext.h"
#include "Utils/ServerRegistry.h"

namespace {

constexpr int kIoThreads = 1;
constexpr int kMaxSockets = 1023;
constexpr std::chrono::milliseconds kRegistryReadTimeout{5000};

}  // namespace

AMessageManager& AMessageManager::Instance() {
    static ZMQMessageManager manager;
    return manager;
}

ZMQMessageManager::~ZMQMessageManager() {
    // Without Cleanup they outlive the process's statics. Kept in sight of tools that look for leaks.
    if (!m_contexts.empty()) {
        using Contexts = decltype(m_contexts);
        alignas(Contexts) static std::byte s_kept[sizeof(Contexts)];
        new (s_kept) Contexts(std::move(m_contexts));
    }
}

void ZMQMessageManager::Cleanup() {
    std::lock_guard const lock(m_mutex);
    ZmqCleanup();
    m_zmqContext = nullptr;
}

void ZMQMessageManager::ZmqCleanup() {
    for (auto const& entry : m_contexts) {
        delete entry.second;
    }
    m_contexts.clear();
    // Waits until the last socket is closed, so the pipes come first.
    delete m_zmqContext;
}

MessageAddress ZMQMessageManager::GetDefaultProcessLoopbackAddress() {
    return {"default", MessageAddress::Transport::LOOPBACK, ""};
}

MessageAddress ZMQMessageManager::GetDefaultServerTcpAddress() {
    return {"localhost:" + std::to_string(kDefaultServerPort), MessageAddress::Transport::SOCKET, ""};
}

MessageAddress ZMQMessageManager::GetDefaultServerIpcAddress() {
    return {"default", MessageAddress::Transport::IPC, ""};
}

MessageAddress ZMQMessageManager::GetServerAddress() {
    MessageAddress chosen = ServerRegistry::GetUserServerAddress();
    if (chosen.transport != MessageAddress::Transport::NONE) {
        return chosen;
    }
    ServerRegistry::Servers servers;
    if (ServerRegistry::Instance().GetServers(servers, kRegistryReadTimeout, nullptr)) {
        if (servers.size() == 1) {
            return servers.front().address;
        }
        if (servers.size() > 1) {
            LOG_W("More than one VDS is running: set VQ_VDS_ADDRESS to select one");
        }
    }
    return GetDefaultServerTcpAddress();
}

AMessageContext* ZMQMessageManager::GetContext(MessageAddress const& address) {
    std::lock_guard const lock(m_mutex);
    if (AMessageContext* const context = FindContext(address)) {
        return context;
    }
    if (m_zmqContext == nullptr) {
        m_zmqContext = new zmq::context_t(kIoThreads, kMaxSockets);
    }
    AMessageContext*& context = m_contexts[address];
    context = new ZMQMessageContext(address, m_zmqContext);
    return context;
}

AMessageContext* ZMQMessageManager::FindContext(MessageAddress const& address) const {
    std::lock_guard const lock(m_mutex);
    auto const found = m_contexts.find(address);
    return found != m_contexts.end() ? found->second : nullptr;
}
