#pragma once

#include <chrono>
#include <cstdint>

#include "Messaging/AMessagePipe.h"
#include "Messaging/ZMQMessagePipeProvider.h"
#include "Messaging/ZMQMessagePipes.h"
#include "VirtualDeviceServer/ServerJournal.h"

namespace google::protobuf {
class MessageLite;
}

namespace vq::server {

/// The sockets of the server itself: requests in, events out.
///
/// Threads: one.
class ServerEndpoints {
public:
    /// No client has a reason to send more at once.
    static constexpr std::int64_t kMaximumMessageSize = 64LL << 20;

    ServerEndpoints() = default;
    ServerEndpoints(ServerEndpoints const&) = delete;
    ServerEndpoints& operator=(ServerEndpoints const&) = delete;
    ~ServerEndpoints() { Close(); }

    /// @param address  where requests are to be taken
    /// @param former   where the last server under this address published: taken again where possible, since
    ///                 listeners reconnect there
    /// @return false, with an error line, when a socket cannot be had or the address is in use
    bool Open(MessageAddress const& address, PublishingAddresses const& former);

    /// Gives what was sent last a moment to leave, then closes all; the message manager's Cleanup waits for
    /// it.
    void Close();

    ZMQMessagePipeProvider& Provider() const { return *m_provider; }
    AMessagePipeRequestReply& Requests() const { return *m_requests; }
    PublishingAddresses const& Addresses() const { return m_addresses; }

    /// Where clients tell of writes to shared memory.
    ZMQMessagePipeEventListener& MemoryEvents() const { return *m_memoryEvents; }

    /// Broadcasts a device's data event to all who listen. A listener that falls behind loses what finds no
    /// room in the queue of its socket; nobody waits for it.
    /// @param header, body  the frames; their content is moved out
    void Broadcast(zmq::message_t& header, zmq::message_t& body) {
        m_dataEvents->ForwardFrames(header, body);
    }
    /// Publishes on the event socket, also to listeners that came in this moment.
    void Publish(google::protobuf::MessageLite const& event);
    /// Descriptor that is readable when the event socket's listeners may have changed: LookForListeners then.
    int ListenersDescriptor() const;
    void LookForListeners();
    /// When the listeners of the event socket may last have changed.
    TimePoint ListenersChanged() const { return m_listenersChanged; }
    void PublishHeartbeat();
    /// Publishes something on the sockets that may have been silent for long: a socket that sends nothing
    /// keeps the remains of every listener that came and went.
    void PublishHello();

private:
    bool OpenRequests(MessageAddress const& address);
    bool OpenPublishers(MessageAddress const& server, PublishingAddresses const& former);
    ZMQMessagePipeEventSender* OpenSender(MessageAddress const& server, char const* logicalName,
                                          MessageAddress const& former);
    /// The former address, if it can be bound again, else the logical one.
    static MessageAddress Choose(MessageAddress const& server, char const* logicalName,
                                 MessageAddress const& former);

    ZMQMessagePipeProvider* m_provider = nullptr;
    AMessagePipeRequestReply* m_requests = nullptr;
    AMessagePipeEventSender* m_events = nullptr;
    ZMQMessagePipeEventSender* m_dataEvents = nullptr;
    AMessagePipeEventSender* m_heartbeat = nullptr;
    /// Its address is part of the server's line in the registry.
    ZMQMessagePipeEventListener* m_memoryEvents = nullptr;
    PublishingAddresses m_addresses;
    TimePoint m_listenersChanged{};
};

}  // namespace vq::server
