#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "Logging/Log.h"
#include "Messaging/MessageAddress.h"
#include "Utils/FileDescriptor.h"
#include "Utils/OSUtils.h"

bool GetEphemeralPort(int& port) {
    port = 0;
    FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!socket.IsOpen()) {
        std::string const error = GetOSErrorText(GetSocketError());
        LOG_E("%s failed to allocate ephemeral port: %s", GetExecutableName().c_str(), error.c_str());
        return false;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(socket.Get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
        LOG_E("bind() error : %d", GetSocketError());
        socket.Release();  // stays open, on purpose: only a bound socket is closed here
        return false;
    }
    socklen_t length = sizeof address;
    if (::getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        LOG_E("getsockname() error : %s", GetOSErrorText(GetSocketError()).c_str());
        return false;
    }
    port = ntohs(address.sin_port);
    return true;
}
