#pragma once

#include <string>
#include <string_view>

namespace ProtoUtils {

/// A channel sample as one line for logs and diagnostic tools: each field that is present as "name=value ".
/// Text that a message carries is printed as it is. Any thread.
/// @param typeName  full name of the message's type. Known are the samples of geometry, numbers and time,
///                  head, hand and eye tracking, graphics contracts, image targets, shared buffers,
///                  controllers and coordinate frames.
/// @param payload   the serialized message. Of a broken one, what could be read is printed.
/// @param text      replaced by the line, whose capacity serves again; empty for any other type.
void DumpToString(std::string_view typeName, std::string_view payload, std::string& text);

}  // namespace ProtoUtils
