#include "Messaging/SocketServerClient.h"

#include <algorithm>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/SocketServerReply.h"
#include "Messaging/VqdbAccessor.h"
#include "ServerEvents.pb.h"

namespace {

constexpr char kProtocolVersion = 3;
/// No reply has a reason to be longer: a peer that sends more is disconnected.
constexpr std::int64_t kMaximumReply = 1 << 20;

/// A request whose numbers are still to be written.
std::string Request(std::string_view command, std::size_t size) {
    std::string request(command);
    request.resize(size);
    return request;
}

}  // namespace

SocketServerClient::SocketServerClient(zmq::context_t* context, std::string const& serial, int port,
                                       std::stop_token stop)
    : SocketServerBase(context),
      m_serverPort(port),
      m_socket(std::make_unique<zmq::socket_t>(*context, ZMQ_REQ)),
      m_bridge(std::make_unique<VqdbAccessor>(serial, stop)),
      m_identity(serial),
      m_stop(std::move(stop)) {
    m_socket->set(zmq::sockopt::routing_id, "socket server");
    // Nothing may wait for a headset that is gone.
    m_socket->set(zmq::sockopt::linger, 0);
    m_socket->set(zmq::sockopt::maxmsgsize, kMaximumReply);
}

SocketServerClient::~SocketServerClient() {
    m_socket.reset();
    m_bridge.reset();
}

bool SocketServerClient::Init() {
    int port = 0;
    if (!GetEphemeralPort(port) || !m_bridge->ForwardPort(port, m_serverPort)) {
        return false;
    }
    m_socket->connect("tcp://localhost:" + std::to_string(port));
    return true;
}

bool SocketServerClient::Validate(std::uint32_t minimumLevel, std::string& error) {
    error.clear();
    std::string request = "VER";
    request += kProtocolVersion;
    zmq::message_t message(request);
    bool timedOut = false;
    if (!Try(&Send, message, timedOut)) {
        if (timedOut) {
            error =
                "Was not able to send version check request.\n"
                "Be sure the device is connected properly and that the com.corvane.tl_server package is "
                "running.";
        }
        return false;
    }
    if (!Try(&Recv, message, timedOut)) {
        if (timedOut) {
            error =
                "Did not receive a reply to the version check request.\n"
                "NOTE: this usually indicates a mismatch between a consumer vs. R&D device.\n"
                "If you have a consumer device, you need an official release of Orbis SDK to talk to it.\n"
                "Otherwise, be sure the device is connected properly and that the com.corvane.tl_server "
                "package is running.";
        }
        return false;
    }
    return ReadVersionReply(message.to_string_view(), minimumLevel, error);
}

bool SocketServerClient::Try(Transfer transfer, zmq::message_t& message, bool& timedOut) {
    constexpr std::chrono::milliseconds kLook{100};
    auto const end = std::chrono::steady_clock::now() + m_timeout;
    auto left = m_timeout;
    do {
        if (transfer(*m_socket, message, m_stop.stop_possible() ? std::min(left, kLook) : left, timedOut)) {
            return true;
        }
        left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    } while (timedOut && left.count() > 0 && !m_stop.stop_requested());
    return false;
}

bool SocketServerClient::Exchange(std::string const& request, zmq::message_t& reply) {
    zmq::message_t message(request);
    bool timedOut = false;
    return Try(&Send, message, timedOut) && Try(&Recv, reply, timedOut);
}

bool SocketServerClient::Command(std::string const& request) {
    zmq::message_t reply;
    return Exchange(request, reply) && ReadPlainReply(reply.to_string_view());
}

bool SocketServerClient::AllocateRemotePort(int& port) {
    port = -1;
    zmq::message_t reply;
    if (!Exchange("GET", reply) || !ReadPortReply(reply.to_string_view(), port)) {
        return false;
    }
    LOG_V("Got ACK %d from remote", port);
    return true;
}

bool SocketServerClient::AdvertiseVDS(int port, std::string const& name) {
    int remote = -1;
    if (!AllocateRemotePort(remote) || !PerformPortForwardReverse(SocketRole::Bind, port, remote)) {
        LOG_E("Failed to allocate port to device %s", name.c_str());
        return false;
    }
    std::string request = Request("VDS", 5);
    WriteUint16(request, 3, static_cast<std::uint16_t>(remote));
    if (!Command(request + name)) {
        return false;
    }
    LOG_V("Got ACK %d from remote", remote);
    return true;
}

bool SocketServerClient::ConnectSharedMemory(vq::vds::ServerSharedMemoryChangedEvent const& event,
                                             int& localRead, int& localWrite, int& remoteWrite,
                                             int& remoteRead) {
    if (!event.IsInitialized()) {
        LOG_E("The description of the shared memory is not complete");
        return false;
    }
    if (!CreatePortPair(SocketRole::Bind, localRead, remoteRead)) {
        LOG_E("Failed to allocate read port to device");
        return false;
    }
    if (!CreatePortPair(SocketRole::Connect, localWrite, remoteWrite)) {
        LOG_E("Failed to allocate write port to device");
        return false;
    }
    std::string request = Request("MEM", 7);
    WriteUint16(request, 3, static_cast<std::uint16_t>(remoteWrite));
    WriteUint16(request, 5, static_cast<std::uint16_t>(remoteRead));
    if (!Command(request + event.SerializeAsString())) {
        return false;
    }
    LOG_V("Got ACK from remote");
    return true;
}

bool SocketServerClient::DisconnectSharedMemory(std::string const& id, std::uint8_t flag, int localRead,
                                                int localWrite, int remoteWrite, int remoteRead) {
    std::string request = "MUM";
    request += static_cast<char>(flag);
    if (!Command(request + id)) {
        return false;
    }
    LOG_V("Got ACK from remote");
    return PerformPortUnforwardReverse(SocketRole::Bind, localRead, remoteRead) &&
           PerformPortUnforwardReverse(SocketRole::Connect, localWrite, remoteWrite);
}

bool SocketServerClient::RunRemoteTest(std::uint8_t test, std::uint16_t port, std::chrono::seconds duration) {
    std::string request = Request("TEST", 9);
    request[4] = static_cast<char>(test);
    WriteUint16(request, 5, port);
    WriteUint16(request, 7, static_cast<std::uint16_t>(duration.count()));
    if (!Command(request)) {
        return false;
    }
    LOG_V("Got ACK from remote");
    return true;
}
