#include "ChannelData.pb.h"
#include "DeviceEvents.pb.h"
#include "DeviceFixture.h"
#include "Messaging/ChannelData.h"
#include "Messaging/ChannelDataTypes.h"
#include "Messaging/ChannelFactory.h"
#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "ServerRequests.pb.h"
#include "TestSupport/Test.h"

// What a registered device asks and tells the server, and what flows through its channels.

namespace vq::test {

using namespace vq::vds;

TEST_F(DeviceTest, ChoosesAProviderByPriorityAndFallsBack) {
    ASSERT_TRUE(Start());
    struct Case {
        std::vector<std::pair<std::string, std::string>> mappings;
        std::vector<std::string> priorities;
        char const *first, *byPriority;
    };
    for (Case const& c : {Case{{}, {"a"}, "", ""},
                          {{{"a", "other"}}, {"a"}, "", ""},
                          {{{"a", "c"}, {"b", "c"}}, {}, "a", ""},
                          {{{"a", "c"}, {"b", "c"}}, {"b", "a"}, "a", "b"},
                          {{{"x", "c"}, {"b", "c"}}, {"a", "b"}, "x", "b"},
                          {{{"x", "c"}, {"y", "c"}, {"a", "other"}}, {"a"}, "x", "y"}}) {
        server->SetMappings(c.mappings);
        EXPECT_EQ(device->GetChannelProviderDeviceName("c"), c.first);
        EXPECT_EQ(device->GetChannelProviderDeviceNameByPriority("c", c.priorities), c.byPriority);
    }
    server->SetDeviceAddress("y", "IPC:somewhere");
    AMessagePipeRequestReply* const pipe =
        device->GetChannelProviderDeviceRequestReplyPipe("c", {"a"}, "node");
    ASSERT_NE(pipe, nullptr);
    EXPECT_THAT(pipe->GetRemote().location, EndsWith("somewhere"));
    EXPECT_EQ(device->GetChannelProviderDeviceRequestReplyPipe("c", {}, ""), nullptr) << "x has no address";
    GetDeviceRequestReplyAddress const request = server->Received<GetDeviceRequestReplyAddress>().at(0);
    EXPECT_TRUE(request.has_flag() && !request.flag());
    EXPECT_FALSE(request.has_node());
}

TEST_F(DeviceTest, GivesUpOnASilentServerAfterFourAttempts) {
    ASSERT_TRUE(Start());
    server->On<GetChannelMappings>([](GetChannelMappings const&) { return nullptr; });
    LogCapture const log;
    auto const start = std::chrono::steady_clock::now();
    EXPECT_EQ(device->GetChannelProviderDeviceName("c"), "");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(7900));
    EXPECT_EQ(log.Count(LogLevel::Info, "puck: Retrying..."), 4u);
    EXPECT_EQ(log.Count(LogLevel::Warning, "ZMQ_POLLOUT timed out"), 3u) << "the link stays stuck";
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to get channel mapping for c"));
    device->OnServerStopping();
}

TEST_F(DeviceTest, AnnouncesAndWithdrawsChannelsAtOnceWhileInitialized) {
    ASSERT_TRUE(Start());
    server->ClearRequests();
    ChannelProducer* const late = device->MakeProducerChannel("late", "Quat");
    ASSERT_NE(late, nullptr);
    auto const sent = server->Received<RegisterSparseDeviceChannels>();
    ASSERT_EQ(sent.size(), 1u);
    ASSERT_EQ(sent[0].channels_size(), 1);
    EXPECT_TRUE(sent[0].flag());
    EXPECT_EQ(late->GetChannelId(), 4);

    LogCapture const log;
    EXPECT_EQ(device->MakeProducerChannel("late", "Quat"), late);
    EXPECT_EQ(device->MakeProducerChannel("late", "Vec3"), nullptr) << "of another type";
    EXPECT_EQ(device->MakeObserverChannel("nobody knows"), nullptr);
    device->Configuration().SetValue("Where", "pose");
    ChannelObserver* const seen = device->MakeObserverChannelFromProperty("Where");
    ASSERT_NE(seen, nullptr);
    EXPECT_EQ(device->MakeObserverChannelFromProperty("Where", "Vec3"), seen);
    EXPECT_EQ(device->MakeProducerChannelFromProperty("Where"), device->Producers().at("pose").get());
    EXPECT_EQ(seen->GetChannelId(), 5);
    EXPECT_TRUE(device->UnregisterChannel(seen));
    EXPECT_FALSE(device->UnregisterChannel(static_cast<ChannelObserver*>(nullptr)));
    EXPECT_EQ(device->RegisterChannel(late), late);
    EXPECT_TRUE(log.Has(LogLevel::Warning, "aleady registered producer channel for late"));
    EXPECT_EQ(server->Received<RegisterSparseDeviceChannels>().size(), 2u);

    EXPECT_TRUE(device->UnregisterChannel(late));
    EXPECT_THAT(server->Received<UnregisterSparseDeviceChannels>().at(1).channel_ids(), ElementsAre(4));
    EXPECT_FALSE(device->Producers().contains("late"));
}

TEST_F(DeviceTest, AsksForDevicesAndChannelsAndSaysWhyThereAreNone) {
    ASSERT_TRUE(Start());
    LogCapture const log;
    std::string const info = "1:{1:9 2:'d' 3:'D' 4:'Generic' 5:'p' 5:'q' 6:'o' 7:0 8:0 11:1 12:0}";
    server->Answer<GetDeviceInfo>(wire::Bytes(info));
    server->Answer<GetDeviceInfos>(wire::Bytes(info + info));
    server->Answer<GetDevicesOfType>(wire::Bytes("1:'d' 1:'e'"));
    server->Answer<GetChannelsOfType>(wire::Bytes("1:'x' 1:'q'"));
    GetDeviceInfo::Reply one;
    GetDeviceInfos::Reply all;
    auto const ask = [&] {
        return std::tuple{device->GetDeviceInfo("d", one),
                          device->GetDeviceInfos(all),
                          device->FindDevicesOfType(SparseDeviceType::Identity),
                          device->FindChannelsOfType("Vec3", true),
                          device->FindDeviceChannels("d", vq::ch::ChannelRole_Producer, ""),
                          device->FindDeviceChannels("d", vq::ch::ChannelRole_Producer, "Vec3"),
                          device->FindDeviceChannels("d", vq::ch::ChannelRole_Observer, ""),
                          device->AddChannelProducerFromSelf("p")};  // braces: in this order
    };
    EXPECT_EQ(ask(), std::tuple(true, true, Lines{"d", "e"}, Lines{"x", "q"}, Lines{"p", "q"}, Lines{"q"},
                                Lines{"o"}, true));
    EXPECT_EQ(one.info().id() + all.infos_size(), 9 + 2);
    EXPECT_EQ(server->Received<GetDevicesOfType>().at(0).type(), "Identity");
    EXPECT_TRUE(server->Received<GetChannelsOfType>().at(0).flag());
    EXPECT_EQ(server->Received<AddChannelMappings>().at(0).mappings(0).device(), "puck");
    EXPECT_THAT(log.Lines(), IsEmpty());

    server->Answer<GetDeviceInfo, GetDeviceInfo::Error>(wire::Bytes("1:'who?'"));
    server->Answer<AddChannelMappings, AddChannelMappings::Error>(wire::Bytes("1:{1:'puck' 2:'p'}"));
    ask();
    server->On<GetDeviceInfo>([](auto const&) { return FakeServer::Refuse("no"); });
    server->On<GetDevicesOfType>([](auto const&) { return FakeServer::Refuse("no"); });
    server->On<GetChannelsOfType>([](auto const&) { return FakeServer::Refuse("no"); });
    server->On<AddChannelMappings>([](auto const&) { return FakeServer::Refuse("no"); });
    EXPECT_EQ(ask(), std::tuple(false, true, Lines{}, Lines{}, Lines{}, Lines{}, Lines{}, false));
    for (char const* const line :
         {"get device info for d, who?", "get device info who?", "set channel map for 1 channels",
          "get device info for d", "get device info.", "get device list", "get channel list",
          "send channel map."}) {
        EXPECT_TRUE(log.Has(LogLevel::Error, std::string("Failed to ") + line)) << line;
    }
}

TEST_F(DeviceTest, TakesAsManyChannelIdsAsTheServerGives) {
    for (auto const& [ids, pose, axis] :
         {std::tuple{"", 0, 0}, {"1:10 1:11", 11, 0}, {"1:10 1:11 1:12 1:13", 11, 12}}) {
        server->Answer<RegisterSparseDeviceChannels>(wire::Bytes(ids));
        device = std::make_unique<TestDevice>();
        ASSERT_TRUE(Start());
        EXPECT_EQ(device->Producers().at("pose")->GetChannelId(), pose);
        EXPECT_EQ(device->Observers().at("axis")->GetChannelId(), axis);
    }
}

TEST_F(DeviceTest, StopsSendingStatisticsOnlyWhenTheServerRefusesThem) {
    server->SetAutoStats(true);
    server->On<SparseDeviceStatsUpdate>(
        [](SparseDeviceStatsUpdate const&) { return FakeServer::Refuse("?"); });
    LogCapture const log;
    ASSERT_TRUE(Start());
    device->Update();
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to send stats update"));
    EXPECT_TRUE(device->IsAutoStatsEnabled()) << "a failed exchange is no refusal";

    server->On<SparseDeviceStatsUpdate>([](SparseDeviceStatsUpdate const& update) {
        return FakeServer::RefuseBy<SparseDeviceStatsUpdate>(update.stats().counters_size() > 0 ? "enough"
                                                                                                : "empty");
    });
    device->ConditionallySendStatsUpdate();
    EXPECT_TRUE(log.Has(LogLevel::Error,
                        "Received stats error from server: enough. Disabling automatic stats updates..."));
    server->ClearRequests();
    device->ConditionallySendStatsUpdate();
    EXPECT_TRUE(server->Requests().empty());
}

TEST_F(DeviceTest, PublishesAChangedSettingWithAllOthers) {
    data.configurationState.SetValue("gain", 1);
    ASSERT_TRUE(Start());
    server->ClearRequests();
    device->Configuration().EnsureValue("unset");
    device->Configuration().SetValue("gain", 2);
    device->Configuration().RemoveValue("gain");
    device->Update();
    auto const sent = server->Received<SendSparseDeviceEvent>();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0].event_type(), "vq.sd.ConfigurationChangedEvent");
    vq::sd::ConfigurationChangedEvent change;
    ASSERT_TRUE(change.ParseFromString(sent[0].event_data())) << "a setting without a value is sent empty";
    EXPECT_TRUE(change.settings_size() == 2 && change.changed_size() == 1 && change.removed_size() == 0);
    EXPECT_EQ(change.changed(0).value().integer_value(), 2);
    ASSERT_TRUE(change.ParseFromString(sent[1].event_data()));
    EXPECT_TRUE(change.settings_size() == 1 && change.changed_size() == 0 && change.removed_size() == 1);
    EXPECT_TRUE(change.removed(0).value().has_integer_value());
}

TEST_F(DeviceTest, AnEventThatFailsIsDroppedAndTheRestStillGo) {
    ASSERT_TRUE(Start());
    LogCapture const log;
    server->On<SendSparseDeviceEvent>([](SendSparseDeviceEvent const& event) -> FakeServer::Reply {
        if (event.event_type() == "vq.sd.CancelUserMessageEvent") {
            return FakeServer::RefuseBy<SendSparseDeviceEvent>("unheard of");
        }
        return std::make_unique<SendSparseDeviceEvent::Reply>();
    });
    vq::sd::CancelUserMessageEvent cancel;
    device->QueueSparseDeviceEvent(cancel);  // lacks its id
    cancel.set_id(3);
    device->QueueSparseDeviceEvent(cancel);
    server->ClearRequests();
    EXPECT_FALSE(device->SendSparseDeviceUserMessage(vq::sd::UserMessageCategory_2, "hi", 1, 2));
    EXPECT_EQ(server->Received<SendSparseDeviceEvent>().size(), 2u);
    EXPECT_TRUE(log.Has(LogLevel::Error,
                        "Failed to issue sparse device event vq.sd.CancelUserMessageEvent : unheard of"));
    server->ClearRequests();
    EXPECT_TRUE(device->SendSparseDeviceEvents()) << "nothing is sent again";
    EXPECT_TRUE(server->Requests().empty());
}

TEST_F(DeviceTest, GreetsOnEveryChannelAndForItself) {
    ASSERT_TRUE(Start());
    ASSERT_TRUE(StepUntil([&] { return server->DataEvents().size() >= 3; }));
    std::string seen;
    for (FakeServer::DataEvent const& event : server->DataEvents()) {
        vq::ch::HelloDataEvent hello;
        EXPECT_TRUE(hello.ParseFromString(event.payload));
        seen += event.channel + "#" + std::to_string(event.channelId) + (hello.has_number() ? "=" : " ") +
                std::to_string(hello.number()) + " ";
    }
    EXPECT_THAT(seen, StartsWith("count#1 0 pose#2 0 #0=1 "));
}

TEST_F(DeviceTest, HandsDataToItsObserverAndReportsStrayTypesOnce) {
    ASSERT_TRUE(Start());
    LogCapture const log(LogLevel::Verbose);
    vq::ch::Vec3ChannelDataEvent sample;
    sample.set_x(1);
    sample.set_y(2);
    sample.set_z(3);
    std::shared_ptr<IData> received;
    ASSERT_TRUE(StepUntil([&] {
        server->PublishData(sample, "stray", 9);
        server->PublishData(sample, "axis", 8);
        received = device->Observers().at("axis")->PopNewestData();
        return received != nullptr;
    }));
    EXPECT_EQ(received->GetType(), "Vec3");
    // The next sample on the right channel comes behind a stray one.
    ASSERT_TRUE(StepUntil([&] {
        server->PublishData(sample, "stray", 9);
        server->PublishData(sample, "axis", 8);
        return device->Observers().at("axis")->PopNewestData() != nullptr;
    }));
    EXPECT_EQ(log.Count(LogLevel::Verbose, "Some messages were not consumed by observers!"), 1u);
    EXPECT_EQ(log.Count(LogLevel::Verbose, "--> "), 1u);
}

}  // namespace vq::test
