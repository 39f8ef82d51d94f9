#include "Peer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>
#include <vector>

#include "Codec.h"
#include "Failure.h"
#include "Utils/FileDescriptor.h"

// Over bare sockets, which this program can leave at any moment: the pipes of the messaging layer are made
// for peers that stay.

namespace vq::rigctl {

namespace {

/// Lives as long as the process. Its sockets drop what they could not send.
void* Context() {
    static void* const context = zmq_ctx_new();
    return context;
}

std::string UrlOf(std::string const& address) {
    std::size_t const colon = address.find(':');
    std::string const transport = address.substr(0, colon);
    std::string const place = colon == std::string::npos ? "" : address.substr(colon + 1);
    if (!place.empty() && transport == "SOCKET") {
        return "tcp://" + place;
    }
    if (!place.empty() && transport == "IPC") {
        return "ipc://" + place;
    }
    throw Failure(Status::BadUsage,
                  "'" + address + "' is no address to connect to: say SOCKET:host:port or IPC:/path.");
}

/// True when the system refuses a connection at once.
bool IsRefused(sockaddr const* place, socklen_t size) {
    FileDescriptor const probe(::socket(place->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (::connect(probe.Get(), place, size) == 0) {
        return false;
    }
    if (errno == EINPROGRESS) {
        // On this machine the outcome is there before the call is back; what takes longer is not refused.
        pollfd waiting{.fd = probe.Get(), .events = POLLOUT, .revents = 0};
        int error = 0;
        socklen_t length = sizeof error;
        return ::poll(&waiting, 1, 50) == 1 &&
               ::getsockopt(probe.Get(), SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == ECONNREFUSED;
    }
    return errno == ECONNREFUSED || errno == ENOENT;
}

void* Connect(int type, std::string const& address, std::string const* prefix) {
    std::string const url = UrlOf(address);
    void* const socket = zmq_socket(Context(), type);
    int const none = 0;
    zmq_setsockopt(socket, ZMQ_LINGER, &none, sizeof none);
    if (prefix != nullptr) {
        zmq_setsockopt(socket, ZMQ_SUBSCRIBE, prefix->data(), prefix->size());
    }
    if (zmq_connect(socket, url.c_str()) != 0) {
        std::string const reason = zmq_strerror(zmq_errno());
        zmq_close(socket);
        throw Failure(Status::NoServer, "Cannot connect to " + address + ": " + reason + ".");
    }
    return socket;
}

long MillisecondsUntil(Clock::time_point deadline) {
    auto const rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<long>(std::max<std::int64_t>(rest.count(), 0));
}

bool WaitFor(void* socket, short events, Clock::time_point deadline) {
    zmq_pollitem_t item{socket, 0, events, 0};
    return zmq_poll(&item, 1, MillisecondsUntil(deadline)) > 0;
}

/// All frames of the message that is there; none when there is no message.
std::vector<std::string> ReceiveFrames(void* socket) {
    std::vector<std::string> frames;
    int more = 1;
    while (more != 0) {
        zmq_msg_t frame;
        zmq_msg_init(&frame);
        if (zmq_msg_recv(&frame, socket, frames.empty() ? ZMQ_DONTWAIT : 0) < 0) {
            zmq_msg_close(&frame);
            return {};
        }
        frames.emplace_back(static_cast<char const*>(zmq_msg_data(&frame)), zmq_msg_size(&frame));
        more = zmq_msg_more(&frame);
        zmq_msg_close(&frame);
    }
    return frames;
}

/// The words of an error: its text, or the entries that were refused.
std::string WordsOf(Json::Value const& error) {
    if (error.isMember("message")) {
        return error["message"].asString();
    }
    std::string text;
    for (Json::Value const& entry : error["failed"]) {
        text += (text.empty() ? "refused: " : ", ") + entry["device"].asString() + " for " +
                entry["channel"].asString();
    }
    return text;
}

}  // namespace

bool IsDeserted(std::string const& address) {
    std::string const url = UrlOf(address);
    std::string const place = url.substr(6);
    if (url.starts_with("ipc://")) {
        sockaddr_un local{};
        local.sun_family = AF_UNIX;
        return place.size() < sizeof local.sun_path && place.copy(local.sun_path, place.size()) > 0 &&
               IsRefused(reinterpret_cast<sockaddr const*>(&local), sizeof local);
    }
    std::size_t const colon = place.rfind(':');
    std::string const host = place.substr(0, colon);
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    if (colon == std::string::npos ||
        ::inet_pton(AF_INET, host == "localhost" ? "127.0.0.1" : host.c_str(), &remote.sin_addr) != 1) {
        return false;
    }
    remote.sin_port = ::htons(static_cast<std::uint16_t>(std::atoi(place.c_str() + colon + 1)));
    return IsRefused(reinterpret_cast<sockaddr const*>(&remote), sizeof remote);
}

Peer::Peer(std::string const& address, std::string name)
    : m_name(std::move(name)), m_socket(Connect(ZMQ_REQ, address, nullptr)) {}

Peer::~Peer() {
    zmq_close(m_socket);
}

void Peer::ThrowNoAnswer(std::string const& type) const {
    throw Failure(Status::NoAnswer, "No answer from " + m_name + " to " + type + " within the time limit.");
}

Json::Value Peer::Ask(std::string const& type, Json::Value const& fields, Clock::time_point deadline) {
    Schema const& schema = Schema::Instance();
    MessageType const* const request = schema.FindMessage(type);
    MessageType const* const reply = schema.FindMessage(type + ".Reply");
    if (request == nullptr || reply == nullptr) {
        throw Failure(Status::BadUsage, "There is no request '" + type + "'.");
    }
    std::string const payload = Encode(*request, fields);
    if (!WaitFor(m_socket, ZMQ_POLLOUT, deadline)) {
        ThrowNoAnswer(type);
    }
    zmq_send(m_socket, "", 0, ZMQ_SNDMORE);
    zmq_send(m_socket, type.data(), type.size(), ZMQ_SNDMORE);
    zmq_send(m_socket, payload.data(), payload.size(), 0);
    if (!WaitFor(m_socket, ZMQ_POLLIN, deadline)) {
        ThrowNoAnswer(type);
    }
    std::vector<std::string> const answer = ReceiveFrames(m_socket);
    MessageType const* const answerType = answer.size() == 3 ? schema.FindMessage(answer[1]) : nullptr;
    if (answerType == nullptr) {
        throw Failure(Status::Refused, "An answer that makes no sense has come from " + m_name + ".");
    }
    Json::Value result = Decode(*answerType, answer[2]);
    if (answerType == reply) {
        return result;
    }
    std::string const words = WordsOf(result);
    if (words.empty() && answer[1] == type + ".Error") {
        return Json::Value(Json::objectValue);  // an error that refuses nothing
    }
    throw Failure(Status::Refused, words.empty() ? "Refused with " + answer[1] + "." : words);
}

Subscription::Subscription(std::string const& address, std::string const& prefix)
    : m_socket(Connect(ZMQ_SUB, address, &prefix)) {}

Subscription::~Subscription() {
    zmq_close(m_socket);
}

std::optional<Subscription::Event> Subscription::Take() {
    while (true) {
        std::vector<std::string> frames = ReceiveFrames(m_socket);
        if (frames.empty()) {
            return std::nullopt;
        }
        // Type, NUL, channel name, NUL, channel id.
        std::size_t const first = frames[0].find('\0');
        std::size_t const second = frames[0].find('\0', first == std::string::npos ? first : first + 1);
        if (frames.size() == 2 && second != std::string::npos) {
            return Event{.type = frames[0].substr(0, first),
                         .channel = frames[0].substr(first + 1, second - first - 1),
                         .payload = std::move(frames[1])};
        }
    }
}

bool Subscription::Wait(std::initializer_list<Subscription const*> subscriptions,
                        Clock::time_point deadline) {
    std::vector<zmq_pollitem_t> items;
    for (Subscription const* const subscription : subscriptions) {
        items.push_back({subscription->m_socket, 0, ZMQ_POLLIN, 0});
    }
    return zmq_poll(items.data(), static_cast<int>(items.size()), MillisecondsUntil(deadline)) > 0;
}

}  // namespace vq::rigctl
