#pragma once

#include "Messaging/AMessagePipe.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "Messaging/ZMQMessageContext.h"
#include "Messaging/ZMQMessagePipeBase.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Test.h"

/// A context of its own, and bare sockets as the peers of its pipes.
class MessagingTest : public testing::Test {
protected:
    using Frames = vq::test::Frames;
    using RawSocket = vq::test::RawSocket;
    using Transport = MessageAddress::Transport;

    static constexpr std::chrono::milliseconds kLimit{30000};
    static constexpr std::chrono::milliseconds kShort{50};
    static constexpr std::chrono::milliseconds kNoWait{0};
    static constexpr auto kUnlimited = std::chrono::milliseconds::max();

    /// A bare socket at the other end of what is or will be at that name.
    RawSocket Raw(int type, std::string const& name) { return {type, "LOOPBACK:" + name, &m_zmq}; }
    static MessageAddress Loopback(std::string const& name) { return {name, Transport::LOOPBACK, ""}; }
    AMessagePipeProvider* Pipes() { return m_context->GetPipeProvider(); }
    AMessagePipeRequestReply* Client(std::string const& name, std::string const& pipe = "test") {
        return Pipes()->GetRequestReplyClient(Loopback(name), pipe);
    }
    AMessagePipeRequestReply* Server(std::string const& name) {
        return Pipes()->GetRequestReplyServer(Loopback(name), "test");
    }
    AMessagePipeEventSender* Sender(std::string const& name) {
        return Pipes()->GetEventSender(Loopback(name), "", SocketRole::Bind);
    }
    AMessagePipeEventListener* Listener(std::string const& name, std::string const& prefix = "") {
        auto* const listener = Pipes()->GetEventListener(Loopback(name), "", SocketRole::Connect);
        listener->ListenTo(prefix);
        return listener;
    }
    /// A listener's subscription reaches an in-process publisher when that next looks at its commands.
    static void TakeSubscriptions(AMessagePipeEventSender* sender) {
        static_cast<void>(dynamic_cast<ZMQMessagePipeBase&>(*sender).GetSocket()->get(zmq::sockopt::events));
    }
    static std::unique_ptr<AMessage> Next(AMessageReader* reader, std::chrono::milliseconds timeout = kLimit,
                                          bool* timedOut = nullptr) {
        return std::unique_ptr<AMessage>(reader->ReceiveNext(timeout, timedOut));
    }
    /// The next event, or null when none comes.
    static std::unique_ptr<AChannelMessage> NextEvent(AMessageReader* listener) {
        return std::unique_ptr<AChannelMessage>(dynamic_cast<AChannelMessage*>(Next(listener).release()));
    }
    static bool Publish(AMessagePipeEventSender* sender, std::string const& type,
                        std::string const& channel = "", int id = 0) {
        std::unique_ptr<AChannelMessage> const message(sender->NewChannelMessage());
        message->SetType(type);
        message->SetChannelName(channel);
        message->SetChannelId(id);
        return sender->SendNext(message.get(), kLimit, nullptr);
    }

    zmq::context_t m_zmq;
    std::unique_ptr<ZMQMessageContext> m_context =
        std::make_unique<ZMQMessageContext>(Loopback("server"), &m_zmq);
};
