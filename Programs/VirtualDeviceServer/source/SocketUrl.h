#pragma once

#include <string>

#include "Messaging/MessageAddress.h"
#include "Messaging/ZMQMessagePipeBase.h"

namespace vq::server {

/// A physical address as the socket library wants it. (The pipe provider would do it, and remember the
/// address for good.)
inline std::string UrlOf(MessageAddress const& address) {
    std::string url = "inproc://";
    if (address.transport == MessageAddress::Transport::SOCKET) {
        url = "tcp://";
    } else if (address.transport == MessageAddress::Transport::IPC) {
        url = "ipc://";
    }
    url.append(address.location);
    return url;
}

/// What to watch for news of a pipe's socket.
inline int DescriptorOf(ZMQMessagePipeBase const& pipe) {
    return static_cast<int>(pipe.GetSocket()->get(zmq::sockopt::fd));
}

}  // namespace vq::server
