#include "Messaging/AMessageManager.h"
#include "Messaging/ZMQMessagePipeProvider.h"
#include "MessagingFixture.h"
#include "ServerRequests.pb.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/ServerRegistry.h"

namespace {

class PipeProviderTest : public MessagingTest {
protected:
    ZMQMessagePipeProvider& Provider() { return dynamic_cast<ZMQMessagePipeProvider&>(*Pipes()); }

    static MessageAddress Socket(std::string const& location, std::string const& name = "") {
        return {location, Transport::SOCKET, name};
    }
    /// True when a request goes from one pipe to the other.
    static bool AreLinked(AMessagePipeRequestReply* client, AMessagePipeRequestReply* server) {
        return MessageUtils::Send(client, vq::vds::GetVersion(), kLimit, nullptr) && Next(server) != nullptr;
    }
};

TEST_F(PipeProviderTest, APipeIsKnownByAddressAndName) {
    AMessagePipeRequestReply* const client = Client("a");
    EXPECT_EQ(Client("a"), client);
    EXPECT_NE(Client("a", "other"), client);
    EXPECT_NE(Client("b"), client);
    AMessagePipeEventListener* const listener = Listener("e");
    EXPECT_EQ(Pipes()->GetEventListener(Loopback("e"), "", SocketRole::Bind), listener);
    MessageAddress const logical{"base", Transport::LOOPBACK, "sparseDevice.x"};
    EXPECT_EQ(Pipes()->GetRequestReplyServer(logical, "")->GetRemote(), Loopback("base.sparseDevice.x"));
}

TEST_F(PipeProviderTest, ALocalServerIsBoundOnEveryInterfaceAndEvadesAPortInUse) {
    AMessagePipeRequestReply* const occupier = Pipes()->GetRequestReplyServer(Socket("localhost", "any"), "");
    std::string const port = std::to_string(occupier->GetRemote().ExtractPort());
    EXPECT_TRUE(AreLinked(Pipes()->GetRequestReplyClient(Socket("127.0.0.2:" + port), ""), occupier));

    MessageAddress const wanted = Socket("localhost:" + port);
    ZMQMessageContext context(Loopback("other"), &m_zmq);
    AMessagePipeProvider& pipes = *context.GetPipeProvider();
    vq::test::LogCapture log(LogLevel::Verbose);
    AMessagePipeRequestReply* const server = pipes.GetRequestReplyServer(wanted, "");
    ASSERT_NE(server, nullptr);
    EXPECT_NE(server->GetRemote(), wanted);
    EXPECT_EQ(log.Count(LogLevel::Verbose, "failed to create request/reply server socket for " +
                                               wanted.ToString() + " (" + wanted.ToString() + ") #0: "),
              1u);
    EXPECT_FALSE(log.Has(LogLevel::Error, ""));
    EXPECT_EQ(pipes.Resolve(wanted, false), server->GetRemote());
    EXPECT_TRUE(AreLinked(pipes.GetRequestReplyClient(server->GetRemote(), ""), server));
}

TEST_F(PipeProviderTest, ASocketThatCannotBeSetUpIsGivenUpAfterFiveTries) {
    vq::test::LogCapture log(LogLevel::Verbose);
    MessageAddress const nowhere{vq::test::HomeDirectory() + "missing/x", Transport::IPC, ""};
    EXPECT_EQ(Pipes()->GetRequestReplyServer(nowhere, ""), nullptr);
    EXPECT_EQ(Pipes()->GetEventSender(nowhere, "", SocketRole::Bind), nullptr);
    EXPECT_EQ(log.Count(LogLevel::Verbose, "failed to create request/reply server socket for "), 5u);
    EXPECT_EQ(log.Count(LogLevel::Verbose, "failed to create event server socket for "), 5u);
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to create request/reply server socket for " +
                                             nowhere.ToString() + " after 5 tries"));
    log.Clear();
    // Without a physical address there is nothing to try.
    EXPECT_EQ(Pipes()->GetRequestReplyClient(MessageAddress(), ""), nullptr);
    EXPECT_EQ(Pipes()->GetEventListener(Socket("host:0"), "", SocketRole::Connect), nullptr);
    EXPECT_EQ(log.Lines(), (Lines{"E Invalid port in host:0"}));
}

TEST_F(PipeProviderTest, UrlsFollowTheTransportAndHostAndPortAreCutAtTheLastColon) {
    for (auto const& [text, good, host, port] : Rows<4>("PipeProvider", "hosts")) {
        std::string gotHost;
        int gotPort = 0;
        EXPECT_EQ(ZMQMessagePipeProvider::ParseHostPort(text, gotHost, gotPort), good == "true") << text;
        EXPECT_EQ(gotHost, host);
        EXPECT_EQ(gotPort, std::stoi(port));
    }
    for (auto const& [address, url] : {std::pair<MessageAddress, char const*>{{"", Transport::NONE, ""}, ""},
                                       {Loopback("x"), "inproc://x"},
                                       {Socket("h:5"), "tcp://h:5"},
                                       {Socket("h:0"), ""},
                                       {{"/tmp/x", Transport::IPC, "n"}, "ipc:///tmp/x?n"}}) {
        EXPECT_EQ(Provider().GetURL(address), url);
    }
    // A name keeps its port until it is forced to move; the system may then give the same one again.
    EXPECT_EQ(Pipes()->Resolve(Socket("localhost:1", "n"), false),
              Pipes()->Resolve(Socket("localhost:1", "n"), false));
    for (char const* name : {"n", ""}) {
        MessageAddress const moved = Pipes()->Resolve(Socket("localhost:1", name), true);
        EXPECT_GT(moved.ExtractPort(), 1);
        EXPECT_EQ(Pipes()->Resolve(Socket("localhost:1", name), false), moved);
    }

    // The word is replaced in paths too.
    std::string const directory = vq::test::HomeDirectory() + "localhost";
    std::filesystem::create_directory(directory);
    zmq::socket_t socket(m_zmq, ZMQ_REP);
    EXPECT_THROW(Provider().BindOrConnect(&socket, {directory + "/x", Transport::IPC, ""}, SocketRole::Bind),
                 zmq::error_t);
}

TEST_F(PipeProviderTest, PipesAreDisposedOfOnceAndForEveryHolder) {
    // Connecting ones: the socket library gives a bound endpoint free a little after its socket is closed.
    AMessagePipe* const client = Client("s");
    AMessagePipeEventListener* const listener = Listener("e");
    vq::test::LogCapture log;
    Pipes()->DisposePipe(client);
    EXPECT_EQ(log.Lines(), Lines{});
    Pipes()->DisposePipe(client);
    EXPECT_EQ(log.Lines(), (Lines{"W Can't find the message pipe in the reverse map"}));
    AMessagePipeRequestReply* const again = Client("s");

    log.Clear();
    Pipes()->DisposePipes();
    EXPECT_EQ(Next(listener, kUnlimited), nullptr);
    EXPECT_FALSE(MessageUtils::Send(again, vq::vds::GetVersion(), kUnlimited, nullptr));
    Pipes()->Cleanup();
    EXPECT_EQ(log.Lines(), Lines{});
    EXPECT_FALSE(Client("s")->IsDisposed());
}

class MessageManagerTest : public PipeProviderTest {};

TEST_F(MessageManagerTest, ContextsAreOnePerAddressReachEachOtherAndAreNewAfterCleanup) {
    AMessageManager& manager = AMessageManager::Instance();
    MessageAddress const loopback = manager.GetDefaultProcessLoopbackAddress();
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(manager.FindContext(Loopback("a")), nullptr);
        AMessageContext* const a = manager.GetContext(Loopback("a"));
        EXPECT_EQ(manager.GetContext(Loopback("a")), a);
        EXPECT_EQ(manager.FindContext(Loopback("a")), a);
        AMessageContext* const b = manager.GetContext(Loopback("b"));
        AMessagePipeRequestReply* const server = a->GetPipeProvider()->GetRequestReplyServer(loopback, "");
        EXPECT_TRUE(AreLinked(b->GetPipeProvider()->GetRequestReplyClient(loopback, ""), server));
        manager.Cleanup();
    }
}

TEST_F(MessageManagerTest, TheServerIsTheChosenOneElseTheOnlyOneElseTheDefault) {
    AMessageManager& manager = AMessageManager::Instance();
    MessageAddress const standard = manager.GetDefaultServerTcpAddress();
    EXPECT_EQ(standard.ToString(), "SOCKET:localhost:17975");
    EXPECT_EQ(manager.GetDefaultServerIpcAddress().ToString(), "IPC:default");
    MessageAddress const registered{"/tmp/one", Transport::IPC, ""};

    for (int servers = 0; servers <= 2; ++servers) {
        if (servers != 0) {
            ServerDescriptor server;
            server.name = "server" + std::to_string(servers);
            server.address = servers == 1 ? registered : Socket("localhost:1");
            server.heartbeatAddress = server.memoryEventAddress = Socket("localhost:2");
            ASSERT_TRUE(ServerRegistry::Instance().RegisterServer(server, kLimit, nullptr));
        }
        // Null: what the registry says, behind an error line. Without a value: without that line.
        for (auto const& [value, chosen] :
             {std::pair<char const*, char const*>{"6000", "SOCKET:localhost:6000"},
              {"abc", nullptr},
              {nullptr, nullptr}}) {
            Lines expected;
            if (chosen == nullptr && value != nullptr) {
                expected.push_back(std::string("E Invalid address or port for server: ") + value);
            }
            if (chosen == nullptr && servers == 2) {
                expected.push_back("W More than one VDS is running: set VQ_VDS_ADDRESS to select one");
            }
            value != nullptr ? ::setenv("VQ_VDS_ADDRESS", value, 1) : ::unsetenv("VQ_VDS_ADDRESS");
            vq::test::LogCapture log;
            EXPECT_EQ(manager.GetServerAddress(), chosen != nullptr ? MessageAddress::FromString(chosen)
                                                  : servers == 1    ? registered
                                                                    : standard);
            EXPECT_EQ(log.Lines(), expected);
        }
    }
}

}  // namespace
