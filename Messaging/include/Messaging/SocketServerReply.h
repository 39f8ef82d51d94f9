#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Replies of a headset's socket server, taken apart. No state; any thread. What is wrong is logged.

/// Is it the word for success?
bool IsAck(std::string_view reply);

/// Says what a reply means that is not the one wanted.
/// @param error  the peer's own text, or what is wrong with the reply
void HandleErrors(std::string_view reply, std::string& error);

/// The same, with the text logged; always false.
bool HandleErrorsAndLog(std::string_view reply);

/// A reply that carries nothing.
bool ReadPlainReply(std::string_view reply);

/// A reply that carries a port.
/// @param port  1 to 65535; -1 on failure
bool ReadPortReply(std::string_view reply, int& port);

/// A reply that carries the headset's platform API level.
/// @param error  for the user, when the level is below the minimum or the reply is another one
bool ReadVersionReply(std::string_view reply, std::uint32_t minimumLevel, std::string& error);
