#include "SimulatedHeadset/HeadsetServer.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cstdlib>

#include "Messaging/MessageAddress.h"
#include "ServerEvents.pb.h"
#include "Utils/ThreadUtils.h"

namespace vq::headset {

namespace {

constexpr char kProtocolVersion = 3;

/// `count` bytes of a number, the greatest first.
std::string Bytes(std::uint32_t value, int count) {
    std::string bytes;
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
        bytes += static_cast<char>(value >> shift);
    }
    return bytes;
}

bool IsTest(std::string const& request) {
    return request.starts_with("TEST");
}

std::string CommandOf(std::string const& request) {
    return request.substr(0, IsTest(request) ? 4 : 3);
}

std::string Accept(std::string const& content = {}) {
    return "ACK" + content;
}

std::string Refuse(std::string const& text) {
    return "NAK" + text;
}

std::string AnswerSharedMemory(std::string const& request, std::string& description) {
    vq::vds::ServerSharedMemoryChangedEvent event;
    if (request.size() < 7 || !event.ParseFromString(request.substr(7))) {
        return "ERRcannot read the event";
    }
    description = "MEM write port " + std::to_string(HeadsetServer::PortIn(request, 3)) + " read port " +
                  std::to_string(HeadsetServer::PortIn(request, 5)) + " memory '" + event.memory_id() +
                  "' of " + std::to_string(event.size()) + " bytes";
    return Accept();
}

std::string AnswerTest(std::string const& request, std::string& description) {
    if (request.size() != 9) {
        return Refuse("Bad TEST message");
    }
    description = "TEST number " + std::to_string(static_cast<unsigned char>(request[4])) + " port " +
                  std::to_string(HeadsetServer::PortIn(request, 5)) + " for " +
                  std::to_string(HeadsetServer::PortIn(request, 7)) + " s";
    return Accept();
}

}  // namespace

HeadsetServer::HeadsetServer(int port, std::uint32_t level, OnCommand onCommand)
    : m_level(level),
      m_onCommand(std::move(onCommand)),
      m_stop(::eventfd(0, EFD_CLOEXEC)),
      m_socket(m_context, ZMQ_ROUTER) {
    // Like a reply socket, but free to answer late or never. Every desktop calls itself the same.
    m_socket.set(zmq::sockopt::router_handover, true);
    m_socket.set(zmq::sockopt::linger, 0);
    m_socket.bind("tcp://127.0.0.1:" + (port == 0 ? "*" : std::to_string(port)));
    std::string const endpoint = m_socket.get(zmq::sockopt::last_endpoint);
    m_port = std::atoi(endpoint.c_str() + endpoint.rfind(':') + 1);
    BlockedSignals const blocked;
    m_thread = std::thread([this] { Run(); });
}

HeadsetServer::~HeadsetServer() {
    std::uint64_t const one = 1;
    static_cast<void>(!::write(m_stop.Get(), &one, sizeof one));
    m_thread.join();
}

bool HeadsetServer::Answer(std::string const& command, std::string const& how) {
    std::size_t const colon = how.find(':');
    std::string const kind = how.substr(0, colon);
    bool known = false;
    for (char const* const word : {"well", "nak", "err", "short", "long", "late", "silent", "exactly"}) {
        known = known || kind == word;
    }
    std::lock_guard const lock(m_mutex);
    if (known) {
        m_rules[command] = {kind, colon == std::string::npos ? "" : how.substr(colon + 1)};
    }
    return known;
}

int HeadsetServer::PortIn(std::string const& request, std::size_t at) {
    return static_cast<unsigned char>(request.at(at)) << 8 | static_cast<unsigned char>(request.at(at + 1));
}

std::vector<std::string> HeadsetServer::Requests() const {
    std::lock_guard const lock(m_mutex);
    return m_requests;
}

std::pair<std::string, std::string> HeadsetServer::RuleFor(std::string const& request) const {
    std::lock_guard const lock(m_mutex);
    auto const found = m_rules.find(CommandOf(request));
    return found == m_rules.end() ? std::pair<std::string, std::string>() : found->second;
}

void HeadsetServer::Run() {
    std::array<zmq::pollitem_t, 2> events{zmq::pollitem_t{m_socket.handle(), 0, ZMQ_POLLIN, 0},
                                          zmq::pollitem_t{nullptr, m_stop.Get(), ZMQ_POLLIN, 0}};
    while (true) {
        zmq::poll(events.data(), events.size(), std::chrono::milliseconds(-1));
        if (events[1].revents != 0) {
            return;
        }
        Frames frames;
        do {
            static_cast<void>(m_socket.recv(frames.emplace_back()));
        } while (frames.back().more());
        Serve(std::move(frames));
    }
}

void HeadsetServer::Serve(Frames frames) {
    std::string const request = frames.back().to_string();
    {
        std::lock_guard const lock(m_mutex);
        m_requests.push_back(request);
    }
    std::string description = CommandOf(request);
    std::string reply = ReplyTo(request, description);
    if (m_onCommand) {
        m_onCommand(description);
    }
    auto const [kind, argument] = RuleFor(request);
    if (kind == "nak" || kind == "err") {
        reply = (kind == "nak" ? "NAK" : "ERR") + argument;
    } else if (kind == "short") {
        reply.pop_back();
    } else if (kind == "long") {
        reply += '\0';
    } else if (kind == "exactly") {
        reply = argument;
    } else if (kind == "late") {
        pollfd stop{.fd = m_stop.Get(), .events = POLLIN, .revents = 0};
        ::poll(&stop, 1, std::atoi(argument.c_str()));
    } else if (kind == "silent") {
        return;
    }
    frames.back() = zmq::message_t(reply);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        m_socket.send(frames[i], i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
    }
}

std::string HeadsetServer::ReplyTo(std::string const& request, std::string& description) const {
    std::string const command = CommandOf(request);
    if (command == "VER") {
        bool const known = request.size() == 4 && request[3] == kProtocolVersion;
        return known ? Accept(Bytes(m_level, 4)) : Refuse("Bad VER message");
    }
    if (command == "GET" && request.size() == 3) {
        int port = 0;
        return GetEphemeralPort(port) ? Accept(Bytes(static_cast<std::uint32_t>(port), 2))
                                      : "ERRno free port";
    }
    if (command == "VDS" && request.size() > 5) {
        description = "VDS port " + std::to_string(HeadsetServer::PortIn(request, 3)) + " name '" +
                      request.substr(5) + "'";
        return Accept();
    }
    if (command == "MEM") {
        return AnswerSharedMemory(request, description);
    }
    if (command == "MUM" && request.size() > 4) {
        description = "MUM flag " + std::to_string(request[3]) + " memory '" + request.substr(4) + "'";
        return Accept();
    }
    return IsTest(request) ? AnswerTest(request, description) : Refuse("Bad " + command + " message");
}

}  // namespace vq::headset
