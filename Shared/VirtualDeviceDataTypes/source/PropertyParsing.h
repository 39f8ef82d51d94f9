#pragma once

#include "Config.pb.h"
#include "DataTypes/PropertyInfo.h"
#include "JsonPath.h"

#include <json/value.h>

#include <string>

// The readers of PropertyUtils.h, with paths that cost nothing unless there is something to say.

/// The string member `key` of `object`, with the error line of TryGetStringField when it is none.
/// @param out  unchanged when the member is absent.
bool ReadStringAt(JsonPath const& path, Json::Value const& object, std::string const& key, bool optional,
                  std::string& out);

bool ParseRangeInfoAt(JsonPath const& path, Json::Value const& value, PropertyInfo const& info,
                      vq::cfg::SimpleType& type);
bool CompletePropertyAt(JsonPath const& path, PropertyInfo const& info, vq::cfg::CommonProperty& property);
