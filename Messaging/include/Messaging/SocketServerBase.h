#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <zmq.hpp>

/// What both ends of the link to a headset need: numbers in messages, greatest byte first, and sends and
/// receives with a limit.
class SocketServerBase {
public:
    /// @param context  not owned, outlives this object
    explicit SocketServerBase(zmq::context_t* context) : m_context(context) {}
    SocketServerBase(SocketServerBase const&) = delete;
    SocketServerBase& operator=(SocketServerBase const&) = delete;
    virtual ~SocketServerBase() = default;

    // The number must lie within the buffer; anything else is a fatal error of the caller.
    static std::uint16_t ReadUint16(std::string_view buffer, std::size_t offset);
    static std::uint32_t ReadUint32(std::string_view buffer, std::size_t offset);
    static void WriteUint16(std::string& buffer, std::size_t offset, std::uint16_t value);
    static void WriteUint32(std::string& buffer, std::size_t offset, std::uint32_t value);

    /// The type of socket at the other end; a type that does not exist is a fatal error.
    static int GetOppositeType(int type);
    /// Such as "ZMQ_REQ"; the number where there is no such type.
    static std::string GetTypeName(int type);

    /// @param timedOut  told whether the time was over before the socket was ready
    /// @return false also on a failure. Throws zmq::error_t when the socket is not to be used.
    static bool Send(zmq::socket_t& socket, zmq::message_t& message, std::chrono::milliseconds timeout,
                     bool& timedOut);
    static bool Recv(zmq::socket_t& socket, zmq::message_t& message, std::chrono::milliseconds timeout,
                     bool& timedOut);

protected:
    zmq::context_t* const m_context;
};
