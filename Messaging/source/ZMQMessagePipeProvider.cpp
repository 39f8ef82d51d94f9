#include "Messaging/ZMQMessagePipeProvider.h"

#include <type_traits>

#include "Logging/Log.h"
#include "Messaging/ZMQMessageContext.h"
#include "Utils/ServerRegistry.h"

namespace {

/// Limits of the waits that are otherwise unlimited: a server's send, a client's receive.
constexpr int kSendReceiveTimeoutMs = 60000;
constexpr unsigned kCreationAttempts = 5;

}  // namespace

ZMQMessagePipeProvider::ZMQMessagePipeProvider(ZMQMessageContext* context)
    : m_context(context), m_deviceHandler(std::make_unique<RemoteDeviceHandler>()) {}

ZMQMessagePipeProvider::~ZMQMessagePipeProvider() {
    Cleanup();
}

AMessageContext* ZMQMessagePipeProvider::GetContext() const {
    return m_context;
}

std::unique_ptr<zmq::socket_t> ZMQMessagePipeProvider::NewSocket(int type) {
    auto socket = std::make_unique<zmq::socket_t>(*m_context->GetZMQContext(), type);
    // Before the socket is attached: its connections inherit what is set by then.
    socket->set(zmq::sockopt::maxmsgsize, m_maximumMessageSize);
    return socket;
}

void ZMQMessagePipeProvider::SetMaximumMessageSize(std::int64_t bytes) {
    std::lock_guard const lock(m_mutex);
    m_maximumMessageSize = bytes;
}

template <class Pipe>
std::unique_ptr<Pipe> ZMQMessagePipeProvider::ResolveAddressAndCreatePipe(char const* kind,
                                                                          MessageAddress const& address,
                                                                          Creator<Pipe> const& create) {
    for (unsigned attempt = 0; attempt < kCreationAttempts; ++attempt) {
        MessageAddress resolved;
        std::unique_ptr<zmq::socket_t> socket;
        try {
            resolved = Resolve(address, attempt != 0);
            if (resolved.transport == MessageAddress::Transport::NONE) {
                return nullptr;
            }
            return create(resolved, socket);
        } catch (zmq::error_t const& error) {
            socket.reset();
            LOG_V("failed to create %s socket for %s (%s) #%u: %s", kind, address.ToString().c_str(),
                  resolved.ToString().c_str(), attempt, error.what());
        }
    }
    LOG_E("Failed to create %s socket for %s after %u tries", kind, address.ToString().c_str(),
          kCreationAttempts);
    return nullptr;
}

template <class Pipe>
Pipe* ZMQMessagePipeProvider::GetPipe(Pipes<Pipe>& pipes, PipeCategory category, char const* kind,
                                      Key const& key, Creator<Pipe> const& create) {
    if (auto const found = pipes.find(key); found != pipes.end()) {
        return found->second.get();
    }
    std::unique_ptr<Pipe> pipe = ResolveAddressAndCreatePipe<Pipe>(kind, key.first, create);
    if (pipe == nullptr) {
        return nullptr;
    }
    Pipe* const result = pipe.get();
    pipes.emplace(key, std::move(pipe));
    m_pipeIndex.emplace(result, std::make_pair(key, category));
    return result;
}

AMessagePipeRequestReply* ZMQMessagePipeProvider::GetRequestReply(Pipes<ZMQMessagePipeRequestReply>& pipes,
                                                                  PipeCategory category,
                                                                  MessageAddress const& address,
                                                                  std::string const& name) {
    std::lock_guard const lock(m_mutex);
    bool const isServer = category == PipeCategory::RequestReplyServer;
    auto const create = [this, isServer, &name](MessageAddress const& resolved,
                                                std::unique_ptr<zmq::socket_t>& socket) {
        socket = NewSocket(isServer ? ZMQ_REP : ZMQ_REQ);
        LOG_T("NEW %s ZMQ_SOCKET = %p, Local Identity = %s", isServer ? "Rep" : "Req",
              static_cast<void*>(socket.get()), name.c_str());
        BindOrConnect(socket.get(), resolved, isServer ? SocketRole::Bind : SocketRole::Connect);
        if (isServer) {
            socket->set(zmq::sockopt::sndtimeo, kSendReceiveTimeoutMs);
        } else {
            socket->set(zmq::sockopt::rcvtimeo, kSendReceiveTimeoutMs);
        }
        auto pipe =
            std::make_unique<ZMQMessagePipeRequestReply>(m_context, resolved, name, socket.get(), true);
        static_cast<void>(socket.release());
        pipe->SetSenderIdentity(ServerRegistry::Instance().identity);
        return pipe;
    };
    return GetPipe<ZMQMessagePipeRequestReply>(
        pipes, category, isServer ? "request/reply server" : "request/reply client", {address, name}, create);
}

template <class Pipe>
Pipe* ZMQMessagePipeProvider::GetEventPipe(Pipes<Pipe>& pipes, PipeCategory category,
                                           MessageAddress const& address, std::string const& name,
                                           SocketRole role) {
    std::lock_guard const lock(m_mutex);
    bool const isSender = category == PipeCategory::EventSender;
    auto const create = [this, isSender, role](MessageAddress const& resolved,
                                               std::unique_ptr<zmq::socket_t>& socket) {
        socket = NewSocket(isSender ? ZMQ_PUB : ZMQ_SUB);
        LOG_T("NEW %s ZMQ_SOCKET = %p", isSender ? "Pub" : "Sub", static_cast<void*>(socket.get()));
        socket->set(zmq::sockopt::routing_id, resolved.ToString());
        BindOrConnect(socket.get(), resolved, role);
        auto pipe = std::make_unique<Pipe>(m_context, resolved, socket.get(), true);
        static_cast<void>(socket.release());
        return pipe;
    };
    return GetPipe<Pipe>(pipes, category, isSender ? "event server" : "event listener", {address, name},
                         create);
}

AMessagePipeRequestReply* ZMQMessagePipeProvider::GetRequestReplyServer(MessageAddress const& address,
                                                                        std::string const& name) {
    return GetRequestReply(m_reqRepServers, PipeCategory::RequestReplyServer, address, name);
}

AMessagePipeRequestReply* ZMQMessagePipeProvider::GetRequestReplyClient(MessageAddress const& address,
                                                                        std::string const& name) {
    return GetRequestReply(m_reqRepClients, PipeCategory::RequestReplyClient, address, name);
}

AMessagePipeEventSender* ZMQMessagePipeProvider::GetEventSender(MessageAddress const& address,
                                                                std::string const& name, SocketRole role) {
    return GetEventPipe(m_eventSenders, PipeCategory::EventSender, address, name, role);
}

AMessagePipeEventListener* ZMQMessagePipeProvider::GetEventListener(MessageAddress const& address,
                                                                    std::string const& name,
                                                                    SocketRole role) {
    return GetEventPipe(m_eventListeners, PipeCategory::EventListener, address, name, role);
}

template <class Pipe>
void ZMQMessagePipeProvider::DeletePipeFromMap(Pipes<Pipe>& pipes, Key const& key) {
    auto const found = pipes.find(key);
    if (found == pipes.end()) {
        LOG_E("Can't find the message pipe");
        return;
    }
    LOG_V("Deleting the pipe %p (%s)", static_cast<void*>(found->second.get()),
          found->second->GetRemote().ToString().c_str());
    pipes.erase(found);
}

void ZMQMessagePipeProvider::DisposePipe(AMessagePipe* pipe) {
    std::lock_guard const lock(m_mutex);
    auto const found = m_pipeIndex.find(pipe);
    if (found == m_pipeIndex.end()) {
        LOG_W("Can't find the message pipe in the reverse map");
        return;
    }
    auto const [key, category] = found->second;
    switch (category) {
        case PipeCategory::RequestReplyServer:
            DeletePipeFromMap(m_reqRepServers, key);
            break;
        case PipeCategory::RequestReplyClient:
            DeletePipeFromMap(m_reqRepClients, key);
            break;
        case PipeCategory::EventSender:
            DeletePipeFromMap(m_eventSenders, key);
            break;
        case PipeCategory::EventListener:
            DeletePipeFromMap(m_eventListeners, key);
            break;
    }
    m_pipeIndex.erase(found);
}

void ZMQMessagePipeProvider::DisposePipes() {
    std::lock_guard const lock(m_mutex);
    for (auto const& entry : m_pipeIndex) {
        entry.first->MarkDisposed();
    }
}

void ZMQMessagePipeProvider::Cleanup() {
    std::lock_guard const lock(m_mutex);
    while (!m_pipeIndex.empty()) {
        DisposePipe(m_pipeIndex.begin()->first);
    }
    if (!m_reqRepServers.empty() || !m_reqRepClients.empty() || !m_eventSenders.empty() ||
        !m_eventListeners.empty()) {
        LOG_E(
            "Maps are not empty, something is not right..        reqRepServers(%lu),         "
            "reqRepClients(%lu),         eventSenders(%lu),         eventListeners(%lu) ",
            m_reqRepServers.size(), m_reqRepClients.size(), m_eventSenders.size(), m_eventListeners.size());
    }
    m_providers.clear();
    m_deviceHandler->Cleanup();
}
