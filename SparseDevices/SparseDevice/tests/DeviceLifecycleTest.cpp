#include "DeviceFixture.h"
#include "Messaging/ChannelFactory.h"
#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "ServerRequests.pb.h"
#include "Utils/TextUtils.h"

// Registration, the server's dropping the device, and its end.

namespace vq::test {

using namespace vq::vds;

std::vector<std::string> const kRegistration = Tokenize(
    "GetServerEventAddress GetServerDataEventBroadcastAddress RegisterSparseDevice "
    "CreateServerDataEventListenerAddress GetChannelInfos RegisterSparseDeviceChannels "
    "ReportSparseDeviceInitialized",
    " ", false);

TEST_F(DeviceTest, RegistersInOrderDescribesItselfAndTakesItsLeave) {
    TestApplication owner;
    application = &owner;
    ASSERT_TRUE(Start());
    EXPECT_EQ(server->RequestTypes(), kRegistration);

    auto const registration = server->Received<RegisterSparseDevice>().at(0);
    auto const& description = registration.description();
    EXPECT_EQ(description.name() + "," + description.display_name() + "," + description.type(),
              "puck,Puck,Generic");
    EXPECT_EQ(description.process_id(), static_cast<unsigned>(getpid()));
    EXPECT_EQ(description.second_process_id(), 0u);
    EXPECT_THAT(registration.address(), HasSubstr("sparseDevice.puck"));

    RegisterSparseDeviceChannels const channels = server->Received<RegisterSparseDeviceChannels>().at(0);
    EXPECT_EQ(channels.device_id(), 1);
    EXPECT_TRUE(channels.flag());
    std::vector<std::string> described;
    for (auto const& channel : channels.channels()) {
        described.push_back(channel.name() + "/" + channel.data_type() + "/" + channel.third_text() +
                            (channel.flag_4() ? "/resizable" : "") + (channel.flag_5() ? "/visible" : "") +
                            "/" + std::to_string(channel.role()));
    }
    EXPECT_THAT(described, ElementsAre("count/Integer/puck/visible/0", "pose/Vec3/other/resizable/0",
                                       "axis/Vec3//visible/1"));
    EXPECT_EQ(device->Producers().at("count")->GetChannelId(), 1);
    EXPECT_EQ(device->Producers().at("pose")->GetChannelId(), 2);
    EXPECT_EQ(device->Observers().at("axis")->GetChannelId(), 3);

    device.reset();
    EXPECT_EQ(server->RequestTypes().back(), "UnregisterSparseDevice");
    EXPECT_EQ(server->Received<UnregisterSparseDevice>().at(0).device_id(), 1);
}

TEST_F(DeviceTest, TypeManifestAndCommandLineDecideWhatTheServerIsTold) {
    struct Case {
        SparseDeviceType type;
        char const* deviceType;
        bool manifestAutomap, disableAutomap, isShim, automap;
    };
    Case const cases[] = {{SparseDeviceType::Identity, "Identity", true, false, false, true},
                          {SparseDeviceType::Shim, "Generic", true, true, true, false},
                          {SparseDeviceType::Generic, "Shim", false, false, true, false}};
    TestApplication owner;
    application = &owner;
    for (Case const& c : cases) {
        server->ClearRequests();
        owner.GetManifestProcessor().GetMutableAppData().disableAutomap = c.disableAutomap;
        data.deviceType = c.deviceType;
        data.automapProducerChannels = c.manifestAutomap;
        device = std::make_unique<TestDevice>(c.type);
        ASSERT_TRUE(Start());
        auto const description = server->Received<RegisterSparseDevice>().at(0).description();
        unsigned const self = static_cast<unsigned>(getpid());
        EXPECT_EQ(description.process_id(), c.isShim ? 0 : self) << c.deviceType;
        EXPECT_EQ(description.second_process_id(), c.isShim ? self : 0) << c.deviceType;
        EXPECT_EQ(server->Received<RegisterSparseDeviceChannels>().at(0).flag(), c.automap) << c.deviceType;
        device.reset();
    }
}

TEST_F(DeviceTest, ComesBackByItselfWhenTheServerHasDroppedIt) {
    data.configurationState.SetValue("gain", 1);
    ASSERT_TRUE(Start());
    AwaitSubscription();
    LogCapture const log;
    device->Dispatcher()->RegisterEventHandler(
        "vq.vds.DeviceUnregisteredEvent", std::make_shared<EventHandler>([](AMessage*) { return false; }));
    device->Configuration().SetValue("gain", 5);
    // Ids and names of others leave it alone.
    PublishUnregistered("puck", 99);
    PublishUnregistered("other", 1);
    ASSERT_TRUE(StepUntil([&] { return !device->gone.empty(); }));
    EXPECT_EQ(device->GetState(), SparseDevice::State::Initialized);
    EXPECT_THAT(device->gone, ElementsAre("other"));

    server->ClearRequests();
    PublishUnregistered("puck", 1);
    ASSERT_TRUE(StepUntil([&] { return device->DeviceId() == 2 && device->postInits == 1; }));
    EXPECT_EQ(server->RequestTypes(), kRegistration) << "no farewell, and the whole registration";
    EXPECT_EQ(server->Received<RegisterSparseDeviceChannels>().at(0).channels_size(), 3)
        << "the manifest's own channels are made again";
    EXPECT_EQ(device->Configuration().GetValue("gain").integer_value(), 5) << "live settings stay";

    server->ClearRequests();
    device->Configuration().SetValue("gain", 6);
    device->Update();
    EXPECT_EQ(server->Received<SendSparseDeviceEvent>().size(), 1u) << "a change is published once";
}

TEST_F(DeviceTest, AFailedReturnIsTriedAgainInTheNextStep) {
    ASSERT_TRUE(Start());
    AwaitSubscription();
    LogCapture const log;
    // Shared: the server answers each request by a copy.
    auto const answer = [refusals = std::make_shared<std::atomic<int>>(2)](
                            RegisterSparseDeviceChannels const&) -> FakeServer::Reply {
        if ((*refusals)-- > 0) {
            return FakeServer::Refuse("not now");
        }
        return std::make_unique<RegisterSparseDeviceChannels::Reply>();
    };
    server->On<RegisterSparseDeviceChannels>(answer);
    PublishUnregistered("puck", 1);
    ASSERT_TRUE(StepUntil([&] { return device->GetState() == SparseDevice::State::Uninitialized; }));
    server->ClearRequests();
    EXPECT_FALSE(device->Update());
    EXPECT_EQ(device->GetState(), SparseDevice::State::Uninitialized);
    EXPECT_EQ(server->RequestTypes().back(), "UnregisterSparseDevice") << "nothing half-registered stays";
    EXPECT_FALSE(device->Update());
    EXPECT_TRUE(device->Update());
    EXPECT_EQ(device->GetState(), SparseDevice::State::Initialized);
    EXPECT_EQ(device->DeviceId(), 4);
}

TEST_F(DeviceTest, InitFailsWhereverTheServerRefuses) {
    auto const refuse = [](auto const&) { return FakeServer::Refuse("no"); };
    std::pair<std::function<void()>, char const*> const cases[] = {
        {[&] { server->On<CreateServerDataEventListenerAddress>(refuse); },
         "Failed to get server data event listener address"},
        {[&] { server->Answer<RegisterSparseDevice>(wire::Bytes("1:0 2:0")); },
         "Failed to setup communication channels"},
        {[&] { server->On<GetServerDataEventBroadcastAddress>(refuse); },
         "Failed to get server data event broadcast address"},
        {[&] { server->On<GetServerEventAddress>(refuse); }, "Failed to get server event address"},
    };
    for (auto const& [prepare, line] : cases) {
        LogCapture const log;
        prepare();
        EXPECT_FALSE(device->Init(data, nullptr)) << line;
        EXPECT_TRUE(log.Has(LogLevel::Error, line)) << line;
        EXPECT_FALSE(device->IsEnabled());
        EXPECT_EQ(device->GetState(), SparseDevice::State::Uninitialized);
    }
    server->ClearRequests();
    device.reset();
    EXPECT_TRUE(server->Requests().empty()) << "who never registered takes no leave";
}

}  // namespace vq::test
