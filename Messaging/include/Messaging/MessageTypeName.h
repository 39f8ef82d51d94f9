#pragma once

#include <string>
#include <string_view>

namespace google::protobuf {
class MessageLite;
}

// The type names of message classes, held once a class for the life of the process: building one anew, or
// copying it into each message, costs as much as sending a small message. Any thread, also while the process
// ends.

/// The full type name of a message, as its GetTypeName() gives it.
std::string const& MessageTypeName(google::protobuf::MessageLite const& message);

/// The held form of a name that MessageTypeName has given before; null for any other text.
std::string const* FindMessageTypeName(std::string_view name);
