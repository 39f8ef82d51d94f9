#pragma once

#include <memory>
#include <string>

#include "ChildProgram.h"

namespace vq::rigctl {

/// Starts a server and waits until it can be reached. Throws Failure, also when a signal comes first.
/// @param name       in the registry; empty: made from the address
/// @param interrupt  a descriptor that becomes readable when the wait is to end; negative: none
std::unique_ptr<ChildProgram> StartServerProgram(std::string const& address, std::string const& name,
                                                 ChildProgram::Options options, Clock::time_point deadline,
                                                 int interrupt = -1);

}  // namespace vq::rigctl
