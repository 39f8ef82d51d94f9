#include "AddressProbe.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "Messaging/ZMQMessagePipeProvider.h"
#include "Utils/FileDescriptor.h"

namespace vq::server {

namespace {

constexpr int kTimeoutMs = 500;

bool Connects(int family, sockaddr const* address, socklen_t length) {
    FileDescriptor const socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        return false;
    }
    if (::connect(socket.Get(), address, length) == 0) {
        return true;
    }
    if (errno != EINPROGRESS) {
        return errno == EAGAIN;  // a listener whose queue is full
    }
    pollfd waiting{.fd = socket.Get(), .events = POLLOUT, .revents = 0};
    if (::poll(&waiting, 1, kTimeoutMs) != 1) {
        return false;
    }
    int error = 0;
    socklen_t size = sizeof error;
    return ::getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

bool ConnectsToFile(std::string const& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return Connects(AF_UNIX, reinterpret_cast<sockaddr const*>(&address), sizeof address);
}

bool ConnectsToHost(std::string const& location) {
    std::string host;
    int port = 0;
    if (!ZMQMessagePipeProvider::ParseHostPort(location, host, port)) {
        return false;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
        return false;
    }
    std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> const owner(found, &::freeaddrinfo);
    return Connects(found->ai_family, found->ai_addr, found->ai_addrlen);
}

}  // namespace

bool IsServed(MessageAddress const& address) {
    switch (address.transport) {
        case MessageAddress::Transport::SOCKET:
            return ConnectsToHost(address.location);
        case MessageAddress::Transport::IPC:
            return ConnectsToFile(address.location);
        case MessageAddress::Transport::NONE:
        case MessageAddress::Transport::LOOPBACK:
            break;
    }
    return false;
}

}  // namespace vq::server
