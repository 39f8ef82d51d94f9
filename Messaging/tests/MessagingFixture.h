#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>
#include <zmq.hpp>

#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "Messaging/ZMQMessageContext.h"
#include "Messaging/ZMQMessagePipeBase.h"
#include "TestSupport/LogCapture.h"

/// A context of its own, and bare sockets as the peers of its pipes: what another implementation would send
/// and see, frame by frame.
class MessagingTest : public testing::Test {
protected:
    using Frames = std::vector<std::string>;
    using Transport = MessageAddress::Transport;

    static constexpr std::chrono::milliseconds kLimit{30000};
    static constexpr std::chrono::milliseconds kShort{50};
    static constexpr std::chrono::milliseconds kNoWait{0};
    static constexpr auto kUnlimited = std::chrono::milliseconds::max();

    /// A bare socket at the other end of what is bound or will be bound at "inproc://name".
    zmq::socket_t Connect(int type, std::string const& name) {
        zmq::socket_t socket = MakeSocket(type);
        socket.connect("inproc://" + name);
        return socket;
    }
    zmq::socket_t Bind(int type, std::string const& name) {
        zmq::socket_t socket = MakeSocket(type);
        socket.bind("inproc://" + name);
        return socket;
    }
    zmq::socket_t MakeSocket(int type) {
        zmq::socket_t socket(m_zmq, type);
        socket.set(zmq::sockopt::linger, 0);
        socket.set(zmq::sockopt::rcvtimeo, static_cast<int>(kLimit.count()));
        if (type == ZMQ_SUB) {
            socket.set(zmq::sockopt::subscribe, "");
        }
        return socket;
    }

    static void SendFrames(zmq::socket_t& socket, Frames const& frames) {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            zmq::message_t frame(frames[i]);
            ASSERT_TRUE(
                socket.send(frame, i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none));
        }
    }
    static Frames ReceiveFrames(zmq::socket_t& socket) {
        Frames frames;
        zmq::message_t frame;
        do {
            if (!socket.recv(frame)) {
                ADD_FAILURE() << "nothing came";
                break;
            }
            frames.push_back(frame.to_string());
        } while (frame.more());
        return frames;
    }
    static bool HasNothing(zmq::socket_t& socket) {
        return (socket.get(zmq::sockopt::events) & ZMQ_POLLIN) == 0;
    }

    /// A listener's subscription reaches an in-process publisher when that next looks at its commands.
    static void TakeSubscriptions(AMessagePipeEventSender* sender) {
        static_cast<void>(dynamic_cast<ZMQMessagePipeBase&>(*sender).GetSocket()->get(zmq::sockopt::events));
    }

    static MessageAddress Loopback(std::string const& name) { return {name, Transport::LOOPBACK, ""}; }
    AMessagePipeProvider* Pipes() { return m_context->GetPipeProvider(); }
    AMessagePipeRequestReply* Client(std::string const& name) {
        return Pipes()->GetRequestReplyClient(Loopback(name), "test");
    }
    AMessagePipeRequestReply* Server(std::string const& name) {
        return Pipes()->GetRequestReplyServer(Loopback(name), "test");
    }
    AMessagePipeEventSender* Sender(std::string const& name) {
        return Pipes()->GetEventSender(Loopback(name), "", SocketRole::Bind);
    }
    AMessagePipeEventListener* Listener(std::string const& name, std::string const& prefix = "") {
        AMessagePipeEventListener* listener =
            Pipes()->GetEventListener(Loopback(name), "", SocketRole::Connect);
        listener->ListenTo(prefix);
        return listener;
    }
    static std::unique_ptr<AMessage> Next(AMessageReader* reader, std::chrono::milliseconds timeout = kLimit,
                                          bool* timedOut = nullptr) {
        return std::unique_ptr<AMessage>(reader->ReceiveNext(timeout, timedOut));
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
