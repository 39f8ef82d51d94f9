#pragma once

#include <string>

namespace google::protobuf {
class MessageLite;
}

/// The full type name of a message, as its GetTypeName() gives it, without building the text anew: it is held
/// once a class, for the life of the process. Any thread, also while the process ends.
std::string const& MessageTypeName(google::protobuf::MessageLite const& message);
