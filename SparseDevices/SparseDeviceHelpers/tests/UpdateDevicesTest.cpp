#include "SparseDeviceHelpers/UpdateDevices.h"

#include "Messaging/EventDispatcher.h"
#include "ServerEvents.pb.h"
#include "SparseDevice/SparseDevice.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"

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

    bool PublishHello() {
        HelloEvent event;
        event.set_text("hello");
        m_server.Publish(event);
        return true;
    }

    vq::test::LogCapture m_log{LogLevel::Verbose};
    vq::test::FakeServer m_server;
    ScriptedDevice m_device;
    std::vector<SparseDevice*> const m_devices{&m_device};
};

}  // namespace

TEST_F(UpdateDevicesTest, WithoutTheEventsItGivesUpAfterTheTimeout) {
    EXPECT_TRUE(UpdateDevicesAndDetectEvents<HelloEvent>({}, 60s, 60s)) << "nobody to wait for";
    EXPECT_TRUE(m_log.Has(LogLevel::Warning, "No devices in list"));
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_FALSE((UpdateDevicesAndDetectEvents<ServerSharedMemoryCreatedEvent>(m_devices, 300ms, 0ms)));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    EXPECT_TRUE(m_log.Has(LogLevel::Warning, "Failed to see any expected events"));

    m_device.onUpdate = [this] { return PublishHello(); };
    // A settle time of nothing does not end the wait for the type that is missing.
    EXPECT_FALSE(
        (UpdateDevicesAndDetectEvents<HelloEvent, ServerSharedMemoryCreatedEvent>(m_devices, 1s, 0ms)));
    EXPECT_TRUE(m_log.Has(LogLevel::Warning, "Failed to see all the expected events"));
    EXPECT_TRUE(m_log.Has(LogLevel::Verbose, "Saw event vq.vds.HelloEvent"));

    m_device.onUpdate = [] { return false; };
    m_log.Clear();
    EXPECT_FALSE(UpdateDevicesAndDetectEvents<HelloEvent>(m_devices, 60s, 60s)) << "a failed step ends it";
    EXPECT_FALSE(m_log.Has(LogLevel::Warning, ""));
}

TEST_F(UpdateDevicesTest, EachEventStartsTheQuietAnew) {
    // The subscription takes a moment: the second begins with the first event that arrives.
    auto begin = std::chrono::steady_clock::time_point::max();
    m_device.Dispatcher()->RegisterEventHandler("vq.vds.HelloEvent",
                                                std::make_shared<EventHandler>([&](AMessage*) {
                                                    begin = std::min(begin, std::chrono::steady_clock::now());
                                                    return true;
                                                }));
    m_device.onUpdate = [&] {
        bool const over = begin != begin.max() && std::chrono::steady_clock::now() - begin > 1s;
        return over || PublishHello();
    };
    // Also with a timeout that passes long before the events have died down.
    EXPECT_TRUE(UpdateDevicesAndDetectEvents<HelloEvent>(m_devices, 900ms, 400ms));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1300ms);
    EXPECT_EQ(m_device.Dispatcher()->GetDispatchList("vq.vds.HelloEvent").size(), 1u)
        << "the tracker's is left behind";
}
