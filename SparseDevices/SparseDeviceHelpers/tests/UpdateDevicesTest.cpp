#include "SparseDeviceHelpers/UpdateDevices.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "Messaging/EventDispatcher.h"
#include "ServerEvents.pb.h"
#include "SparseDevice/SparseDevice.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/LogCapture.h"

using namespace std::chrono_literals;
using vq::test::FakeServer;
using vq::vds::HelloEvent;
using vq::vds::ServerSharedMemoryCreatedEvent;

namespace {

/// A device with a server, whose steps a test scripts.
class ScriptedDevice : public SparseDevice {
public:
    ScriptedDevice() : SparseDevice(SparseDeviceType::Generic) {}

    bool Update() override { return onUpdate() && SparseDevice::Update(); }

    std::function<bool()> onUpdate = [] { return true; };
};

class UpdateDevicesTest : public testing::Test {
protected:
    UpdateDevicesTest() {
        ManifestProcessor::ManifestData data;
        data.deviceName = "scripted";
        data.deviceType = "Generic";
        data.updateHertz = 200;
        EXPECT_TRUE(m_device.Init(data, nullptr));
        EXPECT_TRUE(m_device.FinishInit());
    }

    void PublishHello() {
        HelloEvent event;
        event.set_text("hello");
        m_server.Publish(event);
    }

    /// Lets the device step until events reach it: the subscription takes a moment.
    void AwaitSubscription() {
        m_device.Dispatcher()->RegisterEventHandler("vq.vds.HelloEvent",
                                                    std::make_shared<EventHandler>([this](AMessage*) {
                                                        m_seen = true;
                                                        return true;
                                                    }));
        auto const deadline = std::chrono::steady_clock::now() + 30s;
        while (!m_seen && std::chrono::steady_clock::now() < deadline) {
            PublishHello();
            m_device.Update();
        }
        ASSERT_TRUE(m_seen);
        std::this_thread::sleep_for(50ms);
        m_device.Update();  // takes what is still on its way
    }

    vq::test::LogCapture m_log{LogLevel::Verbose};
    FakeServer m_server;
    ScriptedDevice m_device;
    std::vector<SparseDevice*> const m_devices{&m_device};
    bool m_seen = false;
};

}  // namespace

TEST_F(UpdateDevicesTest, NoDevicesAreReadyAtOnce) {
    EXPECT_TRUE(UpdateDevicesAndDetectEvents<HelloEvent>({}, 60s, 60s));
    EXPECT_TRUE(m_log.Has(LogLevel::Warning, "No devices in list"));
}

TEST_F(UpdateDevicesTest, WithoutTheEventsItGivesUpAfterTheTimeout) {
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_FALSE((UpdateDevicesAndDetectEvents<ServerSharedMemoryCreatedEvent>(m_devices, 300ms, 0ms)));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    EXPECT_TRUE(m_log.Has(LogLevel::Warning, "Failed to see any expected events"));

    m_device.onUpdate = [this] {
        PublishHello();
        return true;
    };
    // A settle time of nothing does not end the wait for the type that is missing.
    EXPECT_FALSE(
        (UpdateDevicesAndDetectEvents<HelloEvent, ServerSharedMemoryCreatedEvent>(m_devices, 1s, 0ms)));
    EXPECT_TRUE(m_log.Has(LogLevel::Warning, "Failed to see all the expected events"));
    EXPECT_TRUE(m_log.Has(LogLevel::Verbose, "Saw event vq.vds.HelloEvent"));
}

TEST_F(UpdateDevicesTest, EachEventStartsTheQuietAnew) {
    AwaitSubscription();
    auto const begin = std::chrono::steady_clock::now();
    m_device.onUpdate = [&] {
        if (std::chrono::steady_clock::now() - begin < 1s) {
            PublishHello();
        }
        return true;
    };
    // Also with a timeout that passes long before the events have died down.
    EXPECT_TRUE(UpdateDevicesAndDetectEvents<HelloEvent>(m_devices, 500ms, 400ms));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1300ms);
    EXPECT_EQ(m_device.Dispatcher()->GetDispatchList("vq.vds.HelloEvent").size(), 1u)
        << "the tracker's is left behind";
}

TEST_F(UpdateDevicesTest, AFailedStepEndsTheWaitAtOnceWithoutALine) {
    m_device.onUpdate = [] { return false; };
    m_log.Clear();
    EXPECT_FALSE(UpdateDevicesAndDetectEvents<HelloEvent>(m_devices, 60s, 60s));
    EXPECT_EQ(
        m_log.Lines(),
        (std::vector<std::string>{"V Waiting to see events before considering the device initialized"}));
}
