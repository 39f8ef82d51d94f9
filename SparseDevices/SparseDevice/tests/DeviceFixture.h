#pragma once

#include "Messaging/AMessageManager.h"
#include "Messaging/EventDispatcher.h"
#include "Messaging/MessageUtils.h"
#include "ServerEvents.pb.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/SparseDeviceApplication.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"

namespace vq::test {

class TestDevice : public SparseDevice {
public:
    explicit TestDevice(SparseDeviceType type = SparseDeviceType::Generic) : SparseDevice(type) {}
    using SparseDevice::AddCommandHandler;

    bool OnPostInit() override {
        ++postInits;
        return true;
    }
    void OnDeviceUnregisteredEvent(std::string const& name) override { gone.push_back(name); }

    int postInits = 0;
    std::vector<std::string> gone;
};

class TestApplication : public SparseDeviceApplication {
public:
    bool RunDevices() override { return true; }
};

/// A fake server and one device, stepped by the test.
class DeviceTest : public testing::Test {
public:
    using Data = ManifestProcessor::ManifestData;

    DeviceTest() {
        data.deviceName = "puck";
        data.deviceLabel = "Puck";
        data.deviceType = "Generic";
        data.updateHertz = 1000;
        data.customChannels.emplace_back("count", "Count", "Integer", "puck", false, true);
        data.customChannels.emplace_back("pose", "Pose", "Vec3", "other", true, false);
        data.customChannels.emplace_back("axis", "Axis", "Vec3", "", false, true);
        data.producerChannels = {"pose", "count"};
        data.observerChannels = {"axis"};
    }
    ~DeviceTest() override {
        device.reset();
        AMessageManager::Instance().Cleanup();
    }

    bool Start() { return device->Init(data, application) && device->FinishInit(); }

    /// Steps the device until the condition holds; false when it does not come to pass.
    bool StepUntil(std::function<bool()> const& condition) {
        auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            device->Update();
        }
        return true;
    }

    /// Publishes an event until the device has seen one: its subscription takes a moment.
    void AwaitSubscription() {
        vq::vds::HelloEvent hello;
        hello.set_text("hello");
        ASSERT_TRUE(StepUntil([&] {
            server->Publish(hello);
            return device->EventsProcessed() > 0;
        }));
    }

    void PublishUnregistered(std::string const& name, std::int32_t id) {
        vq::vds::DeviceUnregisteredEvent event;
        event.set_name(name);
        event.set_device_id(static_cast<std::uint32_t>(id));
        server->Publish(event);
    }

    /// One exchange with the device's own pipe, as any peer would do it.
    template <class Answer, class Request>
    Answer Exchange(Request const& request) {
        RawSocket peer(ZMQ_REQ, server->DeviceAddress("puck"));
        peer.Send(FramesOf(request));
        EXPECT_TRUE(StepUntil([&] { return peer.Poll(std::chrono::milliseconds(1)); }));
        Frames const frames = peer.Receive();
        Answer answer;
        EXPECT_EQ(frames.at(1), answer.GetTypeName()) << frames.at(2);
        EXPECT_TRUE(answer.ParseFromString(frames.at(2)));
        return answer;
    }
    template <class Request>
    typename Request::Reply Ask(Request const& request) {
        return Exchange<typename Request::Reply>(request);
    }
    template <class Request>
    std::string AskForError(Request const& request) {
        return Exchange<vq::vds::Error>(request).message();
    }

    std::unique_ptr<FakeServer> server = std::make_unique<FakeServer>();
    Data data;
    SparseDeviceApplication* application = nullptr;
    std::unique_ptr<TestDevice> device = std::make_unique<TestDevice>();
};

}  // namespace vq::test
