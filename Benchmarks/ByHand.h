#pragma once

#include <google/protobuf/message_lite.h>
#include <unistd.h>
#include <zmq.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "Messaging/MessageAddress.h"
#include "Twin.h"

// What hand-written bases on libzmq and protobuf share.

namespace bench {

class Socket {
public:
    Socket(void* context, int type) : m_socket(zmq_socket(context, type)) {
        int const linger = 0;
        zmq_setsockopt(m_socket, ZMQ_LINGER, &linger, sizeof linger);
        if (type == ZMQ_SUB) {
            zmq_setsockopt(m_socket, ZMQ_SUBSCRIBE, "", 0);
        }
    }
    ~Socket() { zmq_close(m_socket); }
    Socket(Socket const&) = delete;
    Socket& operator=(Socket const&) = delete;
    void* Get() const { return m_socket; }

private:
    void* m_socket;
};

inline bool SendBody(void* socket, google::protobuf::MessageLite const& message) {
    std::size_t const size = message.ByteSizeLong();
    zmq_msg_t body;
    zmq_msg_init_size(&body, size);
    message.SerializeWithCachedSizesToArray(static_cast<std::uint8_t*>(zmq_msg_data(&body)));
    return zmq_msg_send(&body, socket, 0) >= 0;
}

inline bool ReceiveBody(void* socket, google::protobuf::MessageLite& message) {
    zmq_msg_t body;
    zmq_msg_init(&body);
    bool const parsed = zmq_msg_recv(&body, socket, 0) >= 0 &&
                        message.ParseFromArray(zmq_msg_data(&body), static_cast<int>(zmq_msg_size(&body)));
    zmq_msg_close(&body);
    return parsed;
}

/// One place each for the base and for our path on a transport.
struct Places {
    explicit Places(MessageAddress::Transport transport) {
        switch (transport) {
            case MessageAddress::Transport::LOOPBACK:
                base = "inproc://base";
                ours = {"ours", transport, ""};
                break;
            case MessageAddress::Transport::IPC:
                base = "ipc:///tmp/vqbench." + std::to_string(::getpid()) + ".base";
                ours = {"/tmp/vqbench." + std::to_string(::getpid()) + ".ours", transport, ""};
                break;
            default:
                base = "tcp://127.0.0.1:*";
                ours = {"127.0.0.1", transport, "ours"};
                break;
        }
    }
    ~Places() {
        if (ours.transport == MessageAddress::Transport::IPC) {
            ::unlink(ours.location.c_str());
            ::unlink(base.substr(std::string_view("ipc://").size()).c_str());
        }
    }
    Places(Places const&) = delete;
    Places& operator=(Places const&) = delete;
    std::string base;
    MessageAddress ours;
};

/// Attaches two sockets by hand.
inline bool Join(void* bound, void* connected, std::string const& url) {
    char endpoint[256];
    std::size_t size = sizeof endpoint;
    return zmq_bind(bound, url.c_str()) == 0 &&
           zmq_getsockopt(bound, ZMQ_LAST_ENDPOINT, endpoint, &size) == 0 &&
           zmq_connect(connected, endpoint) == 0;
}

/// A publisher learns what its listeners have read at most once a millisecond, unless it is asked for its
/// state, and drops events when it thinks that too many are on the way. Once in many operations this costs
/// nothing.
inline void HearOfReads(void* publisher, int& count) {
    if (++count % 500 == 0) {
        int events = 0;
        std::size_t size = sizeof events;
        zmq_getsockopt(publisher, ZMQ_EVENTS, &events, &size);
    }
}

/// The operation, which ends the benchmark with an error when it fails.
template <typename Operation>
auto Checked(benchmark::State& state, Operation operation) {
    return [&state, operation]() mutable {
        bool const done = operation();
        if (!done) {
            state.SkipWithError("an exchange failed");
        }
        return done;
    };
}

}  // namespace bench
