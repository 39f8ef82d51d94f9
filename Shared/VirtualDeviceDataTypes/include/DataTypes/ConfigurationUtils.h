#pragma once

#include "Config.pb.h"
#include "DataTypes/ConfigurationState.h"

#include <json/value.h>

#include <map>
#include <string>

// Settings from JSON and to text. No state; any thread.

/// Reads the settings from the object `root[key]`, in the order of their names; null or absent is true. Each
/// replaces an earlier one of its name, without limits and without an event. A setting that no property
/// declares also makes a hidden property.
/// @return false with an error line at the first value that doesn't convert or fit its property; settings
///         read before it stay.
bool ParseConfigurationSettings(Json::Value const& root, std::string const& key, ConfigurationState& state);

/// Reads a change message: an object of new values.
/// @param name   names the source in the error line for something that is no object.
/// @param value  the object.
/// @param out    receives each value under its name; the settings in it have no name of their own.
/// @return false at the first value that doesn't convert; earlier ones stay in `out`.
bool ConvertJsonObjectToConfigurationSettings(std::string const& name, Json::Value const& value,
                                              std::map<std::string, vq::cfg::ConfigurationSetting>& out);

/// The value as text, strings without quotation marks.
std::string ConvertConfigurationSettingToString(vq::cfg::ConfigurationSetting const& setting);
