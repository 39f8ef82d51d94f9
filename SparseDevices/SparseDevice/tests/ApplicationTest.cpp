#include "Messaging/AMessageManager.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/SparseDeviceApplication.h"
#include "SparseDeviceHelpers/SparseDeviceMuleBase.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "Utils/ServerRegistry.h"

// The main loop of a stand-alone program, and all that ends it.

namespace vq::test {

namespace {

/// A device's thread as the application sees it, without thread and device.
class FakeMule : public SparseDeviceMuleBase {
public:
    void StopDevice() override { running = false; }
    bool IsRunning() override { return running; }
    SparseDeviceDescriptor const* GetDeviceDescriptor() const override { return nullptr; }
    bool IsRequestingExit() const override { return requestsExit; }
    std::shared_ptr<SparseDevice> GetBaseDevice() const override { return nullptr; }

    bool running = true;
    bool requestsExit = false;
};

class LoopApplication : public SparseDeviceApplication {
public:
    ~LoopApplication() override { CleanupThreads(); }
    bool RunDevices() override {
        AddDeviceMule(mule);
        return runDevices;
    }
    float GetUpdateHz() override { return 200; }
    bool OnUpdate() override {
        bool const result = SparseDeviceApplication::OnUpdate();
        if (++passes == 3 && onThirdPass) {
            onThirdPass();
        }
        return result;
    }

    FakeMule ownMule;
    FakeMule* mule = &ownMule;
    bool runDevices = true;
    int passes = 0;
    std::function<void()> onThirdPass;
};

/// A fake server that is in the registry too.
class RegisteredServer : public FakeServer {
public:
    RegisteredServer() {
        EXPECT_TRUE(ServerRegistry::Instance().RegisterServer(m_line, std::chrono::seconds(30), nullptr));
    }
    ~RegisteredServer() {
        ServerRegistry::Instance().RemoveServer(m_line, std::chrono::seconds(30), nullptr);
        AMessageManager::Instance().Cleanup();
    }

private:
    ServerDescriptor const m_line{"fake", Address(), 12, 11, ::getpid(), Address(), Address()};
};

}  // namespace

TEST(ApplicationTest, RunsUntilItsLastDeviceHasEnded) {
    RegisteredServer server;
    LoopApplication application;
    application.GetManifestProcessor().GetMutableAppData().applicationName = "hockey";
    application.GetManifestProcessor().GetMutableAppData().applicationLabel = "Table Hockey";
    EXPECT_EQ(application.GetApplicationId(), getpid());
    application.onThirdPass = [&] {
        EXPECT_EQ(application.GetApplicationId(), 7);
        EXPECT_TRUE(application.IsRunning());
        application.mule->requestsExit = true;
    };
    ASSERT_TRUE(application.Run());
    EXPECT_FALSE(application.mule->running);
    EXPECT_FALSE(application.IsRunning());
    EXPECT_THAT(server.RequestTypes(),
                ElementsAre("RegisterDeviceApplication", "GetServerHeartbeatEventAddress",
                            "ReportDeviceApplicationInitialized", "UnregisterDeviceApplication"));
    auto const registration = server.Received<vq::vds::RegisterDeviceApplication>().at(0);
    EXPECT_EQ(registration.name(), "hockey");
    EXPECT_EQ(registration.second_name(), "Table Hockey");
    EXPECT_EQ(registration.process_id(), getpid());
    EXPECT_EQ(server.Received<vq::vds::UnregisterDeviceApplication>().at(0).application_id(), 7u);
}

TEST(ApplicationTest, CommandsOnStandardInputEndIt) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    RegisteredServer server;
    LogCapture const log;
    LoopApplication application;
    application.onThirdPass = [&] { EXPECT_EQ(write(ends[1], "\nnonsense\nhelp\nquit\n", 20), 20); };
    testing::internal::CaptureStdout();
    ASSERT_TRUE(application.Run());
    std::string const output = testing::internal::GetCapturedStdout();
    EXPECT_THAT(output, HasSubstr("Enter Command (type help for command list): "));
    EXPECT_THAT(output, HasSubstr("\nSparse Device Input Commands:\nh | help - this screen\nq | quit - "
                                  "shuts the device down and unregisters it from the VDS\n"));
    EXPECT_EQ(log.Count(LogLevel::Error, "invalid sparse device input command"), 1u);
}

TEST(ApplicationTest, DoesNotStartWithoutDevicesOrConsent) {
    LogCapture const log;
    LoopApplication application;
    RegisteredServer server;
    application.runDevices = false;
    EXPECT_FALSE(application.Run());
    EXPECT_EQ(application.passes, 0);

    server.On<vq::vds::RegisterDeviceApplication>([](vq::vds::RegisterDeviceApplication const&) {
        return FakeServer::RefuseBy<vq::vds::RegisterDeviceApplication>("full");
    });
    EXPECT_FALSE(application.Run());
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to register: full"));
}

TEST(ApplicationTest, OptionsOverrideTheManifest) {
    std::string const path = HomeDirectory() + "manifest.json";
    std::ofstream(path) << R"({"ApplicationName": "app", "ApplicationLabel": "App",
        "ManifestType": "SparseDevice", "DeviceName": "puck", "DeviceType": "Generic"})";
    LoopApplication application;
    SparseDeviceCLIOptions options;
    options.disableAutomap = true;
    ASSERT_TRUE(application.HandleCommonSparseDeviceCLIOptions(options, path));
    auto const& data = application.GetManifestProcessor().GetAppData();
    EXPECT_EQ(data.applicationName, "app");
    EXPECT_FALSE(data.disableAutomap) << "counts with a label only";
    options = {path, "Label", "name", "stick", true, false};
    ASSERT_TRUE(application.HandleCommonSparseDeviceCLIOptions(options, "no such file"));
    EXPECT_EQ(data.applicationName, "name");
    EXPECT_EQ(data.applicationLabel, "Label");
    EXPECT_TRUE(data.disableAutomap);
    EXPECT_EQ(application.GetManifestProcessor().GetData().deviceName, "stick");
    LogCapture const log;
    EXPECT_FALSE(application.HandleCommonSparseDeviceCLIOptions({}, "no such file"));
}

}  // namespace vq::test
