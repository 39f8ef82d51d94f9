#include "ServerEndpoints.h"

#include <poll.h>
#include <zmq.h>

#include <initializer_list>

#include "AddressProbe.h"
#include "Logging/Log.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/MessageUtils.h"
#include "Messaging/ZMQMessagePipeBase.h"
#include "ServerEvents.pb.h"
#include "Utils/OSUtils.h"

namespace vq::server {

namespace {

using Transport = MessageAddress::Transport;

constexpr int kLingerMs = 1000;
constexpr std::chrono::milliseconds kDoNotWait{0};

/// Host and colon of a "host:port" location.
std::string_view HostPart(std::string const& location) {
    return std::string_view(location).substr(0, location.rfind(':') + 1);
}

zmq::socket_t* SocketOf(AMessagePipe* pipe) {
    return dynamic_cast<ZMQMessagePipeBase&>(*pipe).GetSocket();
}

void Send(AMessagePipeEventSender* sender, google::protobuf::MessageLite const& event) {
    // A publisher never waits for its listeners, so neither do we.
    MessageUtils::SendEvent(sender, 0, "", event, kDoNotWait, nullptr);
}

}  // namespace

bool ServerEndpoints::Open(MessageAddress const& address, PublishingAddresses const& former) {
    MessageAddress const base{address.location, address.transport, ""};
    m_provider = dynamic_cast<ZMQMessagePipeProvider*>(
        AMessageManager::Instance().GetContext(base)->GetPipeProvider());
    VQ_CHECK(m_provider != nullptr);
    m_provider->SetMaximumMessageSize(kMaximumMessageSize);
    return OpenRequests(address) && OpenPublishers(base, former);
}

bool ServerEndpoints::OpenRequests(MessageAddress const& address) {
    MessageAddress const wanted = m_provider->Resolve(address, false);
    if (wanted.transport == Transport::NONE) {
        LOG_E("'%s' is no address to serve on", address.ToString().c_str());
        return false;
    }
    // Binding takes the file of a living server away from it without a word.
    bool const stolen = wanted.transport == Transport::IPC && IsServed(wanted);
    m_requests = stolen ? nullptr : m_provider->GetRequestReplyServer(address, "requests");
    bool const elsewhere =
        m_requests != nullptr && address.logicalName.empty() && m_requests->GetRemote() != wanted;
    if (stolen || elsewhere) {
        LOG_E("Cannot serve on %s: the address is in use", wanted.ToString().c_str());
        return false;
    }
    if (m_requests == nullptr) {
        LOG_E("Cannot serve on %s", wanted.ToString().c_str());
    }
    return m_requests != nullptr;
}

bool ServerEndpoints::OpenPublishers(MessageAddress const& server, PublishingAddresses const& former) {
    m_events = OpenSender(server, "serverEvents", former.events);
    m_dataEvents = OpenSender(server, "serverDataEvents", former.dataEvents);
    m_heartbeat = OpenSender(server, "serverHeartbeat", former.heartbeat);
    m_memoryEvents = static_cast<ZMQMessagePipeEventListener*>(m_provider->GetEventListener(
        Choose(server, "serverMemoryEvents", former.memoryEvents), "memoryEvents", SocketRole::Bind));
    if (m_events == nullptr || m_dataEvents == nullptr || m_heartbeat == nullptr ||
        m_memoryEvents == nullptr) {
        LOG_E("Cannot publish beside %s", server.ToString().c_str());
        return false;
    }
    m_memoryEvents->ListenTo(vq::vds::SharedMemoryModifiedEvent::default_instance().GetTypeName());
    m_addresses = {.events = m_events->GetRemote(),
                   .dataEvents = m_dataEvents->GetRemote(),
                   .heartbeat = m_heartbeat->GetRemote(),
                   .memoryEvents = m_memoryEvents->GetRemote()};
    return true;
}

ZMQMessagePipeEventSender* ServerEndpoints::OpenSender(MessageAddress const& server, char const* logicalName,
                                                       MessageAddress const& former) {
    MessageAddress const chosen = Choose(server, logicalName, former);
    auto* const sender = static_cast<ZMQMessagePipeEventSender*>(
        m_provider->GetEventSender(chosen, logicalName, SocketRole::Bind));
    if (sender != nullptr && chosen == former && sender->GetRemote() != former) {
        LOG_W("%s is taken: who listened there must be started again", former.ToString().c_str());
    }
    return sender;
}

MessageAddress ServerEndpoints::Choose(MessageAddress const& server, char const* logicalName,
                                       MessageAddress const& former) {
    // Elsewhere than on TCP a logical name leads to the same place every time.
    bool const sameHost = former.transport == Transport::SOCKET && server.transport == Transport::SOCKET &&
                          former.ExtractPort() > 0 && HostPart(former.location) == HostPart(server.location);
    return sameHost ? former : MessageAddress{server.location, server.transport, logicalName};
}

void ServerEndpoints::Close() {
    for (AMessagePipe* const pipe : std::initializer_list<AMessagePipe*>{m_requests, m_events, m_dataEvents,
                                                                         m_heartbeat, m_memoryEvents}) {
        if (pipe != nullptr) {
            MessageAddress const address = pipe->GetRemote();
            SocketOf(pipe)->set(zmq::sockopt::linger, kLingerMs);
            m_provider->DisposePipe(pipe);
            if (address.transport == Transport::IPC) {
                RemoveFile(address.location);
            }
        }
    }
    m_requests = nullptr;
    m_events = m_heartbeat = nullptr;
    m_dataEvents = nullptr;
    m_memoryEvents = nullptr;
}

void ServerEndpoints::Publish(google::protobuf::MessageLite const& event) {
    LookForListeners();
    Send(m_events, event);
}

int ServerEndpoints::ListenersDescriptor() const {
    return static_cast<int>(SocketOf(m_events)->get(zmq::sockopt::fd));
}

void ServerEndpoints::LookForListeners() {
    pollfd changes{.fd = ListenersDescriptor(), .events = POLLIN, .revents = 0};
    if (::poll(&changes, 1, 0) == 1) {
        m_listenersChanged = std::chrono::steady_clock::now();
        // A send looks for new listeners only when the last look is some time ago; this always does.
        static_cast<void>(SocketOf(m_events)->get(zmq::sockopt::events));
    }
}

void ServerEndpoints::PublishHeartbeat() {
    Send(m_heartbeat, vq::vds::ServerHeartbeat());
}

void ServerEndpoints::PublishHello() {
    vq::vds::HelloEvent hello;
    hello.set_text("hello");
    Publish(hello);
    Send(m_dataEvents, hello);
}

}  // namespace vq::server
