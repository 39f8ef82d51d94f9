#include "DeviceEvents.pb.h"
#include "Logging/Log.h"
#include "Messaging/MessageTypeName.h"
#include "ServerExchange.h"
#include "ServerRequests.pb.h"
#include "SettingCopy.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/StatsCollector.h"

// What the device tells the server unasked: statistics, events and changes of its settings.

void SparseDevice::ConditionallySendStatsUpdate() {
    if (!m_autoStats) {
        return;
    }
    LOG_T("SparseDevice::SendStatsUpdate");
    vq::vds::SparseDeviceStatsUpdate request;
    request.set_device_id(m_deviceId);
    request.set_name(m_descriptor->name);
    m_stats.Serialize(*request.mutable_stats());
    vq::vds::SparseDeviceStatsUpdate::Reply reply;
    vq::vds::SparseDeviceStatsUpdate::Error error;
    if (!ExchangeWithServer(m_serverPipe, request, reply, error)) {
        LOG_E("Failed to send stats update");
    } else if (error.IsInitialized()) {
        LOG_E("Received stats error from server: %s. Disabling automatic stats updates...",
              error.message().c_str());
        m_autoStats = false;
    }
}

void SparseDevice::QueueSparseDeviceEvent(google::protobuf::MessageLite const& event) {
    std::string const& type = MessageTypeName(event);
    if (!event.IsInitialized()) {
        LOG_E("Dropping incomplete event %s: %s", type.c_str(), event.InitializationErrorString().c_str());
        return;
    }
    {
        std::lock_guard const lock(m_pendingEventsMutex);
        m_pendingEvents.emplace_back(type, event.SerializeAsString());
    }
    TriggerStateChanged();
}

bool SparseDevice::SendSparseDeviceEvents() {
    std::lock_guard const lock(m_pendingEventsMutex);
    bool result = true;
    bool silent = false;
    for (auto& [type, bytes] : m_pendingEvents) {
        vq::vds::SendSparseDeviceEvent request;
        request.set_device_id(m_deviceId);
        request.set_event_type(type);
        request.set_event_data(std::move(bytes));
        vq::vds::SendSparseDeviceEvent::Reply reply;
        vq::vds::SendSparseDeviceEvent::Error error;
        // Behind a server that has not answered in time, the others could only wait as long and fail too.
        if (silent || !ExchangeWithServer(m_serverPipe, request, reply, error, kServerTimeout, &silent) ||
            error.IsInitialized()) {
            LOG_E("Failed to issue sparse device event %s : %s", type.c_str(), error.message().c_str());
            result = false;
        }
    }
    m_pendingEvents.clear();
    return result;
}

bool SparseDevice::SendSparseDeviceUserMessage(vq::sd::UserMessageCategory category, std::string const& text,
                                               std::uint64_t a, std::uint64_t b) {
    vq::sd::UserMessageEvent event;
    event.set_text(text);
    event.set_category(category);
    event.set_field_3(a);
    event.set_field_4(b);
    QueueSparseDeviceEvent(event);
    return SendSparseDeviceEvents();
}

bool SparseDevice::CancelSparseDeviceUserMessage(std::uint64_t id) {
    vq::sd::CancelUserMessageEvent event;
    event.set_id(id);
    QueueSparseDeviceEvent(event);
    return SendSparseDeviceEvents();
}

void SparseDevice::OnAnyPropertyChangedEvent(std::string const& name) {
    vq::sd::ConfigurationChangedEvent event;
    if (vq::cfg::ConfigurationSetting const* const setting = m_configurationState.settings.Find(name)) {
        CopySetting(*setting, *event.add_changed());
    } else {
        vq::cfg::ConfigurationSetting& removed = *event.add_removed();
        removed.set_name(name);
        removed.mutable_value()->set_integer_value(0);
    }
    for (auto const& [key, setting] : m_configurationState.settings.Items()) {
        CopySetting(*setting, *event.add_settings());
    }
    m_eventSender->SendEvent(event);
    TriggerStateChanged();
    OnConfigurationSettingsChanged();
}
