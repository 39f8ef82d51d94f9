#include "SparseDevice/ManifestProcessor.h"

#include "DataTypes/VariantUtils.h"
#include "Logging/Log.h"

#include <json/writer.h>

#include <algorithm>
#include <utility>

namespace {

using ManifestData = ManifestProcessor::ManifestData;

/// The first device whose name isn't less, in a sorted list.
std::vector<ManifestData>::iterator LowerBound(std::vector<ManifestData>& datas, std::string const& name) {
    return std::lower_bound(
        datas.begin(), datas.end(), name,
        [](ManifestData const& data, std::string const& sought) { return data.deviceName < sought; });
}

/// The first device, made when there is none.
ManifestData& EnsureFirst(std::vector<ManifestData>& datas) {
    if (datas.empty()) {
        LOG_W("No manifest data found, creating empty data...");
        datas.emplace_back();
    } else if (datas.size() > 1) {
        LOG_W("More than one manifest data entry found, returning first data entry");
    }
    return datas.front();
}

/// The device of that name, made at its sorted place when there is none.
ManifestData& EnsureNamed(std::vector<ManifestData>& datas, std::string const& name) {
    auto const place = LowerBound(datas, name);
    if (place != datas.end() && place->deviceName == name) {
        return *place;
    }
    LOG_W("Unable to find manifest entry for %s, creating empty data...", name.c_str());
    ManifestData data;
    data.deviceName = name;
    return *datas.insert(place, std::move(data));
}

void WarnIfEmpty(std::vector<ManifestData> const& datas) {
    if (datas.empty()) {
        LOG_W("Manifest datas empty");
    }
}

}  // namespace

void ManifestProcessor::ResetAllData() {
    m_datas.clear();
}

ManifestData const& ManifestProcessor::GetData() const {
    return EnsureFirst(m_datas);
}

ManifestData& ManifestProcessor::GetMutableData() {
    return EnsureFirst(m_datas);
}

ManifestData const& ManifestProcessor::GetData(std::string const& deviceName) const {
    return EnsureNamed(m_datas, deviceName);
}

ManifestData& ManifestProcessor::GetMutableData(std::string const& deviceName) {
    return EnsureNamed(m_datas, deviceName);
}

ManifestData const* ManifestProcessor::GetDataForDevice(std::string const& deviceName) const {
    auto const place = LowerBound(m_datas, deviceName);
    return place != m_datas.end() && place->deviceName == deviceName ? &*place : nullptr;
}

std::vector<ManifestData> const& ManifestProcessor::GetDatas() const {
    WarnIfEmpty(m_datas);
    return m_datas;
}

std::vector<ManifestData>& ManifestProcessor::GetMutableDatas() {
    WarnIfEmpty(m_datas);
    return m_datas;
}

Json::Value ManifestProcessor::BuildConfigurationJsonObject(ManifestData const& data) {
    Json::Value settings(Json::objectValue);
    for (auto const& [name, setting] : data.configurationState.settings.Items()) {
        Json::Value value;
        if (ConvertVariantToJson(setting->value(), value)) {
            settings[name] = std::move(value);
        }
    }
    Json::Value root(Json::objectValue);
    root["DeviceName"] = data.deviceName;
    root["DeviceLabel"] = data.deviceLabel;
    root["DeviceType"] = data.deviceType;
    root["ManifestType"] = "Configuration";
    root["ConfigurationSettings"] = std::move(settings);
    return root;
}

std::string ManifestProcessor::BuildConfigurationJsonString(ManifestData const& data) {
    return Json::StyledWriter().write(BuildConfigurationJsonObject(data));
}

std::string ManifestProcessor::BuildMultiConfigurationJsonString(std::vector<ManifestData> const& datas) {
    Json::Value manifests(Json::arrayValue);
    for (ManifestData const& data : datas) {
        manifests.append(BuildConfigurationJsonObject(data));
    }
    Json::Value root(Json::objectValue);
    root["Version"] = 2;
    root["Manifests"] = std::move(manifests);
    return Json::StyledWriter().write(root);
}
