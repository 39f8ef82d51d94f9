#include "DataTypes/ConfigurationUtils.h"

#include "DataTypes/PropertyUtils.h"
#include "DataTypes/VariantUtils.h"
#include "JsonToVariant.h"
#include "Logging/Log.h"
#include "PropertyParsing.h"
#include "Utils/JsonUtils.h"

#include <memory>

using vq::cfg::ConfigurationProperty;
using vq::cfg::ConfigurationSetting;
using vq::cfg::Variant;

namespace {

/// Declares a hidden property for a setting that has none, of the value's own type.
bool DeclareHiddenProperty(std::string const& name, Variant const& value, ConfigurationState& state) {
    auto property = std::make_unique<ConfigurationProperty>();
    vq::cfg::CommonProperty& common = *property->mutable_common();
    common.set_name(name);
    common.set_user_visible(false);
    common.set_type(ConvertVariantValueCaseToString(value.value_case()));
    *common.mutable_default_value() = value;
    JsonPath const kind("Configuration property ");
    if (!CompletePropertyAt(JsonPath(kind, "'", name, "'"), state, common)) {
        return false;
    }
    state.properties.Add(name, std::move(property));
    return true;
}

bool ParseSetting(std::string const& name, Json::Value const& json, ConfigurationState& state) {
    JsonPath const kind("Configuration setting ");
    JsonPath const path(kind, "'", name, "'");
    auto setting = std::make_unique<ConfigurationSetting>();
    setting->set_name(name);
    Variant& value = *setting->mutable_value();
    if (!ConvertJsonAt(path, json, value)) {
        return false;
    }
    if (ConfigurationProperty const* const property = state.properties.Find(name)) {
        std::string const& type = property->common().type();
        if (!TryCoerceVariantToType(value, type, state)) {
            LOG_PLAIN_E("%s has defined Type %s but value %s", path.Text().c_str(), type.c_str(),
                        ConvertVariantToString(value, false).c_str());
            return false;
        }
    } else if (!DeclareHiddenProperty(name, value, state)) {
        return false;
    }
    state.settings.Add(name, std::move(setting));
    return true;
}

}  // namespace

bool ParseConfigurationSettings(Json::Value const& root, std::string const& key, ConfigurationState& state) {
    Json::Value const* const section = FindJsonMember(root, key);
    if (section == nullptr || section->isNull()) {
        return true;
    }
    if (!section->isObject()) {
        LOG_E("%s is expected to be an object", key.c_str());
        return false;
    }
    for (auto member = section->begin(); member != section->end(); ++member) {
        std::string const name = member.name();
        LOG_T("processing %s '%s'...", key.c_str(), name.c_str());
        if (!ParseSetting(name, *member, state)) {
            return false;
        }
    }
    return true;
}

bool ConvertJsonObjectToConfigurationSettings(std::string const& name, Json::Value const& value,
                                              std::map<std::string, ConfigurationSetting>& out) {
    if (!value.isObject()) {
        LOG_E("setting contains unexpected %s type (expected object)", name.c_str());
        return false;
    }
    // Others read these lines: the spelling stays.
    JsonPath const kind("Configuaration setting ");
    for (auto member = value.begin(); member != value.end(); ++member) {
        std::string const key = member.name();
        Variant converted;
        if (!ConvertJsonAt(JsonPath(kind, "'", key, "'"), *member, converted)) {
            return false;
        }
        *out[key].mutable_value() = std::move(converted);
    }
    return true;
}

std::string ConvertConfigurationSettingToString(ConfigurationSetting const& setting) {
    return ConvertVariantToString(setting.value(), false);
}
