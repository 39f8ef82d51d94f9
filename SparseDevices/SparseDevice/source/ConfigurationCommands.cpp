#include <exception>

#include "CommandReply.h"
#include "DataTypes/PropertyUtils.h"
#include "DataTypes/VariantUtils.h"
#include "DeviceRequests.pb.h"
#include "Logging/Log.h"
#include "ServerRequests.pb.h"
#include "SettingCopy.h"
#include "SparseDevice/ManifestProcessor.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/SparseDeviceCommandHandler.h"

// The commands that read and change a device's settings, and those that only turn settings into text and
// back.

namespace {

template <class Message>
void CopySettings(ConfigurationState const& state, Message& message) {
    for (auto const& [name, setting] : state.settings.Items()) {
        CopySetting(*setting, *message.add_settings());
    }
}

template <class Message>
ManifestProcessor::ManifestData MakeData(Message const& message) {
    ManifestProcessor::ManifestData data;
    data.deviceName = message.name();
    data.deviceLabel = message.label();
    for (vq::cfg::ConfigurationSetting const& setting : message.settings()) {
        data.configurationState.SetValue(setting.name(), setting.value());
    }
    return data;
}

template <class Message>
void FillFromData(ManifestProcessor::ManifestData const& data, Message& message) {
    message.set_name(data.deviceName);
    message.set_label(data.deviceLabel);
    CopySettings(data.configurationState, message);
}

/// Reads the manifest in a request. One that declares an enumeration with nothing to choose makes the message
/// library throw, and comes from anybody: it must not end the device.
bool ReadText(ManifestProcessor& processor, std::string const& text) {
    try {
        return processor.ProcessManifestString(text);
    } catch (std::exception const& error) {
        LOG_E("The manifest cannot be read: %s", error.what());
        return false;
    }
}

std::string MismatchText(std::string const& name, vq::cfg::Variant const& value, std::string const& type) {
    return "Cannot set property '" + name + "' to incompatible value " +
           ConvertVariantToString(value, false) + "; type is " + type;
}

bool RefuseText(AMessagePipeRequestReply* pipe) {
    return MessageUtils::SendErrorAndLog<vq::vds::Error>(pipe, "manifest parse error (see log)");
}

}  // namespace

bool SparseDeviceCommandHandler::OnGetConfigurationPropertyInfo(AMessage* /*message*/) {
    LOG_T("SparseDeviceCommandHandler::OnGetConfigurationPropertyInfo");
    ConfigurationState const& state = Device()->Configuration();
    vq::sd::GetConfigurationPropertyInfo::Reply reply;
    vq::sd::ConfigurationPropertyInfo& info = *reply.mutable_info();
    for (auto const& [name, property] : state.properties.Items()) {
        *info.add_properties() = *property;
    }
    FillCommonPropertyInfo(state, *info.mutable_common());
    return SendReply(RequestPipe(), reply);
}

bool SparseDeviceCommandHandler::OnGetDeviceConfiguration(AMessage* /*message*/) {
    LOG_T("SparseDeviceCommandHandler::OnGetDeviceConfiguration");
    vq::sd::GetDeviceConfiguration::Reply reply;
    CopySettings(Device()->Configuration(), reply);
    return SendReply(RequestPipe(), reply);
}

bool SparseDeviceCommandHandler::OnSetDeviceConfiguration(AMessage* message) {
    LOG_T("SparseDeviceCommandHandler::OnSetDeviceConfiguration");
    auto const request = DecodeCommand<vq::sd::SetDeviceConfiguration>(RequestPipe(), message);
    ConfigurationState& state = Device()->Configuration();
    for (vq::cfg::ConfigurationSetting const& setting : request.settings()) {
        std::string const& name = setting.name();
        vq::cfg::Variant value = setting.value();
        vq::cfg::ConfigurationProperty const* const property = state.properties.Find(name);
        if (property == nullptr) {
            LOG_PLAIN_W("Setting unknown property '%s' on %s", name.c_str(),
                        Device()->Descriptor()->name.c_str());
        } else if (std::string const& type = property->common().type();
                   !TryCoerceVariantToType(value, type, state)) {
            return MessageUtils::SendErrorAndLog<vq::sd::SetDeviceConfiguration::Error>(
                RequestPipe(), MismatchText(name, value, type));
        }
        state.SetValue(name, std::move(value));
    }
    return SendReply(RequestPipe(), vq::sd::SetDeviceConfiguration::Reply());
}

bool SparseDeviceCommandHandler::OnResetDeviceConfiguration(AMessage* message) {
    LOG_T("SparseDeviceCommandHandler::OnResetDeviceConfiguration");
    auto const request = DecodeCommand<vq::sd::ResetDeviceConfiguration>(RequestPipe(), message);
    ConfigurationState& state = Device()->Configuration();
    LOG_V("Before ResetDeviceConfiguration: %u keys", static_cast<unsigned>(state.settings.Size()));
    for (std::string const& name : request.names()) {
        vq::cfg::ConfigurationProperty const* const property = state.properties.Find(name);
        if (!request.remove() && property != nullptr) {
            vq::cfg::Variant value;
            GetTypeDefaultValue(state, property->common(), value);
            state.SetValue(name, std::move(value));
        } else {
            state.RemoveValue(name);
        }
    }
    LOG_V("After ResetDeviceConfiguration: %u keys", static_cast<unsigned>(state.settings.Size()));
    return SendReply(RequestPipe(), vq::sd::ResetDeviceConfiguration::Reply());
}

bool SparseDeviceCommandHandler::OnDeserializeDeviceConfiguration(AMessage* message) {
    LOG_T("SparseDeviceCommandHandler::OnDeserializeDeviceConfiguration");
    auto const request = DecodeCommand<vq::sd::DeserializeDeviceConfiguration>(RequestPipe(), message);
    ManifestProcessor processor;
    if (!ReadText(processor, request.text())) {
        return RefuseText(RequestPipe());
    }
    vq::sd::DeserializeDeviceConfiguration::Reply reply;
    FillFromData(processor.GetData(), reply);
    return SendReply(RequestPipe(), reply);
}

bool SparseDeviceCommandHandler::OnSerializeDeviceConfiguration(AMessage* message) {
    LOG_T("SparseDeviceCommandHandler::OnSerializeDeviceConfiguration");
    auto const request = DecodeCommand<vq::sd::SerializeDeviceConfiguration>(RequestPipe(), message);
    vq::sd::SerializeDeviceConfiguration::Reply reply;
    reply.set_text(ManifestProcessor::BuildConfigurationJsonString(MakeData(request)));
    return SendReply(RequestPipe(), reply);
}

bool SparseDeviceCommandHandler::OnDeserializeMultiDeviceConfiguration(AMessage* message) {
    LOG_T("SparseDeviceCommandHandler::OnDeserializeMultiDeviceConfiguration");
    auto const request = DecodeCommand<vq::sd::DeserializeMultiDeviceConfiguration>(RequestPipe(), message);
    ManifestProcessor processor;
    if (!ReadText(processor, request.text())) {
        return RefuseText(RequestPipe());
    }
    vq::sd::DeserializeMultiDeviceConfiguration::Reply reply;
    for (ManifestProcessor::ManifestData const& data : processor.GetDatas()) {
        FillFromData(data, *reply.add_devices());
    }
    return SendReply(RequestPipe(), reply);
}

bool SparseDeviceCommandHandler::OnSerializeMultiDeviceConfiguration(AMessage* message) {
    LOG_T("SparseDeviceCommandHandler::OnSerializeMultiDeviceConfiguration");
    auto const request = DecodeCommand<vq::sd::SerializeMultiDeviceConfiguration>(RequestPipe(), message);
    std::vector<ManifestProcessor::ManifestData> datas;
    for (vq::sd::DeviceConfigurationData const& device : request.devices()) {
        datas.push_back(MakeData(device));
    }
    vq::sd::SerializeMultiDeviceConfiguration::Reply reply;
    reply.set_text(ManifestProcessor::BuildMultiConfigurationJsonString(datas));
    return SendReply(RequestPipe(), reply);
}
