#include <fcntl.h>

#include "DeviceFixture.h"
#include "ServerRequests.pb.h"
#include "SparseDeviceHelpers/SparseDeviceMuleBase.h"

// What an application does for its devices. Programs as a whole are tested from the outside.

namespace vq::test {

namespace {

/// A device's thread as the application sees it, without a thread.
class FakeMule : public SparseDeviceMuleBase {
public:
    explicit FakeMule(std::shared_ptr<SparseDevice> device) : m_device(std::move(device)) {}
    void StopDevice() override { running = false; }
    bool IsRunning() override { return running; }
    SparseDeviceDescriptor const* GetDeviceDescriptor() const override { return nullptr; }
    bool IsRequestingExit() const override { return m_device && m_device->IsRequestingExit(); }
    std::shared_ptr<SparseDevice> GetBaseDevice() const override { return m_device; }

    bool running = true;

private:
    std::shared_ptr<SparseDevice> const m_device;
};

class Unwilling : public TestDevice {
public:
    bool OnResume() override { return TestDevice::OnResume() && false; }
};

/// A program that hangs, as does who reads its output.
void HangAtExitBehindAFullPipe() {
    TestApplication application;
    application.HookSignals();
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
    while (write(ends[1], "x", 1) == 1) {
    }
    fcntl(ends[1], F_SETFL, 0);
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    application.RequestExit();
    std::this_thread::sleep_for(60s);
    _exit(2);
}

}  // namespace

TEST(ApplicationTest, SpeaksToAllItsDevicesAndEndsWithTheLast) {
    auto const willing = std::make_shared<TestDevice>();
    auto const unwilling = std::make_shared<Unwilling>();
    FakeMule mules[] = {FakeMule(unwilling), FakeMule(nullptr), FakeMule(willing)};
    TestApplication application;
    EXPECT_TRUE(application.CheckDevicesForShutdown()) << "there are none";
    for (FakeMule& mule : mules) {
        application.AddDeviceMule(&mule);
    }
    willing->SetUpdateHertzMaximum(50);
    EXPECT_EQ(application.GetUpdateHz(), 50);

    LogCapture const log;
    application.HandleSuspend();
    EXPECT_TRUE(willing->IsSuspended() && unwilling->IsSuspended());
    EXPECT_THAT(log.Lines(), IsEmpty());
    application.HandleResume();
    EXPECT_FALSE(willing->IsSuspended() || unwilling->IsSuspended());
    EXPECT_THAT(log.Lines(), ElementsAre("E Failed to handle application resume"));

    mules[1].running = false;
    willing->RequestExit(false);
    EXPECT_FALSE(application.CheckDevicesForShutdown());
    EXPECT_TRUE(mules[0].running && !mules[2].running);
    unwilling->RequestExit(false);
    EXPECT_TRUE(application.CheckDevicesForShutdown());
    EXPECT_FALSE(application.IsExitRequested());
}

TEST_F(DeviceTest, AnApplicationFindsADeviceAndSaysForWhichNode) {
    TestApplication owner;
    server->SetDeviceAddress("stick", "IPC:somewhere");
    AMessagePipeRequestReply* const pipe = owner.GetDeviceRequestReplyPipe("stick", "left");
    ASSERT_NE(pipe, nullptr);
    EXPECT_THAT(pipe->GetRemote().location, EndsWith("somewhere"));
    EXPECT_EQ(server->Received<vq::vds::GetDeviceRequestReplyAddress>().at(0).node(), "left");
    LogCapture const log;
    EXPECT_EQ(owner.GetDeviceRequestReplyPipe("nobody", ""), nullptr);
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to get the address of nobody from the VDS"));
}

TEST(ApplicationTest, OptionsOverrideTheManifest) {
    std::string const path = HomeDirectory() + "manifest.json";
    std::ofstream(path) << R"({"ApplicationName": "app", "ApplicationLabel": "App",
        "ManifestType": "SparseDevice", "DeviceName": "puck", "DeviceType": "Generic"})";
    TestApplication application;
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
    options.exitNow = true;
    EXPECT_EXIT(application.HandleCommonSparseDeviceCLIOptions(options, path), testing::ExitedWithCode(0),
                "");
    LogCapture const log;
    EXPECT_FALSE(application.HandleCommonSparseDeviceCLIOptions({}, "no such file"));
}

TEST(ApplicationTest, EndsInTimeAlsoWhenItCannotSaySo) {
    EXPECT_EXIT(HangAtExitBehindAFullPipe(), testing::ExitedWithCode(1), "");
}

}  // namespace vq::test
