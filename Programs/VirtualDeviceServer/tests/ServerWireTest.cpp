// A server inside this process, spoken to frame by frame.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <thread>

#include "RawDevice.h"
#include "RunningServer.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/TestHome.h"
#include "Utils/OSUtils.h"

namespace vq::server {
namespace {

using testing::HasSubstr;
using namespace std::chrono_literals;

/// By transport: every test runs over each. In-process addresses need the server's own socket context.
class ServerWireTest : public testing::TestWithParam<char const*> {
protected:
    static std::string Address() {
        // A first life, whichever test ran before in this process.
        for (std::string const& name : GetDirectoryEntries(GetUserTempDirectory())) {
            if (name.ends_with(".journal")) {
                RemoveFile(GetUserTempDirectory() + name);
            }
        }
        std::string address = GetParam();
        return address == "IPC:" ? address + test::HomeDirectory() + "s" : address;
    }
    ~ServerWireTest() override { m_cleanup(); }

    // Before all that uses it ends: sockets first, then their context.
    std::function<void()> m_cleanup = [this] {
        m_events.reset();
        m_client.reset();
        m_server.reset();
        AMessageManager::Instance().Cleanup();
    };
    zmq::context_t& m_context = SharedContext();
    std::optional<RunningServer> m_server{Options(Address())};
    std::optional<test::RawSocket> m_client{std::in_place, ZMQ_REQ, m_server->Address(), &m_context};
    std::optional<test::RawSocket> m_events{
        Listen(m_client->Get(vq::vds::GetServerEventAddress()).address(), &m_context)};
};

INSTANTIATE_TEST_SUITE_P(Transports, ServerWireTest,
                         testing::Values("IPC:", "SOCKET:127.0.0.1:1?server", "LOOPBACK:server"),
                         [](auto const& param) {
                             std::string const text = param.param;
                             return text.substr(0, text.find(':'));
                         });

using Message = std::unique_ptr<google::protobuf::MessageLite>;
struct Exchange {
    Message request;
    std::string answer;
};

template <class Request, class... Fill>
Exchange Expect(char const* answer, Fill... fill) {
    auto request = std::make_unique<Request>();
    (fill(*request), ...);
    std::string type = *answer == '.' ? request->GetTypeName() + answer : std::string(answer);
    return {std::move(request), std::move(type)};
}

/// All requests that are served, in an order in which each can succeed, for the device "d" with id 1 that
/// produces "x", and some that must fail.
std::vector<Exchange> AllExchanges() {
    using namespace vq::vds;  // NOLINT: a table of its messages
    auto const id = [](auto& m) { m.set_device_id(1); };
    auto const badId = [](auto& m) { m.set_device_id(77); };
    auto const name = [](auto& m) { m.set_device("d"); };
    auto const badName = [](auto& m) { m.set_device("nobody"); };
    auto const mapping = [](auto& m) { *m.mutable_mappings() = Pairs({{"d", "x"}}); };
    auto const badMapping = [](auto& m) { *m.mutable_mappings() = Pairs({{"d", "y"}}); };
    auto const application = [](auto& m) { m.set_application_id(1); };
    auto const stats = [](auto& m) { m.set_name("d"), m.mutable_stats(); };
    auto const event = [](auto& m) { m.set_event_type("t"), m.set_event_data("d"); };
    auto const program = [](auto& m) { m.set_name("app"), m.set_process_id(5); };
    auto const badChannel = [](auto& m) { m.set_channel("none"); };
    auto const memory = [](auto& m) { m.set_memory_id("/some/memory"); };
    auto const badMemory = [](auto& m) { m.set_memory_id("none"); };
    auto const size = [](std::uint64_t bytes) {
        return [bytes](auto& m) { m.set_size(bytes), m.set_resizable(true); };
    };
    auto const configuration = [](auto& m) { *m.mutable_configuration() = Configuration(); };
    constexpr char kReply[] = ".Reply", kOwn[] = ".Error", kError[] = "vq.vds.Error";

    std::vector<Exchange> all;
    auto const add = [&all](auto... exchanges) { (all.push_back(std::move(exchanges)), ...); };
    add(Expect<Ping>(kReply), Expect<GetVersion>(kReply), Expect<GetProtocolVersion>(kReply),
        Expect<GetDataPath>(kReply), Expect<SetVQSDKCompatibilityVersion>(kReply),
        Expect<GetVQSDKCompatibilityVersion>(kReply), Expect<GetServerEventAddress>(kReply),
        Expect<GetServerDataEventBroadcastAddress>(kReply), Expect<GetServerHeartbeatEventAddress>(kReply));
    add(Expect<GetDeviceInfos>(kReply), Expect<GetDeviceInfo>(kReply, name),
        Expect<GetDeviceInfo>(kOwn, badName),
        Expect<GetDevicesOfType>(kReply, [](auto& m) { m.set_type("Generic"); }),
        Expect<GetDeviceRequestReplyAddress>(kReply, name, [](auto& m) { m.set_flag(false); }),
        Expect<GetDeviceRequestReplyAddress>(kError, badName, [](auto& m) { m.set_flag(false); }),
        Expect<CreateServerDataEventListenerAddress>(kReply, id),
        Expect<CreateServerDataEventListenerAddress>(kError, badId),
        Expect<CreateServerDataEventListenerAddress>(kError));
    add(Expect<GetChannelInfos>(kReply),
        Expect<GetChannelsOfType>(kReply, [](auto& m) { m.set_type("Vec3"); }),
        Expect<GetChannelMappings>(kReply), Expect<RemoveChannelMappings>(kReply, mapping),
        Expect<RemoveChannelMappings>(kOwn, mapping), Expect<AddChannelMappings>(kReply, mapping),
        Expect<AddChannelMappings>(kOwn, badMapping), Expect<ClearChannelMappings>(kReply),
        Expect<RegisterSparseDeviceChannels>(kReply, id), Expect<RegisterSparseDeviceChannels>(kError, badId),
        Expect<UnregisterSparseDeviceChannels>(kReply, id, [](auto& m) { m.add_channel_ids(1); }),
        Expect<UnregisterSparseDeviceChannels>(kError, id, [](auto& m) { m.add_channel_ids(1); }));
    add(Expect<ReportSparseDeviceInitialized>(kReply, id),
        Expect<ReportSparseDeviceInitialized>(kError, badId),
        Expect<EnableAutomaticStatsCollection>(kReply, [](auto& m) { m.set_enabled(false); }),
        Expect<SparseDeviceStatsUpdate>(kReply, id, stats),
        Expect<SparseDeviceStatsUpdate>(kOwn, badId, stats), Expect<GetDeviceStats>(kReply),
        Expect<GetDeviceStats>(kOwn, [](auto& m) { m.add_devices("nobody"); }),
        Expect<SendSparseDeviceEvent>(kReply, id, event), Expect<SendSparseDeviceEvent>(kOwn, badId, event),
        Expect<GetDevicePruneSettings>(kReply),
        Expect<SetDevicePruneSettings>(kReply, [](auto& m) { m.set_timeout_ms(0), m.set_interval_ms(100); }),
        Expect<PruneDevice>(kOwn, badName),
        Expect<UnregisterSparseDevice>(kError, id, [](auto& m) { m.set_name("e"); }),
        Expect<UnregisterSparseDevice>(kReply, id, [](auto& m) { m.set_name("d"); }));
    add(Expect<RegisterDeviceApplication>(kReply, program, [](auto& m) { m.set_second_name("App"); }),
        Expect<ReportDeviceApplicationInitialized>(kReply, application),
        Expect<GetDeviceApplicationInfos>(kReply), Expect<UnregisterDeviceApplication>(kReply, application),
        Expect<UnregisterDeviceApplication>(kError, application),
        Expect<ReportDeviceApplicationInitialized>(kOwn, application),
        Expect<RegisterVQSDKApplication>(kReply, program), Expect<GetVQSDKApplicationInfos>(kReply),
        Expect<UnregisterVQSDKApplication>(kReply, [](auto& m) { m.set_application_id(2); }),
        Expect<UnregisterVQSDKApplication>(kError, application));
    add(Expect<ResendLatestChannelData>(kReply), Expect<GetLatestChannelData>(kReply),
        Expect<SetAbsoluteChannelData>(kOwn), Expect<GetAbsoluteChannelData>(kOwn, badChannel),
        Expect<ResetAbsoluteChannelData>(kOwn, badChannel));
    add(Expect<CreateServerSharedMemory>(kReply, memory, size(5)),
        Expect<CreateServerSharedMemory>(kError, memory, size(5)),
        Expect<CreateServerSharedMemory>(kError, badMemory, size(0)),
        Expect<CreateServerSharedMemory>(kError, badMemory, size(std::uint64_t{1} << 60)),
        Expect<FindServerSharedMemory>(kReply, memory), Expect<FindServerSharedMemory>(kReply, badMemory),
        Expect<ResizeServerSharedMemory>(kReply, memory, [](auto& m) { m.set_size(9000); }),
        Expect<ResizeServerSharedMemory>(kError, memory, [](auto& m) { m.set_size(0); }),
        Expect<ResizeServerSharedMemory>(kError, badMemory, [](auto& m) { m.set_size(1); }),
        Expect<GetPortableSharedMemoryConfiguration>(".NotPortable", memory),
        Expect<SetPortableSharedMemoryConfiguration>(kReply, memory, configuration),
        Expect<GetPortableSharedMemoryConfiguration>(kReply, memory),
        Expect<ClearPortableSharedMemoryConfiguration>(kReply, memory),
        Expect<SetPortableSharedMemoryConfiguration>(kError, badMemory, configuration),
        Expect<GetPortableSharedMemoryConfiguration>(kError, badMemory),
        Expect<ClearPortableSharedMemoryConfiguration>(kError, badMemory),
        Expect<DeleteServerSharedMemory>(kReply, memory), Expect<DeleteServerSharedMemory>(kError, memory));
    add(Expect<GetLogParameters>(kReply), Expect<SetLogParameters>(kReply),
        Expect<SetLogParameters>(kError, [](auto& m) { m.add_parameters("--logfile-maxsize=0"); }));
    // Known to the protocol and not served; unknown to it; and without what it requires.
    add(Expect<GetRecordingStatus>(kError), Expect<Empty>(kError), Expect<GetDeviceInfo>(kError),
        Expect<RegisterSparseDevice>(kError));
    return all;
}

TEST_P(ServerWireTest, EveryRequestGetsTheAnswerOfItsKind) {
    RawDevice device(*m_client, "d", &m_context);
    device.ServeChannel("x");
    for (Exchange const& exchange : AllExchanges()) {
        EXPECT_EQ(m_client->Ask(*exchange.request), exchange.answer) << exchange.request->GetTypeName();
    }
}

TEST_P(ServerWireTest, TellsClientsWhatTheyNeed) {
    EXPECT_EQ(m_client->Get(vq::vds::GetProtocolVersion()).protocol_version(), 12);
    EXPECT_EQ(m_client->Get(vq::vds::GetDataPath()).path(), test::HomeDirectory() + "data");
    RawDevice device(*m_client, "odd \xff\n name", &m_context);
    device.ServeChannel("x");
    vq::vds::GetDeviceRequestReplyAddress request;
    request.set_device("odd \xff\n name");
    request.set_flag(false);
    EXPECT_EQ(m_client->Get(request).address(), Registration("odd \xff\n name").address());
    auto const infos = m_client->Get(vq::vds::GetDeviceInfos());
    ASSERT_EQ(infos.infos_size(), 1);
    EXPECT_THAT(infos.infos(0).producer_channels(), testing::ElementsAre("x"));
    auto const mappings = m_client->Get(vq::vds::GetChannelMappings());
    ASSERT_EQ(mappings.mappings_size(), 1);
    EXPECT_EQ(mappings.mappings(0).device(), "odd \xff\n name");
}

TEST_P(ServerWireTest, PublishesWhatHappensAndNoSocketStaysSilent) {
    RawDevice device(*m_client, "d", &m_context);
    EXPECT_EQ(m_events->Await<vq::vds::DeviceRegisteredEvent>().device_id(), 1U);
    device.ServeChannel("x");
    EXPECT_EQ(m_events->Await<vq::vds::ChannelMappingChangedEvent>().devices(0), "d");
    vq::vds::SendSparseDeviceEvent event;
    event.set_device_id(1);
    event.set_event_type("vq.sd.Some");
    event.set_event_data("\1\2");
    m_client->Get(event);
    auto const passedOn = m_events->Await<vq::vds::DeviceEvent>();
    EXPECT_EQ(passedOn.device() + "/" + passedOn.event_type() + "/" + passedOn.event_data(),
              "d/vq.sd.Some/\1\2");

    m_events->Await<vq::vds::HelloEvent>();
    Listen(m_client->Get(vq::vds::GetServerDataEventBroadcastAddress()).address(), &m_context);
    Listen(m_client->Get(vq::vds::GetServerHeartbeatEventAddress()).address(), &m_context)
        .Await<vq::vds::ServerHeartbeat>();
}

TEST_P(ServerWireTest, AListenerThatIsAttachedLateStillHearsOfItsDevice) {
    RawDevice const device(*m_client, "d", &m_context);
    vq::vds::ReportSparseDeviceInitialized report;
    report.set_device_id(device.Id());
    m_client->Get(report);
    // Its first event, whatever that is, is passed over: the announcement has to come among the next ones,
    // and so must be made again when a second listener comes.
    std::string const address = m_client->Get(vq::vds::GetServerEventAddress()).address();
    test::RawSocket late = Listen(address, &m_context);
    test::RawSocket const later = Listen(address, &m_context);
    EXPECT_EQ(late.Await<vq::vds::DeviceRegisteredEvent>().name(), "d");
}

TEST_P(ServerWireTest, MalformedRequestsAreAnsweredAndHurtNobodyElse) {
    test::RawSocket other(ZMQ_REQ, m_server->Address(), &m_context);
    std::string const big(1 << 20, 'x');
    std::vector<std::pair<std::vector<std::string>, char const*>> const cases = {
        {{""}, "too few frames"},
        {{"vq.vds.Ping"}, "too few frames"},
        {{"", "vq.vds.Ping"}, "too few frames"},
        {{"", "vq.vds.Ping", "", ""}, "too many frames"},
        {{"", "vq.vds.Ping", "", "", "", big}, "too many frames"},
        {{"", "vq.vds.GetDeviceInfo", "\xff\xff\xff"}, "the payload is no vq.vds.GetDeviceInfo"},
        {{"", "vq.vds.GetDeviceInfo", big}, "the payload is no vq.vds.GetDeviceInfo"},
        {{"", "", ""}, "does not serve the request ''"},
        {{"", std::string("\0\n\xff", 3), ""}, "does not serve the request '\?\?\?'"},
        {{"", big, ""}, "xxx...'"},
    };
    for (auto const& [frames, text] : cases) {
        auto const [type, payload] = m_client->Exchange(frames);
        EXPECT_EQ(type, "vq.vds.Error");
        vq::vds::Error error;
        EXPECT_TRUE(error.ParseFromString(payload));
        EXPECT_THAT(error.message(), HasSubstr(text));
        EXPECT_EQ(other.Ask(vq::vds::Ping()), "vq.vds.Ping.Reply");
    }
    EXPECT_EQ(m_client->Exchange({"any\0identity", "vq.vds.Ping", ""}).first, "vq.vds.Ping.Reply");
}

TEST_P(ServerWireTest, MalformedDeviceEventsAreNoSignOfLife) {
    test::LogCapture const log;
    vq::vds::SetDevicePruneSettings settings;
    settings.set_timeout_ms(3000);
    settings.set_interval_ms(50);
    m_client->Get(settings);
    RawDevice lying(*m_client, "lying", &m_context);
    RawDevice honest(*m_client, "honest", &m_context);
    std::atomic<bool> done{false};
    std::thread talk([&] {
        while (!done) {
            for (std::size_t length : {20U, 21U, 22U, 25U, 27U}) {
                lying.Publish({std::string("vq.ch.HelloDataEvent\0\0\0\0\0\0?", 27).substr(0, length), ""});
            }
            lying.Publish({std::string("vq.ch.HelloDataEvent\0\0\0\0\0\0", 26)});
            honest.SayHello();
            std::this_thread::sleep_for(20ms);
        }
    });
    auto const gone = m_events->Await<vq::vds::DeviceUnregisteredEvent>();
    done = true;
    talk.join();
    EXPECT_EQ(gone.name(), "lying");
    EXPECT_EQ(m_client->Get(vq::vds::GetDeviceInfos()).infos(0).name(), "honest");
    EXPECT_TRUE(log.Has(LogLevel::Error, "invalid event message frame"));
}

TEST_P(ServerWireTest, ReRegistrationLeavesNoListenerOrFileBehind) {
    std::string last;
    for (int i = 0; i < 5; ++i) {
        RawDevice const device(*m_client, "d" + std::to_string(i), &m_context);
        EXPECT_NE(device.Address(), last) << "the former address may still be in use";
        last = device.Address();
        vq::vds::PruneDevice prune;
        prune.set_device("d" + std::to_string(i));
        m_client->Get(prune);
        EXPECT_FALSE(FileExists(MessageAddress::FromString(last).location));
    }
    EXPECT_EQ(m_client->Get(vq::vds::GetDeviceInfos()).infos_size(), 0);
}

TEST_P(ServerWireTest, StopIsAnnouncedAndWaitsForGoodbyes) {
    RawDevice const device(*m_client, "d", &m_context);
    EXPECT_EQ(m_client->Ask(vq::vds::KillServer()), "vq.vds.KillServer.Reply");
    m_events->Await<vq::vds::ServerStoppingEvent>();
    EXPECT_EQ(m_client->Ask(Registration("late")), "vq.vds.Error");
    vq::vds::UnregisterSparseDevice goodbye;
    goodbye.set_device_id(device.Id());
    goodbye.set_name("d");
    EXPECT_EQ(m_client->Ask(goodbye), "vq.vds.UnregisterSparseDevice.Reply");
    m_server->Join();
}

TEST(ServerStartTest, RefusesWhatItCannotServe) {
    auto const good = Options("IPC:" + test::HomeDirectory() + "s");
    auto const with = [&good](auto change) {
        ServerOptions options = good;
        change(options);
        return options;
    };
    std::vector<std::pair<ServerOptions, char const*>> const cases = {
        {with([](auto& o) { o.dataDirectory += "missing"; }), "does not exist"},
        {with([](auto& o) { o.heartbeatPeriod = 2s; }), "heartbeat period"},
        {with([](auto& o) { o.name = "tab\tname"; }), "registry cannot hold"},
        {with([](auto& o) { o.address = MessageAddress::FromString("SOCKET:127.0.0.1:x"); }),
         "no address to serve"},
        {with([](auto& o) { o.address = MessageAddress::FromString("IPC:/nowhere/s"); }), "Cannot serve on"},
    };
    for (auto const& [options, text] : cases) {
        test::LogCapture const log;
        EXPECT_FALSE(RunningServer(options).IsGood());
        EXPECT_TRUE(log.Has(LogLevel::Error, text)) << text;
    }
    EXPECT_TRUE(RunningServer(good).IsGood());
    AMessageManager::Instance().Cleanup();
}

TEST(ServerStartTest, WarnsOfLocalhostAndKeepsTheTempDirectoryPrivate) {
    test::LogCapture const log;
    {
        RunningServer const server(Options("SOCKET:localhost:1?server"));
        ASSERT_TRUE(server.IsGood());
        EXPECT_EQ(log.Count(LogLevel::Warning, "every network interface"), 1U);
        struct stat status {};
        ASSERT_EQ(::stat(GetUserTempDirectory().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0700U);
    }
    AMessageManager::Instance().Cleanup();
}

TEST(ServerStartTest, DropsWhoSendsMoreThanTheBound) {
    {
        RunningServer const server(Options("SOCKET:127.0.0.1:1?server"));
        ASSERT_TRUE(server.IsGood());
        test::RawSocket hostile(ZMQ_REQ, server.Address());
        hostile.Send({"", "vq.vds.Ping", std::string((64U << 20U) + 1, 'x')});
        EXPECT_FALSE(hostile.Poll(1s));
        EXPECT_EQ(test::RawSocket(ZMQ_REQ, server.Address()).Ask(vq::vds::Ping()), "vq.vds.Ping.Reply");
    }
    AMessageManager::Instance().Cleanup();
}

}  // namespace
}  // namespace vq::server
