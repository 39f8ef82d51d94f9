#include "Utils/ServerDescriptor.h"

#include <ostream>

std::ostream& operator<<(std::ostream& out, ServerDescriptor const& server) {
    return out << "ServerDescriptor: address=" << server.address
               << "; heartbeatAddress=" << server.heartbeatAddress
               << "; memoryEventAddress=" << server.memoryEventAddress << "; pid=" << server.pid
               << "; protocol=" << server.protocol << "; minimumProtocol=" << server.minimumProtocol;
}
