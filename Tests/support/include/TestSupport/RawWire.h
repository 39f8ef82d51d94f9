#pragma once

#include <google/protobuf/message_lite.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>
#include <zmq.hpp>

#include "TestSupport/Patience.h"
#include "TestSupport/WireText.h"

namespace vq::test {

using Frames = std::vector<std::string>;

/// The three frames of a request or reply, complete or not.
Frames FramesOf(google::protobuf::MessageLite const& message);
/// The two frames of an event.
Frames EventFrames(google::protobuf::MessageLite const& event, std::string const& channel = "", int id = 0);

/// One bare libzmq socket, without a line of our messaging layer: what another implementation of the wire
/// would hold. What does not come in time fails the test. One thread.
class RawSocket {
public:
    /// @param type     REP, PUB, XPUB and ROUTER bind, the others connect; a SUB hears everything
    /// @param address  "IPC:/path", "SOCKET:host:port" or "LOOPBACK:name"; the latter needs a shared context
    /// @param context  outlives the socket; null for one of its own
    RawSocket(int type, std::string const& address, zmq::context_t* context = nullptr);
    RawSocket(RawSocket&&) = default;

    void Send(Frames const& frames);
    /// The next message.
    Frames Receive();
    /// True when a message is there within the time.
    bool Poll(std::chrono::milliseconds timeout = {});

    /// Sends a request and gives the reply's type and payload.
    std::pair<std::string, std::string> Exchange(Frames const& request);
    /// The type of the answer.
    std::string Ask(google::protobuf::MessageLite const& request) {
        return Exchange(FramesOf(request)).first;
    }
    /// The reply to a request that must be granted, or the error of one that must be refused.
    template <class Request, class Answer = typename Request::Reply>
    Answer Get(Request const& request) {
        return Parse<Answer>(Exchange(FramesOf(request)));
    }
    template <class Request>
    std::string Refused(Request const& request) {
        return Get<Request, typename Request::Error>(request).message();
    }
    /// The same, to a request whose fields stand as text: Get<Type>("1:'a'").
    template <class Request>
    typename Request::Reply Get(std::string const& fields) {
        return Get(wire::Parsed<Request>(fields));
    }
    template <class Request>
    std::string Refused(std::string const& fields) {
        return Refused(wire::Parsed<Request>(fields));
    }
    /// The next request, which must be of this type.
    template <class Request>
    Request Command() {
        Frames const frames = Receive();
        EXPECT_EQ(frames.size(), 3u);
        return Parse<Request>({frames.at(1), frames.at(2)});
    }

    /// Type and payload of the next event, which must belong to no channel.
    std::pair<std::string, std::string> NextEvent();
    /// The next event of a type; others before it are passed over.
    template <class Event>
    Event Await() {
        auto const end = std::chrono::steady_clock::now() + kPatience;
        while (std::chrono::steady_clock::now() < end) {
            if (auto const event = NextEvent(); event.first == Event::default_instance().GetTypeName()) {
                return Parse<Event>(event);
            }
        }
        ADD_FAILURE() << "no " << Event::default_instance().GetTypeName();
        return {};
    }

private:
    template <class Message>
    static Message Parse(std::pair<std::string, std::string> const& typeAndPayload) {
        Message message;
        EXPECT_EQ(typeAndPayload.first, message.GetTypeName()) << typeAndPayload.second;
        EXPECT_TRUE(message.ParsePartialFromString(typeAndPayload.second)) << typeAndPayload.first;
        return message;
    }

    std::unique_ptr<zmq::context_t> m_own;
    zmq::socket_t m_socket;
};

}  // namespace vq::test
