#pragma once

#include "Config.pb.h"
#include "DataTypes/PropertyInfo.h"
#include "JsonPath.h"

#include <json/value.h>

#include <string>

// The readers of PropertyUtils.h for documents whose members are looked up already, with paths that cost
// nothing unless there is something to say.

/// A member that has to be a string.
/// @param member  null when it is absent.
/// @param key     its name, for the error line.
/// @param out     unchanged when the member is absent.
bool ReadStringAt(JsonPath const& path, Json::Value const* member, char const* key, bool optional,
                  std::string& out);

/// The members of ParseRangeInfo; null for each that is absent.
struct RangeMembers {
    Json::Value const* lower;
    Json::Value const* upper;
    Json::Value const* handling;

    bool IsEmpty() const { return lower == nullptr && upper == nullptr && handling == nullptr; }
};

bool ParseRangeInfoAt(JsonPath const& path, RangeMembers const& members, PropertyInfo const& info,
                      vq::cfg::SimpleType& type);
bool CompletePropertyAt(JsonPath const& path, PropertyInfo const& info, vq::cfg::CommonProperty& property);
