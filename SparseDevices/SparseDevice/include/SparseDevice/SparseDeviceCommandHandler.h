#pragma once

#include "SparseDevice/ASparseDeviceCommandHandler.h"

/// The commands that every device serves: the log, configuration, pace, recording, statistics and the end
/// of the device or its application. A command that is not among them is answered as unknown.
class SparseDeviceCommandHandler : public ASparseDeviceCommandHandler {
public:
    bool SetupCommandMap(std::unordered_map<std::string, int>& commandMap) override;

    /// @name Recording and playback
    /// For devices that record or play: each answers once on RequestPipe() and returns whether the answer was
    /// sent. Here a start of recording also queues an event with the names and data types of the device's
    /// channels, and the others only answer.
    ///@{
    virtual bool OnStartRecording(AMessage* message);
    virtual bool OnStopRecording(AMessage* message);
    virtual bool OnStartPlayback(AMessage* message);
    virtual bool OnStopPlayback(AMessage* message);
    ///@}

private:
    bool OnGetConfigurationPropertyInfo(AMessage* message);
    bool OnGetDeviceConfiguration(AMessage* message);
    bool OnSetDeviceConfiguration(AMessage* message);
    bool OnResetDeviceConfiguration(AMessage* message);
    bool OnDeserializeDeviceConfiguration(AMessage* message);
    bool OnSerializeDeviceConfiguration(AMessage* message);
    bool OnDeserializeMultiDeviceConfiguration(AMessage* message);
    bool OnSerializeMultiDeviceConfiguration(AMessage* message);
    bool OnSetDeviceMaximumUpdateRate(AMessage* message);
    bool OnGetDeviceMaximumUpdateRate(AMessage* message);
    bool OnNotifyServerStopping(AMessage* message);
    bool OnRefreshDevice(AMessage* message);
    bool OnQuitDevice(AMessage* message);
    bool OnQuitApplication(AMessage* message);
    bool OnRequestStats(AMessage* message);
    bool OnEnableAutomaticStatsCollection(AMessage* message);
};
