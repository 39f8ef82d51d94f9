#include "TestSupport/RawWire.h"

namespace vq::test {

namespace {

std::string Endpoint(std::string const& address) {
    std::size_t const colon = address.find(':');
    std::string const transport = address.substr(0, colon);
    return (transport == "IPC"      ? "ipc://"
            : transport == "SOCKET" ? "tcp://"
                                    : "inproc://") +
           address.substr(colon + 1);
}

}  // namespace

Frames FramesOf(google::protobuf::MessageLite const& message) {
    return {"", message.GetTypeName(), message.SerializePartialAsString()};
}

Frames EventFrames(google::protobuf::MessageLite const& event, std::string const& channel, int id) {
    std::string header = event.GetTypeName() + '\0' + channel + '\0';
    for (int shift = 0; shift < 32; shift += 8) {
        header += static_cast<char>(id >> shift & 0xff);
    }
    return {header, event.SerializePartialAsString()};
}

RawSocket::RawSocket(int type, std::string const& address, zmq::context_t* context)
    : m_own(context == nullptr ? std::make_unique<zmq::context_t>() : nullptr),
      m_socket(context == nullptr ? *m_own : *context, type) {
    m_socket.set(zmq::sockopt::linger, 0);
    m_socket.set(zmq::sockopt::rcvtimeo, static_cast<int>(kPatience.count()));
    if (type == ZMQ_SUB) {
        m_socket.set(zmq::sockopt::subscribe, "");
    }
    if (type == ZMQ_REP || type == ZMQ_PUB || type == ZMQ_XPUB || type == ZMQ_ROUTER) {
        m_socket.bind(Endpoint(address));
    } else {
        m_socket.connect(Endpoint(address));
    }
}

void RawSocket::Send(Frames const& frames) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
        bool const last = i + 1 == frames.size();
        EXPECT_TRUE(
            m_socket.send(zmq::buffer(frames[i]), last ? zmq::send_flags::none : zmq::send_flags::sndmore));
    }
}

Frames RawSocket::Receive() {
    Frames frames;
    zmq::message_t frame;
    do {
        if (!m_socket.recv(frame)) {
            ADD_FAILURE() << "nothing came";
            return {};
        }
        frames.push_back(frame.to_string());
    } while (frame.more());
    return frames;
}

bool RawSocket::Poll(std::chrono::milliseconds timeout) {
    zmq::pollitem_t item{m_socket, 0, ZMQ_POLLIN, 0};
    return zmq::poll(&item, 1, timeout) > 0;
}

std::pair<std::string, std::string> RawSocket::Exchange(Frames const& request) {
    Send(request);
    Frames const answer = Receive();
    EXPECT_EQ(answer.size(), 3u);
    return answer.size() == 3 ? std::pair{answer[1], answer[2]} : std::pair{std::string(), std::string()};
}

std::pair<std::string, std::string> RawSocket::NextEvent() {
    Frames const frames = Receive();
    if (frames.size() != 2) {
        ADD_FAILURE() << "an event of " << frames.size() << " frames";
        return {};
    }
    std::string const type = frames[0].substr(0, frames[0].find('\0'));
    EXPECT_EQ(frames[0], type + std::string(6, '\0')) << "events of the server belong to no channel";
    return {type, frames[1]};
}

}  // namespace vq::test
