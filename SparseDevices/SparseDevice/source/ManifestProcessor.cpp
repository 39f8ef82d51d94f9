#include "SparseDevice/ManifestProcessor.h"

#include "DataTypes/ConfigurationUtils.h"
#include "DataTypes/PropertyUtils.h"
#include "Logging/Log.h"
#include "Utils/JsonUtils.h"
#include "Utils/TextUtils.h"

#include <algorithm>
#include <memory>
#include <sstream>
#include <type_traits>
#include <utility>

// A list of devices is sorted and grows by moves.
static_assert(std::is_nothrow_move_constructible_v<ManifestProcessor::ManifestData>);
static_assert(std::is_nothrow_move_assignable_v<ManifestProcessor::ManifestData>);

namespace {

using ManifestData = ManifestProcessor::ManifestData;

constexpr char const* ConfigurationType = "Configuration";

/// Reads an optional text; `out` stays when the member is absent. An array or an object is an error.
bool ReadText(Json::Value const& object, char const* key, std::string& out) {
    Json::Value const* const member = FindJsonMember(object, key);
    if (member == nullptr || ConvertJsonToText(*member, out)) {
        return true;
    }
    LOG_E("expected string for %s field", key);
    return false;
}

/// Reads a text that has to be there; otherwise an error line names its owner.
bool ReadRequiredText(Json::Value const& object, char const* owner, char const* verb, char const* key,
                      std::string& out) {
    Json::Value const* const member = FindJsonMember(object, key);
    if (member == nullptr || !ConvertJsonToText(*member, out)) {
        LOG_E("%s does not %s a %s field which is required", owner, verb, key);
        return false;
    }
    return true;
}

bool ReadTextList(Json::Value const& object, char const* key, char const* error,
                  std::vector<std::string>& out) {
    Json::Value const* const list = FindJsonMember(object, key);
    if (list == nullptr) {
        return true;
    }
    std::string text;
    if (!list->isArray()) {
        LOG_E("%s", error);
        return false;
    }
    for (Json::Value const& element : *list) {
        if (!ConvertJsonToText(element, text)) {
            LOG_E("%s", error);
            return false;
        }
        out.push_back(text);
    }
    return true;
}

void ReadFlag(Json::Value const& object, char const* key, bool& out) {
    Json::Value const* const member = FindJsonMember(object, key);
    if (member != nullptr && member->isBool()) {
        out = member->asBool();
    }
}

bool ReadCustomChannels(Json::Value const& root, std::vector<ChannelDescriptor>& out) {
    Json::Value const* const list = FindJsonMember(root, "CustomChannels");
    if (list == nullptr || !list->isArray()) {
        return true;
    }
    for (Json::Value const& element : *list) {
        ChannelDescriptor channel("undefined", "undefined", "undefined", "undefined", false, true);
        if (!ManifestProcessor::ParseCustomChannel(element, &channel)) {
            return false;
        }
        out.push_back(std::move(channel));
    }
    return true;
}

/// Array types may name element types that are declared behind them, so they are checked when all are known.
void WarnOfUndefinedElementTypes(ManifestData const& data) {
    for (auto const& [name, type] : data.configurationState.arrayTypes.Items()) {
        if (!data.configurationState.IsKnownType(type->element_type())) {
            LOG_PLAIN_W("%s.%s has undefined element type '%s'", data.deviceName.c_str(), name.c_str(),
                        type->element_type().c_str());
        }
    }
}

bool ReadConfiguration(Json::Value const& root, ManifestData& data) {
    ConfigurationState& state = data.configurationState;
    auto const store = [&state](Json::Value const&, vq::cfg::CommonProperty& common) {
        auto property = std::make_unique<vq::cfg::ConfigurationProperty>();
        *property->mutable_common() = std::move(common);
        std::string const name = property->common().name();
        state.properties.Add(name, std::move(property));
        return true;
    };
    return ParseProperties("ConfigurationProperties for '" + data.deviceName + "'", root,
                           "ConfigurationProperties", state, store) &&
           ParseConfigurationSettings(root, "ConfigurationSettings", state);
}

bool ReadUpdateHertz(Json::Value const& root, float& out) {
    Json::Value const* const member = FindJsonMember(root, "UpdateHertz");
    return member == nullptr || ManifestProcessor::ParseUpdateHertz(*member, out);
}

bool IsConfiguration(Json::Value const& root) {
    Json::Value const* const type = FindJsonMember(root, "ManifestType");
    return type != nullptr && type->isString() && type->asString() == ConfigurationType;
}

}  // namespace

bool ManifestProcessor::ProcessManifest(std::string const& path) {
    if (path.empty()) {
        LOG_W("Empty path passed to ManifestProcessor::ProcessManifest");
        return true;
    }
    LOG_V("Loading sparse device manifest: %s", path.c_str());
    Json::Value root;
    std::ostringstream errors;
    if (!GetJsonRootOfFile(path, root, errors)) {
        LOG_E("Failed to parse manifest JSON data from %s\n%s", path.c_str(), errors.str().c_str());
        return false;
    }
    return ProcessManifest(root);
}

bool ManifestProcessor::ProcessManifestString(std::string const& text) {
    Json::Value root;
    std::string errors;
    if (!ParseJson(text, root, errors)) {
        LOG_E("Failed to parse manifest JSON data\n%s", errors.c_str());
        return false;
    }
    return ProcessManifest(root);
}

bool ManifestProcessor::ProcessManifest(Json::Value& root) {
    if (!ReadApplicationData(root) || !ProcessDocument(root)) {
        ResetAllData();
        return false;
    }
    return true;
}

bool ManifestProcessor::ReadApplicationData(Json::Value const& root) {
    // What an earlier document said stays when this one says nothing.
    if (m_appData.applicationLabel.empty()) {
        m_appData.applicationLabel = "Unknown Application";
    }
    if (m_appData.applicationName.empty()) {
        m_appData.applicationName = "UnknownApplication";
    }
    return ReadText(root, "ApplicationLabel", m_appData.applicationLabel) &&
           ReadText(root, "ApplicationName", m_appData.applicationName);
}

bool ManifestProcessor::ProcessDocument(Json::Value& root) {
    if (FindJsonMember(root, "Manifests") != nullptr) {
        return ProcessMultipleManifests(root["Manifests"]);
    }
    std::string type;
    if (!ReadRequiredText(root, "Manifest", "contain", "ManifestType", type)) {
        type.clear();
    }
    if (type == "SparseDevice") {
        return ProcessSparseDeviceManifest(root);
    }
    if (type == ConfigurationType) {
        return ProcessConfigurationManifest(root);
    }
    LOG_E("Invalid Manifest type");
    return false;
}

bool ManifestProcessor::ProcessMultipleManifests(Json::Value& manifests) {
    if (!manifests.isArray()) {
        LOG_E("Found Manifests entry for multiple manifests, but not expected array type");
        return false;
    }
    LOG_V("Processing multiple manifests...");
    for (Json::Value& manifest : manifests) {
        if (manifest.isNull()) {
            break;  // ends the list
        }
        if (!ProcessSparseDeviceManifest(manifest)) {
            return false;
        }
    }
    // Stable, so that of a device and its separate configuration the one declared first is found.
    std::stable_sort(m_datas.begin(), m_datas.end(), [](ManifestData const& left, ManifestData const& right) {
        return left.deviceName < right.deviceName;
    });
    return true;
}

bool ManifestProcessor::ReadNames(Json::Value const& root, bool mayRepeat, ManifestData& data) const {
    if (!ReadRequiredText(root, "Manifest", "contain", "DeviceName", data.deviceName)) {
        return false;
    }
    // The list is not sorted while a document is read.
    if (!mayRepeat && std::any_of(m_datas.begin(), m_datas.end(), [&data](ManifestData const& known) {
            return known.deviceName == data.deviceName;
        })) {
        LOG_E("Found duplicate entry for device %s in multi-manifest, which is forbidden",
              data.deviceName.c_str());
        return false;
    }
    data.deviceLabel = data.deviceName;
    return ReadText(root, "DeviceLabel", data.deviceLabel);
}

bool ManifestProcessor::ProcessSparseDeviceManifest(Json::Value& root) {
    ManifestData data;
    if (!ReadNames(root, IsConfiguration(root), data) ||
        !ReadRequiredText(root, "Manifest", "contain", "DeviceType", data.deviceType) ||
        !ParseTypeInfo(root, data.configurationState)) {
        return false;
    }
    WarnOfUndefinedElementTypes(data);
    if (!ReadConfiguration(root, data) || !ReadUpdateHertz(root, data.updateHertz) ||
        !ReadTextList(root, "ProducerChannels", "Producer Channels should be an array",
                      data.producerChannels) ||
        !ReadTextList(root, "ObserverChannels", "Observer Channels should be an array",
                      data.observerChannels) ||
        !ReadCustomChannels(root, data.customChannels)) {
        return false;
    }
    ReadFlag(root, "AutomapProducerChannels", data.automapProducerChannels);
    m_datas.push_back(std::move(data));
    return true;
}

bool ManifestProcessor::ProcessConfigurationManifest(Json::Value& root) {
    ManifestData data;
    if (!ReadNames(root, false, data) || !ReadText(root, "DeviceType", data.deviceType) ||
        !ReadConfiguration(root, data)) {
        return false;
    }
    m_datas.push_back(std::move(data));
    return true;
}

bool ManifestProcessor::ParseUpdateHertz(Json::Value const& value, float& out) {
    if (value.isNumeric()) {
        out = static_cast<float>(value.asDouble());
        return true;
    }
    if (!value.isString()) {
        LOG_PLAIN_E("UpdateHertz should be a numeric or a string");
        return false;
    }
    std::string const word = ToLower(value.asString());
    if (word == "standard") {
        out = 10;
    } else if (word == "realtime") {
        out = 30;
    } else if (word == "unlimited") {
        out = 1001;
    } else {
        LOG_PLAIN_E("UpdateHertz should be standard, realtime, or unlimited");
        return false;
    }
    return true;
}

bool ManifestProcessor::ParseCustomChannel(Json::Value const& value, ChannelDescriptor* out) {
    if (!ReadRequiredText(value, "Custom Channel", "have", "ChannelName", out->name)) {
        return false;
    }
    out->label = out->name;
    if (!ReadText(value, "ChannelLabel", out->label) ||
        !ReadRequiredText(value, "Custom Channel", "have", "ChannelType", out->dataType) ||
        !ReadText(value, "DefaultProducer", out->defaultProducer)) {
        return false;
    }
    ReadFlag(value, "Resizable", out->resizable);
    ReadFlag(value, "UserVisible", out->userVisible);
    return true;
}
