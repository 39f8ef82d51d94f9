#pragma once

#include "Messaging/MessageAddress.h"

namespace vq::server {

/// True when somebody accepts connections at a physical SOCKET or IPC address. Takes up to half a second.
bool IsServed(MessageAddress const& address);

}  // namespace vq::server
