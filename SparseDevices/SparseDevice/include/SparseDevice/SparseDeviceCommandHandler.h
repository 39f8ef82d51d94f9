#pragma once

#include "SparseDevice/ASparseDeviceCommandHandler.h"

/// The commands that every device serves: configuration, pace, statistics and the end of the device or its
/// application. A command that is not among them is answered as unknown.
class SparseDeviceCommandHandler : public ASparseDeviceCommandHandler {
public:
    bool SetupCommandMap(std::unordered_map<std::string, int>& commandMap) override;

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
