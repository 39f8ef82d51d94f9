#pragma once

#include <functional>

#include "Utils/FileDescriptor.h"

namespace vq::headset {

/// A socket that listens on a port of this machine alone; not open, with errno, when it cannot.
FileDescriptor ListenLocally(int port);

/// Takes connections and passes bytes both ways between each and the port of this machine, until told to end.
/// Then ends the process: connections may still be served on threads of their own.
/// @param isNeeded  asked a few times a second
[[noreturn]] void Relay(FileDescriptor listener, int target, std::function<bool()> const& isNeeded);

}  // namespace vq::headset
