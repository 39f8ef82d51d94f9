#pragma once

#include <json/value.h>

#include <string>
#include <string_view>
#include <vector>

#include "Schema.h"

namespace vq::rigctl {

// Between serialized messages and JSON. Enumerations are names, bytes are hexadecimal digits, numbers that
// JSON does not know (infinity) are texts.

/// Every field that is set, and every repeated field. Fields that the schema does not know are left out.
/// Throws Failure when the message is broken.
Json::Value Decode(MessageType const& type, std::string_view message);

/// Throws Failure when a field is unknown or missing, or a value does not fit; texts are taken for the
/// numbers, flags and names that they spell.
std::string Encode(MessageType const& type, Json::Value const& fields);

/// Adds a field given as NAME=VALUE; a name with dots leads into inner messages. A repeated field gets one
/// more element; a message, and a whole repeated field, may be given as JSON. Throws Failure.
void AddField(MessageType const& type, std::string const& argument, Json::Value& fields);

/// "repeated string names, optional bool remove".
std::string DescribeFields(MessageType const& type);

}  // namespace vq::rigctl
