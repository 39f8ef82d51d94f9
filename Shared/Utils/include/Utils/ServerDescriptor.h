#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "Messaging/MessageAddress.h"

/// One running server, as it entered itself in the registry. A plain value.
struct ServerDescriptor {
    /// Never empty in a readable entry.
    std::string name;
    /// Where it takes requests.
    MessageAddress address;
    /// Protocol version that it speaks.
    std::int32_t protocol = 0;
    /// Oldest protocol version that it still accepts.
    std::int32_t minimumProtocol = 0;
    /// Process id, informative only: nobody tests whether the process lives.
    std::int32_t pid = 0;
    /// Where it publishes its heartbeat.
    MessageAddress heartbeatAddress;
    /// Where shared-memory events are sent.
    MessageAddress memoryEventAddress;
};

/// Writes everything but the name on one line, for the log.
std::ostream& operator<<(std::ostream& out, ServerDescriptor const& server);
