#pragma once

#include <string>

/// What the socket library's numeric socket types mean.
namespace SocketTypes {

/// "ZMQ_PAIR", "ZMQ_PUB", ...; the decimal number for a value that is no socket type.
std::string GetTypeName(int type);

/// The type that sits at the other end of a link. A value that is no socket type aborts the process.
int GetOppositeType(int type);

}  // namespace SocketTypes
