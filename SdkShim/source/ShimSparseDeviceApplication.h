#pragma once

#include <memory>
#include <string>

#include "SparseDevice/SparseDeviceApplication.h"
#include "VDSConnectionManager.h"

namespace vq::SdkShim {

/// What a device expects of an application, in a process that belongs to somebody else: answers its
/// questions, and does nothing that a stand-alone program does. No registration, no input, no main loop, no
/// signal handlers.
class ShimSparseDeviceApplication : public SparseDeviceApplication {
public:
    /// The application's id is the process id: no server gives one.
    ShimSparseDeviceApplication();
    ~ShimSparseDeviceApplication() override;

    /// The one application of this process, made at the first call and destroyed at process exit. Any thread.
    static ShimSparseDeviceApplication* Instance();

    std::string GetVersion() const override { return "0.0.1"; }
    bool RunDevices() override { return true; }
    bool CheckDevicesForShutdown() override { return IsExitRequested(); }
    bool RegisterApplication() override { return true; }
    bool ReportInitialization() override { return true; }
    bool UnregisterApplication() override { return true; }
    void StartInputThread() override {}
    bool OnShutdown() override;
    float GetUpdateHz() override { return 10.0f; }

private:
    /// Null as long as the shim's context keeps the connection.
    std::unique_ptr<VDSConnectionManager> m_connectionManager;
};

/// The application with the set-up of its file log.
class ShimDeviceApplicationOwner : public ShimSparseDeviceApplication {
public:
    ShimDeviceApplicationOwner();
    ~ShimDeviceApplicationOwner() override;

private:
    /// Sends the process's file log, if there is one, to the file that VQ_REMOTE_LOGFILE names.
    static void ConfigureAppFileLogging();
};

}  // namespace vq::SdkShim
