#include "SparseDevice/SparseDeviceCommandHandler.h"

#include "CommandReply.h"
#include "DeviceRequests.pb.h"
#include "Messaging/MessageTypeName.h"
#include "SparseDevice/LogCommands.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/StatsCollector.h"

// The command map, and the commands for pace, statistics and the end of the device.

bool SparseDeviceCommandHandler::SetupCommandMap(std::unordered_map<std::string, int>& commandMap) {
    using Self = SparseDeviceCommandHandler;
    auto const add = [&](google::protobuf::MessageLite const& request, bool (Self::*handler)(AMessage*)) {
        AddCommand(commandMap, MessageTypeName(request),
                   [this, handler](AMessage* message) { return (this->*handler)(message); });
    };
    using namespace vq::sd;
    AddCommand(commandMap, MessageTypeName(GetLogParameters::default_instance()), [this](AMessage* message) {
        return OnGetLogParameters<GetLogParameters>(RequestPipe(), message);
    });
    AddCommand(commandMap, MessageTypeName(SetLogParameters::default_instance()), [this](AMessage* message) {
        return OnSetLogParameters<SetLogParameters>(RequestPipe(), message);
    });
    add(GetConfigurationPropertyInfo::default_instance(), &Self::OnGetConfigurationPropertyInfo);
    add(GetDeviceConfiguration::default_instance(), &Self::OnGetDeviceConfiguration);
    add(SetDeviceConfiguration::default_instance(), &Self::OnSetDeviceConfiguration);
    add(ResetDeviceConfiguration::default_instance(), &Self::OnResetDeviceConfiguration);
    add(DeserializeDeviceConfiguration::default_instance(), &Self::OnDeserializeDeviceConfiguration);
    add(SerializeDeviceConfiguration::default_instance(), &Self::OnSerializeDeviceConfiguration);
    add(DeserializeMultiDeviceConfiguration::default_instance(),
        &Self::OnDeserializeMultiDeviceConfiguration);
    add(SerializeMultiDeviceConfiguration::default_instance(), &Self::OnSerializeMultiDeviceConfiguration);
    add(SetDeviceMaximumUpdateRate::default_instance(), &Self::OnSetDeviceMaximumUpdateRate);
    add(GetDeviceMaximumUpdateRate::default_instance(), &Self::OnGetDeviceMaximumUpdateRate);
    add(NotifyServerStopping::default_instance(), &Self::OnNotifyServerStopping);
    add(RefreshDevice::default_instance(), &Self::OnRefreshDevice);
    add(QuitDevice::default_instance(), &Self::OnQuitDevice);
    add(QuitApplication::default_instance(), &Self::OnQuitApplication);
    add(StartRecording::default_instance(), &Self::OnStartRecording);
    add(StopRecording::default_instance(), &Self::OnStopRecording);
    add(StartPlayback::default_instance(), &Self::OnStartPlayback);
    add(StopPlayback::default_instance(), &Self::OnStopPlayback);
    add(RequestStats::default_instance(), &Self::OnRequestStats);
    add(EnableAutomaticStatsCollection::default_instance(), &Self::OnEnableAutomaticStatsCollection);
    return true;
}

bool SparseDeviceCommandHandler::OnSetDeviceMaximumUpdateRate(AMessage* message) {
    Device()->SetUpdateHertzMaximum(
        DecodeCommand<vq::sd::SetDeviceMaximumUpdateRate>(RequestPipe(), message).hertz());
    return SendReply(RequestPipe(), vq::sd::SetDeviceMaximumUpdateRate::Reply());
}

bool SparseDeviceCommandHandler::OnGetDeviceMaximumUpdateRate(AMessage* /*message*/) {
    vq::sd::GetDeviceMaximumUpdateRate::Reply reply;
    reply.set_hertz(Device()->GetUpdateHertzMaximum());
    return SendReply(RequestPipe(), reply);
}

bool SparseDeviceCommandHandler::OnNotifyServerStopping(AMessage* /*message*/) {
    // The server may be gone already.
    MessageUtils::Send(RequestPipe(), vq::sd::NotifyServerStopping::Reply(), std::chrono::milliseconds(1),
                       nullptr);
    Device()->OnServerStopping();
    return true;
}

// Who asked is answered before anything ends.

bool SparseDeviceCommandHandler::OnRefreshDevice(AMessage* /*message*/) {
    bool const sent = SendReply(RequestPipe(), vq::sd::RefreshDevice::Reply());
    Device()->TriggerStateChanged();
    return sent;
}

bool SparseDeviceCommandHandler::OnQuitDevice(AMessage* /*message*/) {
    bool const sent = SendReply(RequestPipe(), vq::sd::QuitDevice::Reply());
    Device()->RequestExit(false);
    return sent;
}

bool SparseDeviceCommandHandler::OnQuitApplication(AMessage* /*message*/) {
    bool const sent = SendReply(RequestPipe(), vq::sd::QuitApplication::Reply());
    Device()->RequestExit(true);
    return sent;
}

bool SparseDeviceCommandHandler::OnRequestStats(AMessage* /*message*/) {
    vq::sd::RequestStats::Reply reply;
    Device()->Stats().Serialize(*reply.mutable_stats());
    return SendReply(RequestPipe(), reply);
}

bool SparseDeviceCommandHandler::OnEnableAutomaticStatsCollection(AMessage* message) {
    Device()->EnableAutoStats(
        DecodeCommand<vq::sd::EnableAutomaticStatsCollection>(RequestPipe(), message).enabled());
    return SendReply(RequestPipe(), vq::sd::EnableAutomaticStatsCollection::Reply());
}
