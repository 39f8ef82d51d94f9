// A server inside this process, spoken to frame by frame.

#include <sys/stat.h>

#include "RawDevice.h"
#include "RunningServer.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"
#include "Utils/OSUtils.h"
#include "Utils/TextUtils.h"

namespace vq::server {
namespace {

/// By transport: every test runs over each. In-process addresses need the server's own socket context.
class ServerWireTest : public testing::TestWithParam<char const*> {
public:
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

TEST_P(ServerWireTest, EveryRequestGetsTheAnswerOfItsKind) {
    RawDevice device(*m_client, "d", &m_context);
    device.ServeChannel("x");
    for (auto const& [name, fields, answer] : Rows<3>("ServerWire", "exchanges")) {
        std::string const type = "vq.vds." + name;
        EXPECT_EQ(m_client->Exchange({"", type, wire::Bytes(fields)}).first,
                  answer.front() == '.' ? type + answer : answer)
            << type << " " << fields;
    }
}

TEST_P(ServerWireTest, TellsClientsWhatTheyNeed) {
    EXPECT_EQ(m_client->Get(vq::vds::GetProtocolVersion()).protocol_version(), 12);
    EXPECT_EQ(m_client->Get(vq::vds::GetDataPath()).path(), test::HomeDirectory() + "data");
    RawDevice device(*m_client, "odd \xff\n name", &m_context);
    device.ServeChannel("x");
    EXPECT_EQ(m_client->Get<vq::vds::GetDeviceRequestReplyAddress>("1:'odd \xff\n name' 2:0").address(),
              Registration("odd \xff\n name").address());
    auto const mappings = m_client->Get(vq::vds::GetChannelMappings());
    ASSERT_EQ(mappings.mappings_size(), 1);
    EXPECT_EQ(mappings.mappings(0).device(), "odd \xff\n name");
}

TEST_P(ServerWireTest, PublishesWhatHappensAndNoSocketStaysSilent) {
    RawDevice device(*m_client, "d", &m_context);
    EXPECT_EQ(m_events->Await<vq::vds::DeviceRegisteredEvent>().device_id(), 1U);
    device.ServeChannel("x");
    EXPECT_EQ(m_events->Await<vq::vds::ChannelMappingChangedEvent>().devices(0), "d");
    m_events->Await<vq::vds::HelloEvent>();
    Listen(m_client->Get(vq::vds::GetServerDataEventBroadcastAddress()).address(), &m_context);
    Listen(m_client->Get(vq::vds::GetServerHeartbeatEventAddress()).address(), &m_context)
        .Await<vq::vds::ServerHeartbeat>();
}

TEST_P(ServerWireTest, AListenerThatIsAttachedLateStillHearsOfItsDevice) {
    RawDevice const device(*m_client, "d", &m_context);
    m_client->Get<vq::vds::ReportSparseDeviceInitialized>("1:1");
    // Its first event, whatever that is, is passed over: the announcement has to come among the next ones,
    // and so must be made again when a second listener comes.
    std::string const address = m_client->Get(vq::vds::GetServerEventAddress()).address();
    test::RawSocket late = Listen(address, &m_context);
    test::RawSocket const later = Listen(address, &m_context);
    EXPECT_EQ(late.Await<vq::vds::DeviceRegisteredEvent>().name(), "d");
}

TEST_P(ServerWireTest, MalformedRequestsAreAnsweredAndHurtNobodyElse) {
    test::RawSocket other(ZMQ_REQ, m_server->Address(), &m_context);
    for (auto const& [frames, text] : Rows<2>("ServerWire", "malformed")) {
        std::string const sent = ReplaceSubstring(frames, "BIG", std::string(1 << 20, 'x'));
        auto const [type, payload] = m_client->Exchange(Tokenize(sent, "/", false));
        EXPECT_EQ(type, "vq.vds.Error") << frames;
        EXPECT_THAT(payload, HasSubstr(text));
        EXPECT_EQ(other.Ask(vq::vds::Ping()), "vq.vds.Ping.Reply");
    }
    EXPECT_EQ(m_client->Exchange({std::string("any\0identity", 12), "vq.vds.Ping", ""}).first,
              "vq.vds.Ping.Reply");
}

TEST_P(ServerWireTest, ASilentDeviceIsPrunedAndMalformedEventsAreNoSignOfLife) {
    test::LogCapture const log;
    m_client->Get<vq::vds::SetDevicePruneSettings>("1:3000 2:50");
    RawDevice lying(*m_client, "lying", &m_context);
    lying.ServeChannel("x");
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
    EXPECT_EQ(m_client->Get(vq::vds::GetChannelMappings()).mappings_size(), 0);
    EXPECT_EQ(m_client->Get(vq::vds::GetDeviceInfos()).infos(0).name(), "honest");
    EXPECT_TRUE(log.Has(LogLevel::Error, "invalid event message frame"));
}

TEST_P(ServerWireTest, ReRegistrationLeavesNoListenerOrFileBehind) {
    std::string last;
    for (int i = 0; i < 5; ++i) {
        RawDevice const device(*m_client, "d" + std::to_string(i), &m_context);
        EXPECT_NE(device.Address(), last) << "the former address may still be in use";
        last = device.Address();
        m_client->Get<vq::vds::PruneDevice>("1:'d" + std::to_string(i) + "'");
        EXPECT_FALSE(FileExists(MessageAddress::FromString(last).location));
    }
    EXPECT_EQ(m_client->Get(vq::vds::GetDeviceInfos()).infos_size(), 0);
}

TEST_P(ServerWireTest, StopIsAnnouncedAndWaitsForGoodbyes) {
    RawDevice const device(*m_client, "d", &m_context);
    EXPECT_EQ(m_client->Ask(vq::vds::KillServer()), "vq.vds.KillServer.Reply");
    m_events->Await<vq::vds::ServerStoppingEvent>();
    EXPECT_EQ(m_client->Ask(Registration("late")), "vq.vds.Error");
    m_client->Get<vq::vds::UnregisterSparseDevice>("1:1 2:'d'");
    m_server->Join();
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
