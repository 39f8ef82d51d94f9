#pragma once

#include "Messaging/AMessagePipe.h"
#include "Messaging/EventHeader.h"
#include "Messaging/ZMQMessage.h"
#include "Messaging/ZMQMessagePipeBase.h"

// The pipes over ZeroMQ sockets. All integers are little-endian.
//
// A request or reply is one multipart message of three frames, the same both ways: the sender's identity (any
// bytes, usually none), the type name, the payload. The names have no terminator.
//
// An event is one of two frames: a header (type name, NUL, channel name, NUL, channel id in four bytes) and
// the payload. A subscription is a prefix of the header, and so of type names.

class ZMQMessagePipeRequestReply final : public AMessagePipeRequestReply, public ZMQMessagePipeBase {
public:
    /// @param context, remote, name  as for AMessagePipeRequestReply
    /// @param socket, ownsSocket     a REQ or REP socket, as for ZMQMessagePipeBase
    ZMQMessagePipeRequestReply(AMessageContext* context, MessageAddress remote, std::string name,
                               zmq::socket_t* socket, bool ownsSocket);

    AMessage* ReceiveNext(std::chrono::milliseconds timeout, bool* timedOut) override;
    AMessage* NewMessage() override { return DoNewMessage(); }
    bool SendNext(AMessage const* message, std::chrono::milliseconds timeout, bool* timedOut) override;
    bool DrainExtraFrames() override { return DropExtraFrames(); }
    bool OwesAnswerToMalformed() const override { return ReceivedTooFewFrames(); }
};

class ZMQMessagePipeEventSender final : public AMessagePipeEventSender, public ZMQMessagePipeBase {
public:
    /// @param socket  a PUB socket
    ZMQMessagePipeEventSender(AMessageContext* context, MessageAddress remote, zmq::socket_t* socket,
                              bool ownsSocket);

    AMessage* NewMessage() override { return DoNewMessage(); }
    bool SendNext(AMessage const* message, std::chrono::milliseconds timeout, bool* timedOut) override;
    AChannelMessage* NewChannelMessage() override { return DoNewChannelMessage(); }
    bool SendProto(int channelId, std::string const& channelName, google::protobuf::MessageLite const& proto,
                   std::chrono::milliseconds timeout, bool* timedOut) override;

    /// Passes an event on as it is, without waiting.
    /// @param header, body  as ReceiveFrames gives them; their content is moved out
    bool ForwardFrames(zmq::message_t& header, zmq::message_t& body);

private:
    void LogSending(ZMQChannelMessage const& message) const;
};

class ZMQMessagePipeEventListener final : public AMessagePipeEventListener, public ZMQMessagePipeBase {
public:
    /// @param socket  a SUB socket
    ZMQMessagePipeEventListener(AMessageContext* context, MessageAddress remote, zmq::socket_t* socket,
                                bool ownsSocket);

    AMessage* ReceiveNext(std::chrono::milliseconds timeout, bool* timedOut) override;
    void ListenTo(std::string const& prefix) override;

    /// ReceiveNext without a message: for who passes events on.
    /// @param header, body  get the frames
    /// @return what the header says, as views into it; nothing as ReceiveNext gives null
    std::optional<EventHeader> ReceiveFrames(zmq::message_t& header, zmq::message_t& body,
                                             std::chrono::milliseconds timeout, bool* timedOut);

private:
    // Not inlined: neither is on the usual way.
    [[gnu::noinline]] static bool ReadHeader(zmq::message_t const& header, ZMQChannelMessage& message);
    [[gnu::noinline]] void TraceReceived(ZMQChannelMessage const& message) const;
};
