#include "Relay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <thread>

namespace vq::headset {

namespace {

constexpr int kLookPeriodMs = 300;

sockaddr_in LocalAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

FileDescriptor NewSocket() {
    return FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
}

void Copy(int from, int to) {
    std::array<char, 65536> buffer;
    ssize_t count = 0;
    while ((count = ::recv(from, buffer.data(), buffer.size(), 0)) > 0) {
        for (ssize_t sent = 0, step = 0; sent < count; sent += step) {
            step = ::send(to, buffer.data() + sent, static_cast<std::size_t>(count - sent), MSG_NOSIGNAL);
            if (step < 0) {
                ::shutdown(from, SHUT_RD);
                return;
            }
        }
    }
    ::shutdown(to, SHUT_WR);
}

/// One connection, both ways.
void Serve(FileDescriptor near, int target) {
    FileDescriptor const far = NewSocket();
    sockaddr_in const address = LocalAddress(target);
    if (::connect(far.Get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        return;
    }
    std::thread back([&] { Copy(far.Get(), near.Get()); });
    Copy(near.Get(), far.Get());
    back.join();
}

}  // namespace

FileDescriptor ListenLocally(int port) {
    FileDescriptor listener = NewSocket();
    int const yes = 1;
    ::setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in const address = LocalAddress(port);
    if (::bind(listener.Get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
        ::listen(listener.Get(), SOMAXCONN) != 0) {
        listener.Reset();
    }
    return listener;
}

void Relay(FileDescriptor listener, int target, std::function<bool()> const& isNeeded) {
    while (isNeeded()) {
        pollfd ready{.fd = listener.Get(), .events = POLLIN, .revents = 0};
        if (::poll(&ready, 1, kLookPeriodMs) != 1) {
            continue;
        }
        FileDescriptor connection(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection) {
            std::thread([target](FileDescriptor near) { Serve(std::move(near), target); },
                        std::move(connection))
                .detach();
        }
    }
    ::_exit(0);
}

}  // namespace vq::headset
