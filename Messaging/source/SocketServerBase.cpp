#include "Messaging/SocketServerBase.h"

#include <array>

#include "Logging/Log.h"

namespace {

struct SocketType {
    char const* name;
    int opposite;
};

/// By number.
constexpr std::array<SocketType, 12> kTypes = {{{"ZMQ_PAIR", ZMQ_PAIR},
                                                {"ZMQ_PUB", ZMQ_SUB},
                                                {"ZMQ_SUB", ZMQ_PUB},
                                                {"ZMQ_REQ", ZMQ_REP},
                                                {"ZMQ_REP", ZMQ_REQ},
                                                {"ZMQ_DEALER", ZMQ_ROUTER},
                                                {"ZMQ_ROUTER", ZMQ_DEALER},
                                                {"ZMQ_PULL", ZMQ_PUSH},
                                                {"ZMQ_PUSH", ZMQ_PULL},
                                                {"ZMQ_XPUB", ZMQ_XSUB},
                                                {"ZMQ_XSUB", ZMQ_XPUB},
                                                {"ZMQ_STREAM", ZMQ_STREAM}}};

bool IsType(int type) {
    return type >= 0 && static_cast<std::size_t>(type) < kTypes.size();
}

std::uint32_t ReadNumber(std::string_view buffer, std::size_t offset, std::size_t size) {
    VQ_CHECK(offset <= buffer.size() && buffer.size() - offset >= size);
    std::uint32_t value = 0;
    for (char const byte : buffer.substr(offset, size)) {
        value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
}

void WriteNumber(std::string& buffer, std::size_t offset, std::uint32_t value, std::size_t size) {
    VQ_CHECK(offset <= buffer.size() && buffer.size() - offset >= size);
    for (std::size_t i = size; i > 0; --i, value >>= 8) {
        buffer[offset + i - 1] = static_cast<char>(value & 0xFF);
    }
}

/// Waits until the socket is ready for what it is to do.
bool Poll(zmq::socket_t& socket, short events, std::chrono::milliseconds timeout, bool& timedOut) {
    zmq_pollitem_t item{socket.handle(), 0, events, 0};
    int const ready = ::zmq_poll(&item, 1, static_cast<long>(timeout.count()));
    timedOut = ready == 0;
    if (ready < 0) {
        LOG_E("Error in zmq_poll: %s", ::zmq_strerror(::zmq_errno()));
    }
    return ready > 0;
}

}  // namespace

std::uint16_t SocketServerBase::ReadUint16(std::string_view buffer, std::size_t offset) {
    return static_cast<std::uint16_t>(ReadNumber(buffer, offset, 2));
}

std::uint32_t SocketServerBase::ReadUint32(std::string_view buffer, std::size_t offset) {
    return ReadNumber(buffer, offset, 4);
}

void SocketServerBase::WriteUint16(std::string& buffer, std::size_t offset, std::uint16_t value) {
    WriteNumber(buffer, offset, value, 2);
}

void SocketServerBase::WriteUint32(std::string& buffer, std::size_t offset, std::uint32_t value) {
    WriteNumber(buffer, offset, value, 4);
}

int SocketServerBase::GetOppositeType(int type) {
    VQ_CHECK(IsType(type));
    return kTypes[static_cast<std::size_t>(type)].opposite;
}

std::string SocketServerBase::GetTypeName(int type) {
    return IsType(type) ? kTypes[static_cast<std::size_t>(type)].name : std::to_string(type);
}

bool SocketServerBase::Send(zmq::socket_t& socket, zmq::message_t& message, std::chrono::milliseconds timeout,
                            bool& timedOut) {
    return Poll(socket, ZMQ_POLLOUT, timeout, timedOut) && socket.send(message, zmq::send_flags::none);
}

bool SocketServerBase::Recv(zmq::socket_t& socket, zmq::message_t& message, std::chrono::milliseconds timeout,
                            bool& timedOut) {
    return Poll(socket, ZMQ_POLLIN, timeout, timedOut) && socket.recv(message, zmq::recv_flags::none);
}
