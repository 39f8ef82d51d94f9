#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>
#include <zmq.hpp>

#include "Messaging/MessageAddress.h"
#include "StateFixture.h"

namespace vq::server {

/// How long a test waits for what must come.
inline constexpr int kPatienceMs = 60000;

inline std::string Url(std::string const& address) {
    MessageAddress const parsed = MessageAddress::FromString(address);
    std::string url = parsed.transport == MessageAddress::Transport::SOCKET ? "tcp://" : "inproc://";
    if (parsed.transport == MessageAddress::Transport::IPC) {
        url = "ipc://";
    }
    return url.append(parsed.location);
}

inline zmq::socket_t MakeSocket(zmq::context_t& context, int type) {
    zmq::socket_t socket(context, type);
    socket.set(zmq::sockopt::linger, 0);
    socket.set(zmq::sockopt::rcvtimeo, kPatienceMs);
    return socket;
}

inline void SendFrames(zmq::socket_t& socket, std::vector<std::string> const& frames) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
        bool const last = i + 1 == frames.size();
        socket.send(zmq::buffer(frames[i]), last ? zmq::send_flags::none : zmq::send_flags::sndmore);
    }
}

/// One multipart message; empty when none came in time.
inline std::vector<std::string> ReceiveFrames(zmq::socket_t& socket) {
    std::vector<std::string> frames;
    do {
        zmq::message_t frame;
        if (!socket.recv(frame)) {
            return {};
        }
        frames.push_back(frame.to_string());
    } while (socket.get(zmq::sockopt::rcvmore) != 0);
    return frames;
}

/// A client that knows the wire format and nothing else of ours.
class RawClient {
public:
    RawClient(zmq::context_t& context, std::string const& address)
        : m_context(context), m_socket(MakeSocket(context, ZMQ_REQ)) {
        m_socket.connect(Url(address));
    }

    /// Sends any frames.
    /// @return type and payload of the answer; two empty texts when there was none
    std::pair<std::string, std::string> ExchangeFrames(std::vector<std::string> const& frames) {
        SendFrames(m_socket, frames);
        std::vector<std::string> answer = ReceiveFrames(m_socket);
        if (answer.size() != 3) {
            ADD_FAILURE() << "an answer of " << answer.size() << " frames";
            return {};
        }
        return {answer[1], answer[2]};
    }

    /// @return type name of the answer
    std::string Ask(google::protobuf::MessageLite const& request) {
        return ExchangeFrames({"", request.GetTypeName(), request.SerializePartialAsString()}).first;
    }

    /// The reply to a request that must be granted.
    template <class Request>
    typename Request::Reply Get(Request const& request) {
        typename Request::Reply reply;
        auto const [type, payload] = ExchangeFrames({"", request.GetTypeName(), request.SerializeAsString()});
        EXPECT_EQ(type, reply.GetTypeName()) << payload;
        EXPECT_TRUE(reply.ParsePartialFromString(payload));
        return reply;
    }

    zmq::context_t& Context() const { return m_context; }

private:
    zmq::context_t& m_context;
    zmq::socket_t m_socket;
};

/// Hears what a server publishes.
class RawListener {
public:
    /// Waits until it is heard that the server publishes, so that nothing is missed afterwards.
    RawListener(zmq::context_t& context, std::string const& address, std::string const& prefix = "vq.vds")
        : m_socket(MakeSocket(context, ZMQ_SUB)) {
        m_socket.set(zmq::sockopt::subscribe, prefix);
        m_socket.connect(Url(address));
        EXPECT_FALSE(Next().first.empty()) << "nothing is published at " << address;
    }

    /// Type and payload of the next event.
    std::pair<std::string, std::string> Next() {
        std::vector<std::string> const frames = ReceiveFrames(m_socket);
        if (frames.size() != 2) {
            return {};
        }
        std::string const type = frames[0].substr(0, frames[0].find('\0'));
        EXPECT_EQ(frames[0], type + std::string(6, '\0')) << "events of the server belong to no channel";
        return {type, frames[1]};
    }

    /// The next event of a type; the others before it are passed over.
    template <class Event>
    Event Wait() {
        Event event;
        auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
        for (auto next = Next(); !next.first.empty() && std::chrono::steady_clock::now() < end;
             next = Next()) {
            if (next.first == event.GetTypeName()) {
                EXPECT_TRUE(event.ParseFromString(next.second));
                return event;
            }
        }
        ADD_FAILURE() << "no " << event.GetTypeName();
        return {};
    }

private:
    zmq::socket_t m_socket;
};

/// A device as far as the server sees it.
class RawDevice {
public:
    RawDevice(RawClient& client, std::string const& name) : m_client(client), m_name(name) {
        auto request = Registration(name);
        m_id = client.Get(request).device_id();
        vq::vds::CreateServerDataEventListenerAddress listener;
        listener.set_device_id(m_id);
        m_address = client.Get(listener).address();
        m_publisher = MakeSocket(client.Context(), ZMQ_PUB);
        m_publisher.bind(Url(m_address));
    }

    void ServeChannel(std::string const& channel) {
        m_client.Get(ChannelRegistration(m_id, {channel}, {}, true));
    }
    void SayHello() {
        SendFrames(m_publisher, {std::string("vq.ch.HelloDataEvent\0\0\0\0\0\0", 26), "\n\1x"});
    }
    void Publish(std::vector<std::string> const& frames) { SendFrames(m_publisher, frames); }

    std::int32_t Id() const { return m_id; }
    std::string const& Address() const { return m_address; }

private:
    RawClient& m_client;
    std::string m_name;
    std::int32_t m_id = 0;
    std::string m_address;
    zmq::socket_t m_publisher;
};

}  // namespace vq::server
