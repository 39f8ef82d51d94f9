#include <zmq.h>

#include "DeviceEvents.pb.h"
#include "DeviceFixture.h"
#include "DeviceRequests.pb.h"
#include "Logging/LogConfig.h"
#include "ServerRequests.pb.h"
#include "SparseDevice/ASparseDeviceCommandHandler.h"
#include "TestSupport/TestHome.h"

// Requests that reach the device on its own pipe, good and bad.

namespace vq::test {

using namespace vq::sd;

namespace {

/// A peer below the messaging layer: any frames.
class RawPeer {
public:
    explicit RawPeer(std::string const& path)
        : m_context(zmq_ctx_new()), m_socket(zmq_socket(m_context, ZMQ_REQ)) {
        int const linger = 0;
        zmq_setsockopt(m_socket, ZMQ_LINGER, &linger, sizeof(linger));
        EXPECT_EQ(zmq_connect(m_socket, ("ipc://" + path).c_str()), 0);
    }
    ~RawPeer() {
        zmq_close(m_socket);
        zmq_ctx_term(m_context);
    }

    void Send(std::vector<std::string> const& frames) {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            int const flags = i + 1 < frames.size() ? ZMQ_SNDMORE : 0;
            ASSERT_GE(zmq_send(m_socket, frames[i].data(), frames[i].size(), flags), 0);
        }
    }
    /// The type frame of the answer, or nothing yet.
    std::string Receive() {
        std::vector<std::string> frames;
        int more = 1;
        while (more != 0) {
            char buffer[1024];
            int const size = zmq_recv(m_socket, buffer, sizeof(buffer), frames.empty() ? ZMQ_DONTWAIT : 0);
            if (size < 0) {
                return {};
            }
            frames.emplace_back(buffer, static_cast<std::size_t>(size));
            std::size_t length = sizeof(more);
            zmq_getsockopt(m_socket, ZMQ_RCVMORE, &more, &length);
        }
        return frames.size() == 3 ? frames[1] : "answer of " + std::to_string(frames.size()) + " frames";
    }

private:
    void* m_context;
    void* m_socket;
};

class EchoHandler : public ASparseDeviceCommandHandler {
public:
    bool SetupCommandMap(std::unordered_map<std::string, int>& commandMap) override {
        AddCommand(commandMap, "vq.sd.StartPlayback", [this](AMessage*) {
            return MessageUtils::Send(RequestPipe(), StartPlayback::Reply(), std::chrono::seconds(5),
                                      nullptr);
        });
        AddCommand(commandMap, "vq.sd.StopPlayback", [](AMessage*) { return false; });
        return true;
    }
};

class EchoDevice : public TestDevice {
public:
    EchoDevice() { AddCommandHandler(3, std::make_unique<EchoHandler>()); }
};

vq::cfg::ConfigurationSetting Setting(std::string const& name, std::string const& value) {
    vq::cfg::ConfigurationSetting setting;
    setting.set_name(name);
    setting.mutable_value()->set_string_value(value);
    return setting;
}

}  // namespace

TEST_F(DeviceTest, AnswersMalformedRequestsAndServesTheNextOne) {
    ASSERT_TRUE(Start());
    LogCapture const log;
    MessageAddress const address = device->DevicePipe()->GetRemote();
    std::string const payload = [] {
        SetDeviceMaximumUpdateRate request;
        request.set_hertz(77);
        return request.SerializeAsString();
    }();
    std::string const type = "vq.sd.SetDeviceMaximumUpdateRate";
    struct Case {
        std::vector<std::string> frames;
        char const* answer;
    };
    Case const cases[] = {
        {{""}, "vq.vds.Error"},
        {{"", type}, "vq.vds.Error"},
        {{"", type, payload, "more"}, "vq.vds.Error"},
        {{"", type, payload, "more", "and more"}, "vq.vds.Error"},
        {{"", "", ""}, "vq.vds.Error"},
        {{"", std::string("vq\0%n%s", 7), payload}, "vq.vds.Error"},
        {{"", type, payload + "\xff"}, "vq.sd.SetDeviceMaximumUpdateRate.Reply"},  // counts as empty
        {{"anybody", type, payload}, "vq.sd.SetDeviceMaximumUpdateRate.Reply"},
    };
    for (Case const& c : cases) {
        RawPeer peer(address.location);
        EXPECT_NE(device->GetUpdateHertzMaximum(), 77);
        peer.Send(c.frames);
        std::string answer;
        ASSERT_TRUE(StepUntil([&] { return !(answer = peer.Receive()).empty(); }));
        EXPECT_EQ(answer, c.answer) << c.frames.size() << " frames";
    }
    EXPECT_EQ(device->GetUpdateHertzMaximum(), 77);
}

TEST_F(DeviceTest, AnUnknownRequestEndsTheStep) {
    ASSERT_TRUE(Start());
    LogCapture const log;
    RawPeer first(device->DevicePipe()->GetRemote().location);
    RawPeer second(device->DevicePipe()->GetRemote().location);
    first.Send({"", "vq.sd.Nonsense", ""});
    second.Send({"", "vq.sd.Nonsense", ""});
    // Most likely both have arrived then; that they are served holds in any case.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    auto const refused = [&] {
        return log.Count(LogLevel::Error, "unhandled request: unknown command type: vq.sd.Nonsense");
    };
    for (std::size_t before = 0; refused() < 2; before = refused()) {
        device->Update();
        ASSERT_LE(refused(), before + 1);
    }
}

TEST_F(DeviceTest, ServesTheCommandsOfItsOwnHandlers) {
    device = std::make_unique<EchoDevice>();
    ASSERT_TRUE(Start());
    LogCapture const log;
    Ask(StartPlayback());
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
    data.observerChannels = {"axis", "area"};
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
    EXPECT_THAT(channels, testing::ElementsAre("count:Integer", "pose:Vec3", "area:Quat", "axis:Vec3"))
        << "producers, then observers, each by name";

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
    EXPECT_THAT(reply.parameters(), testing::ElementsAre("-V2f", path, "--logfile", path));
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

    set.Clear();
    *set.add_settings() = Setting("free", "kept");
    *set.add_settings() = Setting("Count", "abc");
    *set.add_settings() = Setting("free", "never reached");
    SetDeviceConfiguration::Reply reply;
    SetDeviceConfiguration::Error error;
    ASSERT_TRUE(Ask(set, reply, error)) << "a text that is no number must not end the process";
    EXPECT_EQ(error.message(), "Cannot set property 'Count' to incompatible value abc; type is integer");
    EXPECT_EQ(device->Configuration().GetValue("free").string_value(), "kept");

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
    SerializeMultiDeviceConfiguration serialize;
    for (char const* const name : {"b", "a"}) {
        DeviceConfigurationData& entry = *serialize.add_devices();
        entry.set_name(name);
        entry.set_label(std::string("Label ") + name);
        *entry.add_settings() = Setting("key", name);
    }
    DeserializeMultiDeviceConfiguration deserialize;
    deserialize.set_text(Ask(serialize).text());
    DeserializeMultiDeviceConfiguration::Reply const several = Ask(deserialize);
    ASSERT_EQ(several.devices_size(), 2);
    EXPECT_EQ(several.devices(0).name(), "a") << "sorted by name";
    EXPECT_EQ(several.devices(1).label(), "Label b");
    EXPECT_EQ(several.devices(1).settings(0).value().string_value(), "b");

    SerializeDeviceConfiguration one;
    one.set_name("a");
    one.set_label("Label a");
    *one.add_settings() = Setting("key", "value");
    DeserializeDeviceConfiguration back;
    back.set_text(Ask(one).text());
    DeserializeDeviceConfiguration::Reply const read = Ask(back);
    EXPECT_EQ(read.name(), "a");
    EXPECT_EQ(read.label(), "Label a");
    ASSERT_EQ(read.settings_size(), 1);
    EXPECT_EQ(read.settings(0).value().string_value(), "value");
    back.set_text("[1, {");
    EXPECT_EQ(AskForError(back), "manifest parse error (see log)");
}

}  // namespace vq::test
