#include "DeviceEvents.pb.h"
#include "DeviceFixture.h"
#include "DeviceRequests.pb.h"
#include "Logging/LogConfig.h"
#include "ServerRequests.pb.h"
#include "SparseDevice/ASparseDeviceCommandHandler.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Test.h"

// Requests that reach the device on its own pipe, good and bad.

namespace vq::test {

using namespace vq::sd;

namespace {

class EchoHandler : public ASparseDeviceCommandHandler {
public:
    explicit EchoHandler(std::function<void()> onStart) : m_onStart(std::move(onStart)) {}
    bool SetupCommandMap(std::unordered_map<std::string, int>& commandMap) override {
        AddCommand(commandMap, "vq.sd.StartPlayback", [this](AMessage*) {
            m_onStart();
            return MessageUtils::Send(RequestPipe(), StartPlayback::Reply(), std::chrono::seconds(5),
                                      nullptr);
        });
        AddCommand(commandMap, "vq.sd.StopPlayback", [](AMessage*) { return false; });
        return true;
    }

private:
    std::function<void()> m_onStart;
};

vq::cfg::ConfigurationSetting Setting(std::string const& name, std::string const& value) {
    vq::cfg::ConfigurationSetting setting;
    setting.set_name(name);
    setting.mutable_value()->set_string_value(value);
    return setting;
}

}  // namespace

TEST_F(DeviceTest, CarriesOutNothingOfACommandThatDoesNotDecode) {
    ASSERT_TRUE(Start());
    LogCapture const log;
    std::string const type = "vq.sd.SetDeviceMaximumUpdateRate";
    SetDeviceMaximumUpdateRate request;
    request.set_hertz(77);
    RawSocket peer(ZMQ_REQ, device->DevicePipe()->GetRemote().ToString());
    for (char const* noise : {"\xff", ""}) {
        EXPECT_NE(device->GetUpdateHertzMaximum(), 77);
        peer.Send({"anybody", type, request.SerializeAsString() + noise});
        ASSERT_TRUE(StepUntil([&] { return peer.Poll(); }));
        EXPECT_EQ(peer.Receive().at(1), type + ".Reply");
    }
    EXPECT_EQ(device->GetUpdateHertzMaximum(), 77);
}

TEST_F(DeviceTest, AnUnknownRequestEndsTheStep) {
    ASSERT_TRUE(Start());
    LogCapture const log;
    std::string const address = device->DevicePipe()->GetRemote().ToString();
    RawSocket peers[] = {{ZMQ_REQ, address}, {ZMQ_REQ, address}};
    for (RawSocket& peer : peers) {
        peer.Send({"", "vq.sd.Nonsense", ""});
    }
    // Most likely both have arrived then; that they are served holds in any case.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    auto const refused = [&] {
        return log.Count(LogLevel::Error, "unhandled request: unknown command type: vq.sd.Nonsense");
    };
    for (std::size_t before = 0; refused() < 2; before = refused()) {
        device->Update();
        ASSERT_LE(refused(), before + 1);
    }
    EXPECT_EQ(peers[0].Receive().at(1), "vq.vds.Error");
}

TEST_F(DeviceTest, ServesItsOwnCommandsAndLeavesTheRestForTheNextStepWhenTheyTakeLong) {
    int handled = 0;
    auto const takeLong = [&handled] {
        std::this_thread::sleep_for(1100ms);
        return ++handled > 0;
    };
    device->AddCommandHandler(3, std::make_unique<EchoHandler>(takeLong));
    ASSERT_TRUE(Start());
    AwaitSubscription();
    device->Dispatcher()->RegisterEventHandler(
        "vq.vds.DeviceUnregisteredEvent",
        std::make_shared<EventHandler>([&](AMessage*) { return takeLong(); }));
    std::string const address = device->DevicePipe()->GetRemote().ToString();
    RawSocket peers[] = {{ZMQ_REQ, address}, {ZMQ_REQ, address}};
    for (RawSocket& peer : peers) {
        peer.Send(FramesOf(StartPlayback()));
        PublishUnregistered("other", 1);
    }
    int most = 0;
    ASSERT_TRUE(StepUntil([&, before = 0]() mutable {
        most = std::max(most, handled - std::exchange(before, handled));
        return handled == 4;
    }));
    EXPECT_LE(most, 2) << "one request and one event in a step";

    LogCapture const log;
    StopPlayback stop;
    stop.set_text("x");
    EXPECT_EQ(AskForError(stop), "failed to process message: command type: vq.sd.StopPlayback");
    Ask(GetDeviceMaximumUpdateRate());
}

TEST_F(DeviceTest, ServesPaceStatisticsAndTheEnd) {
    TestApplication owner;
    application = &owner;
    ASSERT_TRUE(Start());
    LogCapture const log;
    SetDeviceMaximumUpdateRate rate;
    rate.set_hertz(500);
    Ask(rate);
    EXPECT_EQ(Ask(GetDeviceMaximumUpdateRate()).hertz(), 500);
    EnableAutomaticStatsCollection stats;
    stats.set_enabled(true);
    Ask(stats);
    EXPECT_TRUE(device->IsAutoStatsEnabled());
    EXPECT_GT(Ask(RequestStats()).stats().counters_size(), 0);
    owner.TakeAndClearStateChanged();
    Ask(RefreshDevice());
    EXPECT_TRUE(owner.TakeAndClearStateChanged());
    EXPECT_EQ(AskForError(vq::vds::GetLogParameters()),
              "unhandled request: unknown command type: vq.vds.GetLogParameters");

    owner.RequestExit();
    EXPECT_EQ(AskForError(RefreshDevice()),
              "unhandled request: sparse device application '' is shutting down, command type: "
              "vq.sd.RefreshDevice");
}

TEST_F(DeviceTest, TellsARecorderItsChannelsAndAnswersAPlayer) {
    data.customChannels.emplace_back("area", "Area", "Quat", "", false, false);
    data.customChannels.emplace_back("image", "Image", "Shared Buffer Data", "", false, false);
    data.observerChannels = {"axis", "area", "image"};
    ASSERT_TRUE(Start());
    StartRecording start;
    start.set_text("/tmp/archive");
    start.set_text_2("session");
    Ask(start);
    ASSERT_TRUE(StepUntil([&] { return !server->Received<vq::vds::SendSparseDeviceEvent>().empty(); }));
    auto const sent = server->Received<vq::vds::SendSparseDeviceEvent>().at(0);
    EXPECT_EQ(sent.event_type(), "vq.sd.AddChannelsEvent");
    AddChannelsEvent event;
    ASSERT_TRUE(event.ParseFromString(sent.event_data()));
    std::vector<std::string> channels;
    for (RecorderChannelEntry const& entry : event.channels()) {
        channels.push_back(entry.channel() + ":" + entry.type());
    }
    EXPECT_THAT(channels, ElementsAre("count:Integer", "pose:Vec3", "area:Quat", "axis:Vec3"))
        << "producers, then observers, each by name, and none in shared memory";

    StopRecording stopRecording;
    stopRecording.set_text("/tmp/archive");
    EXPECT_TRUE(Ask(stopRecording).flag_1());
    StopPlayback stopPlayback;
    stopPlayback.set_text("/tmp/archive");
    EXPECT_TRUE(Ask(stopPlayback).flag_1());
    Ask(StartPlayback());
}

TEST_F(DeviceTest, ItsLogIsReadAndSetFromAfar) {
    ASSERT_TRUE(Start());
    auto const set = [](std::vector<std::string> const& parameters) {
        SetLogParameters request;
        for (std::string const& parameter : parameters) {
            request.add_parameters(parameter);
        }
        return request;
    };
    LogConfig::Instance().Reset(true);
    std::string const path = HomeDirectory() + "device.log";
    Ask(set({"-V", "warning", "--logfile", path, "ignored"}));
    EXPECT_EQ(LogConfig::Instance().GetLevel(), LogLevel::Warning);
    auto const reply = Ask(GetLogParameters());
    EXPECT_THAT(reply.parameters(), ElementsAre("-V2f", path, "--logfile", path));
    EXPECT_EQ(AskForError(set({"-V", "5-c-c"})), "Multiple '-' in -V at -c");
    Ask(set({"--bogus"}));  // told on standard error alone
    EXPECT_EQ(LogConfig::Instance().SetLogCallback({}), nullptr) << "the callback is restored";
    LogConfig::Instance().Reset(true);
}

TEST_F(DeviceTest, QuitsAfterItHasAnswered) {
    TestApplication owner;
    application = &owner;
    ASSERT_TRUE(Start());
    Ask(QuitDevice());
    EXPECT_TRUE(device->IsRequestingExit());
    EXPECT_FALSE(owner.IsExitRequested());
    LogCapture const log;
    RawSocket late(ZMQ_REQ, server->DeviceAddress("puck"));
    for (late.Send(FramesOf(RefreshDevice())); !late.Poll(1ms);) {
        device->ProcessMessages();
    }
    EXPECT_THAT(late.Receive().at(2), EndsWith("unhandled request: sparse device 'Puck'is shutting down, "
                                               "command type: vq.sd.RefreshDevice"));
    ASSERT_TRUE(StepUntil([&] { return device->GetState() == SparseDevice::State::Uninitialized; }));
    EXPECT_EQ(server->RequestTypes().back(), "UnregisterSparseDevice");

    device = std::make_unique<TestDevice>();
    ASSERT_TRUE(Start());
    Ask(QuitApplication());
    EXPECT_TRUE(device->IsRequestingExit() && owner.IsExitRequested());

    TestApplication another;
    application = &another;
    device = std::make_unique<TestDevice>();
    ASSERT_TRUE(Start());
    Ask(NotifyServerStopping());
    EXPECT_TRUE(device->IsServerStopping() && another.IsExitRequested());
}

TEST_F(DeviceTest, ChangesItsConfigurationOnCommand) {
    ManifestProcessor processor;
    ASSERT_TRUE(processor.ProcessManifestString(R"({"ManifestType": "SparseDevice", "DeviceName": "puck",
        "DeviceType": "Generic", "UpdateHertz": 1000,
        "ConfigurationProperties": {"Count": {"Type": "integer", "Default": 4}}})"));
    data = processor.GetData();
    ASSERT_TRUE(Start());
    LogCapture const log(LogLevel::Warning);

    SetDeviceConfiguration set;
    *set.add_settings() = Setting("free", "text");
    *set.add_settings() = Setting("Count", "12");
    Ask(set);
    EXPECT_TRUE(log.Has(LogLevel::Warning, "Setting unknown property 'free' on puck"));
    EXPECT_EQ(device->Configuration().GetValue("Count").integer_value(), 12);
    EXPECT_EQ(Ask(GetDeviceConfiguration()).settings_size(), 2);

    for (auto const& [text, read] : {std::pair("abc", "abc"), std::pair("12abc", "12")}) {
        set.Clear();
        *set.add_settings() = Setting("free", text);
        *set.add_settings() = Setting("Count", text);
        *set.add_settings() = Setting("free", "never reached");
        EXPECT_EQ(
            Exchange<SetDeviceConfiguration::Error>(set).message(),
            "Cannot set property 'Count' to incompatible value " + std::string(read) + "; type is integer");
        EXPECT_EQ(device->Configuration().GetValue("free").string_value(), text);
    }

    ResetDeviceConfiguration reset;
    reset.add_names("Count");
    reset.add_names("free");
    Ask(reset);
    EXPECT_EQ(device->Configuration().GetValue("Count").integer_value(), 4);
    EXPECT_EQ(device->Configuration().settings.Find("free"), nullptr);
    EXPECT_EQ(Ask(GetConfigurationPropertyInfo()).info().properties_size(), 1);
}

TEST_F(DeviceTest, TurnsConfigurationsIntoTextAndBack) {
    ASSERT_TRUE(Start());
    LogCapture const log;
    SerializeMultiDeviceConfiguration several;
    for (char const* const name : {"b", "a"}) {
        DeviceConfigurationData& entry = *several.add_devices();
        entry.set_name(name);
        entry.set_label(std::string("Label ") + name);
        *entry.add_settings() = Setting("key", name);
    }
    DeserializeMultiDeviceConfiguration readSeveral;
    readSeveral.set_text(Ask(several).text());
    auto const both = Ask(readSeveral);
    ASSERT_EQ(both.devices_size(), 2);
    for (int i = 0; i < 2; ++i) {  // sorted by name
        EXPECT_EQ(both.devices(i).SerializeAsString(), several.devices(1 - i).SerializeAsString());
    }
    SerializeDeviceConfiguration one;
    one.set_name("a");
    one.set_label("Label a");
    *one.add_settings() = Setting("key", "value");
    DeserializeDeviceConfiguration readOne;
    readOne.set_text(Ask(one).text());
    auto const back = Ask(readOne);
    EXPECT_EQ(back.name() + back.label(), "aLabel a");
    EXPECT_EQ(back.settings(0).SerializeAsString(), one.settings(0).SerializeAsString());
    for (char const* const text :
         {"[1, {", R"({"ManifestType": "SparseDevice", "DeviceName": "a", "DeviceType": "Generic",
                       "EnumerationTypes": {"None": {"Values": []}},
                       "ConfigurationProperties": {"p": {"Type": "None"}}})"}) {
        readOne.set_text(text);
        EXPECT_EQ(AskForError(readOne), "manifest parse error (see log)");
    }
}

}  // namespace vq::test
