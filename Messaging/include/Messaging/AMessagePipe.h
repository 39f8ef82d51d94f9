#pragma once

#include <atomic>
#include <chrono>
#include <string>

#include "Messaging/AMessage.h"
#include "Messaging/MessageAddress.h"

class AMessageContext;
namespace google::protobuf {
class MessageLite;
}

/// One end of a link: a socket with the frame format on top.
///
/// Threads: a pipe belongs to the thread that made it. A mutex serialises its socket, so a call from another
/// thread is safe but noted at trace level; it may wait as long as the owner's call does. Who shares a
/// request/reply client between threads needs a lock of his own, to keep a request paired with its reply.
/// Lifetime: owned by the AMessagePipeProvider that made it; users never delete a pipe.
/// Errors: no operation throws unless it says so; a failure is a false or null result and a log line.
class AMessagePipe {
public:
    AMessagePipe(AMessagePipe const&) = delete;
    AMessagePipe& operator=(AMessagePipe const&) = delete;
    virtual ~AMessagePipe() = default;

    /// The context whose provider made this pipe; never null, outlives the pipe.
    virtual AMessageContext* GetContext() const = 0;
    /// The physical address that the socket is bound or connected to.
    virtual MessageAddress const& GetRemote() const = 0;

    /// True once the pipe has been given up: every send and receive then fails at once, without a log line.
    /// Any thread. A wait that is already running is not interrupted.
    bool IsDisposed() const { return m_disposed.load(std::memory_order_acquire); }
    void MarkDisposed() { m_disposed.store(true, std::memory_order_release); }

protected:
    AMessagePipe() = default;

private:
    std::atomic<bool> m_disposed{false};
};

/// The receiving side of a pipe.
class AMessageReader : public virtual AMessagePipe {
public:
    /// Waits for the next whole message.
    /// @param timeout   0 (or less) returns at once; milliseconds::max() waits without limit, which on a
    ///                  request/reply client means 60 s.
    /// @param timedOut  may be null; set to true only when nothing came in time, so that the caller can tell
    ///                  a quiet peer from a failure; false otherwise.
    /// @return the message, owned by the caller; null on time-out (not logged), on a broken message, which is
    ///         consumed (logged as error), and once the pipe is disposed (not logged).
    virtual AMessage* ReceiveNext(std::chrono::milliseconds timeout, bool* timedOut) = 0;
};

/// The sending side of a pipe.
class AMessageWriter : public virtual AMessagePipe {
public:
    /// A new empty message for this pipe, owned by the caller.
    virtual AMessage* NewMessage() = 0;

    /// Sends one message. The payload is moved out of it, so that a message can be sent once: sent again it
    /// carries an empty payload.
    /// @param timeout, timedOut  as in AMessageReader::ReceiveNext, for the wait until the socket takes it.
    /// @return false when it was not sent (logged, except on a disposed pipe).
    virtual bool SendNext(AMessage const* message, std::chrono::milliseconds timeout, bool* timedOut) = 0;
};

/// One end of a request/reply link; client and server are the same class.
///
/// The link alternates strictly. A client whose reply timed out cannot send again until that reply has been
/// read: its next timed send runs out, an untimed one fails. A server must answer each request it received,
/// the malformed ones included, before it can receive the next; see the last two operations.
class AMessagePipeRequestReply : public virtual AMessageReader, public virtual AMessageWriter {
public:
    /// @param context  not owned, outlives the pipe
    /// @param remote   the physical address
    /// @param name     the local name that tells pipes on one address apart
    AMessagePipeRequestReply(AMessageContext* context, MessageAddress remote, std::string name);

    AMessageContext* GetContext() const override { return m_context; }
    MessageAddress const& GetRemote() const override { return m_remote; }

    /// What goes into the identity frame of each outgoing message; empty unless set.
    std::string const& GetSenderIdentity() const { return m_senderIdentity; }
    void SetSenderIdentity(std::string identity) { m_senderIdentity = std::move(identity); }
    std::string const& GetName() const { return m_name; }

    /// Servers: drops the frames behind the third of a request that had more. ReceiveNext leaves them on the
    /// socket, which then refuses the answer, so call this before answering.
    /// @return true when there were any, which makes the request malformed; the pipe can answer now.
    virtual bool DrainExtraFrames() = 0;

    /// Servers: true when the last ReceiveNext consumed a request of too few frames (and so gave null). The
    /// peer is still owed an answer and the pipe can receive nothing until it was sent, which also clears
    /// this state: answer with MessageUtils::SendError<vq::vds::Error>.
    virtual bool OwesAnswerToMalformed() const = 0;

private:
    AMessageContext* const m_context;
    MessageAddress const m_remote;
    std::string m_senderIdentity;
    std::string const m_name;
};

/// Publishes events. Nothing waits for a listener: an event that nobody subscribed to is dropped.
class AMessagePipeEventSender : public AMessageWriter {
public:
    /// @param context, remote  as for AMessagePipeRequestReply
    AMessagePipeEventSender(AMessageContext* context, MessageAddress remote);

    AMessageContext* GetContext() const override { return m_context; }
    MessageAddress const& GetRemote() const override { return m_remote; }

    /// A new message for SendNext, owned by the caller. (SendNext refuses what NewMessage gives: an event
    /// always carries a channel id and name.)
    virtual AChannelMessage* NewChannelMessage() = 0;

    /// Encodes and sends in one step, which spares the message object: what MessageUtils::SendEvent does
    /// with NewChannelMessage, EncodeMessage and SendNext, and the default here.
    /// @return false when the message lacks a required field or was not sent (logged, except on a disposed
    ///         pipe)
    virtual bool SendProto(int channelId, std::string const& channelName,
                           google::protobuf::MessageLite const& proto, std::chrono::milliseconds timeout,
                           bool* timedOut);

private:
    AMessageContext* const m_context;
    MessageAddress const m_remote;
};

/// Receives events of the types that it was told to listen to.
class AMessagePipeEventListener : public AMessageReader {
public:
    /// @param context, remote  as for AMessagePipeRequestReply
    AMessagePipeEventListener(AMessageContext* context, MessageAddress remote);

    AMessageContext* GetContext() const override { return m_context; }
    MessageAddress const& GetRemote() const override { return m_remote; }

    /// Adds every event whose type name begins with the prefix ("" is every event) to what ReceiveNext gives.
    /// There is no way back. Throws zmq::error_t when the socket refuses.
    virtual void ListenTo(std::string const& prefix) = 0;

private:
    AMessageContext* const m_context;
    MessageAddress const m_remote;
};
