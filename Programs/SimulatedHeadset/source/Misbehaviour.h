#pragma once

#include <string>
#include <utility>

namespace vq::headset {

/// Prints the answer of the tool as a rule wants it, and tells how to end.
/// @param rule    two words, see BridgeState::SetMisbehaviour
/// @param output  what a good tool prints
/// @param code    what it exits with
/// @return the exit code; may not return at all
int AnswerBadly(std::pair<std::string, std::string> const& rule, std::string const& output, int code);

}  // namespace vq::headset
