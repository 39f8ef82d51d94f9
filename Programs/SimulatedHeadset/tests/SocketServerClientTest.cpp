#include "Messaging/SocketServerClient.h"

#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/RemoteDeviceHandler.h"
#include "Messaging/ZMQMessageContext.h"
#include "ServerEvents.pb.h"
#include "SimulatedHeadset/BridgeState.h"
#include "SimulatedHeadset/BridgeTunnels.h"
#include "SimulatedHeadset/HeadsetServer.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/TextUtils.h"

namespace {

using namespace std::string_literals;
using vq::headset::BridgeTunnels;

constexpr std::uint32_t kLevel = 29;
constexpr auto kBind = SocketRole::Bind;
constexpr auto kConnect = SocketRole::Connect;

std::string Bytes16(int number) {
    return {static_cast<char>(number >> 8), static_cast<char>(number & 0xFF)};
}

class SocketServerClientTest : public testing::Test {
public:
    SocketServerClientTest() { m_bridge.SetDevices({{"A1", "device"}}); }
    ~SocketServerClientTest() override {
        m_client.reset();
        EXPECT_TRUE(m_tunnels.List().empty());
    }

    std::string LastRequest() const { return m_headset.Requests().back(); }

    /// A client whose link is made; a reply that never comes is not awaited for long then.
    SocketServerClient& Client() {
        if (m_client == nullptr) {
            m_client = std::make_unique<SocketServerClient>(&m_zmq, "A1", m_headset.Port());
            EXPECT_TRUE(m_client->Init());
        }
        return *m_client;
    }

    vq::headset::BridgeState m_bridge;
    BridgeTunnels m_tunnels{m_bridge};
    vq::headset::HeadsetServer m_headset{0, kLevel};
    zmq::context_t m_zmq;
    std::unique_ptr<SocketServerClient> m_client;
};

TEST_F(SocketServerClientTest, ChecksTheLevelAndExplainsEveryOtherReply) {
    for (auto const& [answer, minimum, error] : Rows<3>("SocketServerClient", "levels")) {
        ASSERT_TRUE(m_headset.Answer("VER", answer));
        std::string got = "stale";
        bool const good = error.empty() && answer != "err:";
        EXPECT_EQ(Client().Validate(static_cast<std::uint32_t>(std::stoul(minimum)), got), good) << answer;
        EXPECT_EQ(got, error) << answer;
        EXPECT_EQ(LastRequest(), "VER\x03");
    }
    // One that is silent: each command waits its time for the answer, and then in vain for the socket.
    m_headset.Answer("VER", "silent");
    Client().SetTimeout(std::chrono::milliseconds(200));
    std::string error;
    EXPECT_FALSE(Client().Validate(0, error));
    EXPECT_EQ(error, Rows<1>("SocketServerClient", "timeouts").at(0).at(0));
    EXPECT_FALSE(Client().Validate(0, error));
    EXPECT_EQ(error, Rows<1>("SocketServerClient", "timeouts").at(1).at(0));
    int port = 0;
    vq::test::LogCapture const log;
    EXPECT_FALSE(Client().AllocateRemotePort(port));
    EXPECT_EQ(port, -1);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(SocketServerClientTest, TakesNoReplyButTheOneThatBelongsToTheCommand) {
    for (auto const& [answer, lines] : Rows<2>("SocketServerClient", "replies")) {
        m_headset.Answer("GET", answer);
        vq::test::LogCapture const log;
        int port = 0;
        EXPECT_FALSE(Client().AllocateRemotePort(port));
        EXPECT_EQ(port, -1);
        EXPECT_EQ(log.Lines(), Tokenize(lines, "\n", false)) << answer;
    }
    m_headset.Answer("TEST", "long");
    vq::test::LogCapture const log;
    EXPECT_FALSE(Client().RunRemoteTest(200, 0x1234, std::chrono::seconds(0x15678)));
    EXPECT_EQ(log.Count(LogLevel::Error, "Got unexpected ACK"), 1U);
    EXPECT_EQ(LastRequest(), "TEST\xC8\x12\x34\x56\x78");
    m_headset.Answer("TEST", "well");
    EXPECT_TRUE(Client().RunRemoteTest(1, 2, std::chrono::seconds(3)));
}

TEST_F(SocketServerClientTest, PairsPortsInTheDirectionOfItsRole) {
    int local = 0;
    int remote = 0;
    int found = 0;
    for (SocketRole const role : {kBind, kConnect}) {
        Client();
        std::size_t const before = m_tunnels.List().size();
        ASSERT_TRUE(Client().CreatePortPair(role, local, remote));
        EXPECT_TRUE(Client().FindPairedRemotePort(role, local, found));
        EXPECT_EQ(found, remote);
        EXPECT_FALSE(Client().FindPairedRemotePort(role == kBind ? kConnect : kBind, local, found));
        EXPECT_EQ(found, -1);
        EXPECT_FALSE(Client().FindPairedLocalPort(role, remote, found));
        EXPECT_EQ(found, -1);
        auto const kind = role == kBind ? BridgeTunnels::Kind::Reverse : BridgeTunnels::Kind::Forward;
        EXPECT_THAT(m_tunnels.List(), Contains(testing::Field(&BridgeTunnels::Tunnel::kind, kind)));
        EXPECT_TRUE(Client().PerformPortUnforwardReverse(role, local, remote));
        EXPECT_FALSE(Client().FindPairedRemotePort(role, local, found));
        EXPECT_EQ(m_tunnels.List().size(), before);
    }
    int const known = local;
    EXPECT_TRUE(Client().CreatePairedRemotePort(kBind, known, remote));
    EXPECT_TRUE(Client().CreatePairedLocalPort(kConnect, known, local));
    vq::test::LogCapture const log;
    auto const none = static_cast<SocketRole>(2);
    EXPECT_FALSE(Client().PerformPortForwardReverse(none, 1, 2));
    EXPECT_FALSE(Client().PerformPortUnforwardReverse(none, 1, 2));
    EXPECT_FALSE(Client().FindPairedRemotePort(none, 1, found));
    EXPECT_FALSE(Client().FindPairedLocalPort(none, 1, found));
    EXPECT_EQ(log.Lines(), Lines(4, "E unexpected hostRole 2"));
}

TEST_F(SocketServerClientTest, AdvertisesServersAndConnectsSharedMemory) {
    std::string const name = "rig\0one"s;
    EXPECT_TRUE(Client().AdvertiseVDS(4711, name));
    int port = 0;
    EXPECT_TRUE(Client().FindPairedRemotePort(kBind, 4711, port));
    EXPECT_EQ(LastRequest(), "VDS" + Bytes16(port) + name);

    vq::vds::ServerSharedMemoryChangedEvent event;
    int localRead = 0;
    int localWrite = 0;
    int remoteWrite = 0;
    int remoteRead = 0;
    vq::test::LogCapture log;
    EXPECT_FALSE(Client().ConnectSharedMemory(event, localRead, localWrite, remoteWrite, remoteRead));
    event.set_memory_id("frames");
    event.set_size(1 << 20);
    event.set_resizable(false);
    EXPECT_TRUE(Client().ConnectSharedMemory(event, localRead, localWrite, remoteWrite, remoteRead));
    EXPECT_EQ(LastRequest(), "MEM" + Bytes16(remoteWrite) + Bytes16(remoteRead) + event.SerializeAsString());
    EXPECT_TRUE(Client().FindPairedRemotePort(kBind, localRead, port) && port == remoteRead);
    EXPECT_TRUE(Client().FindPairedRemotePort(kConnect, localWrite, port) && port == remoteWrite);
    EXPECT_TRUE(
        Client().DisconnectSharedMemory("frames", 0xFE, localRead, localWrite, remoteWrite, remoteRead));
    EXPECT_EQ(LastRequest(),
              "MUM\xFE"
              "frames");
    EXPECT_EQ(m_tunnels.List().size(), 2U);  // the link's own and the server's

    log.Clear();
    m_headset.Answer("GET", "nak:full");
    EXPECT_FALSE(Client().AdvertiseVDS(4712, "other"));
    EXPECT_FALSE(Client().ConnectSharedMemory(event, localRead, localWrite, remoteWrite, remoteRead));
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to allocate port to device other"));
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to allocate read port to device"));
}

TEST_F(SocketServerClientTest, TheHandlerKeepsOneLinkForEachHeadset) {
    ZMQMessageContext context(MessageAddress{"headset", MessageAddress::Transport::LOOPBACK, ""}, &m_zmq);
    RemoteDeviceHandler& handler = *context.GetPipeProvider()->GetDeviceHandler();
    std::string error = "stale";
    vq::test::LogCapture log;
    SocketServerClient* const client =
        handler.ConnectRemoteClient(&context, "A1", m_headset.Port(), kLevel, error);
    ASSERT_NE(client, nullptr) << error;
    EXPECT_EQ(handler.ConnectRemoteClient(&context, "A1", m_headset.Port(), kLevel, error), client);
    EXPECT_EQ(log.Lines(), (Lines{"I Remote client already connected"}));
    EXPECT_EQ(handler.FindRemoteClientByIdentity("A1"), client);
    EXPECT_EQ(handler.FindRemoteClientByIdentity("B2"), nullptr);
    EXPECT_TRUE(handler.DisconnectRemoteClient("A1"));
    EXPECT_FALSE(handler.DisconnectRemoteClient("A1"));
    EXPECT_EQ(handler.ConnectRemoteClient(&context, "A1", m_headset.Port(), kLevel + 1, error), nullptr);
    EXPECT_THAT(error, HasSubstr("older platform API level"));
    EXPECT_TRUE(m_tunnels.List().empty());
    EXPECT_NE(handler.ConnectRemoteClient(&context, "A1", m_headset.Port(), 0, error), nullptr);
    context.GetPipeProvider()->Cleanup();
    EXPECT_EQ(handler.FindRemoteClient("A1"), nullptr);
    EXPECT_TRUE(m_tunnels.List().empty());
}

TEST(SocketServerBaseTest, KnowsTheOtherEndOfEverySocket) {
    std::string pairs;
    for (int type = -1; type <= 12; ++type) {
        bool const exists = type >= ZMQ_PAIR && type <= ZMQ_STREAM;
        pairs += SocketServerBase::GetTypeName(type) +
                 (exists ? "/" + std::to_string(SocketServerBase::GetOppositeType(type)) : "") + " ";
    }
    EXPECT_EQ(pairs,
              "-1 ZMQ_PAIR/0 ZMQ_PUB/2 ZMQ_SUB/1 ZMQ_REQ/4 ZMQ_REP/3 ZMQ_DEALER/6 ZMQ_ROUTER/5 ZMQ_PULL/8 "
              "ZMQ_PUSH/7 ZMQ_XPUB/10 ZMQ_XSUB/9 ZMQ_STREAM/11 12 ");
    EXPECT_DEATH(SocketServerBase::GetOppositeType(12), "CHECK FAILED");
    EXPECT_EQ(SocketServerBase::ReadUint32("x\xFF\xFE\xFD\xFC", 1), 0xFFFEFDFCU);
    EXPECT_DEATH(SocketServerBase::ReadUint16("abc", 2), "CHECK FAILED");
}

}  // namespace
