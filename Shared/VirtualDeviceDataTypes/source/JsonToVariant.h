#pragma once

#include "Config.pb.h"
#include "JsonPath.h"

#include <json/value.h>

/// ConvertJsonToVariant with a path that costs nothing unless there is something to say.
bool ConvertJsonAt(JsonPath const& path, Json::Value const& value, vq::cfg::Variant& out);
