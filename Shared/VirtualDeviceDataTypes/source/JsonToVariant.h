#pragma once

#include "Config.pb.h"
#include "JsonPath.h"
#include "Utils/JsonUtils.h"

#include <json/value.h>

#include <string_view>

/// ConvertJsonToVariant with a path that costs nothing unless there is something to say.
bool ConvertJsonAt(JsonPath const& path, Json::Value const& value, vq::cfg::Variant& out);

/// The text of a string value, without a copy. Lives as long as the value.
inline std::string_view StringViewOf(Json::Value const& value) {
    char const* begin = nullptr;
    char const* end = nullptr;
    value.getString(&begin, &end);
    return {begin, static_cast<std::size_t>(end - begin)};
}
