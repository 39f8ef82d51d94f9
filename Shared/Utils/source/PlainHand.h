#pragma once

#include <string_view>

class DumpText;

/// Prints the key points of a hand straight from the bytes of their message, a HandTrackingKeypointDataEvent,
/// when they are as every writer puts them that sets all fields: the message's own parser costs more than the
/// printing.
/// @return false when the bytes are of any other form, broken or not; nothing is printed then.
bool AppendPlainHand(DumpText& text, std::string_view payload);
