#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "Messaging/AMessageManager.h"
#include "Messaging/RemoteDeviceHandler.h"
#include "Messaging/ZMQMessagePipeProvider.h"
#include "MessagingFixture.h"
#include "ServerRequests.pb.h"
#include "TestSupport/TestHome.h"
#include "Utils/ServerRegistry.h"

namespace {

class PipeProviderTest : public MessagingTest {
protected:
    using Texts = std::vector<std::string>;

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
    EXPECT_NE(Pipes()->GetRequestReplyClient(Loopback("a"), "other"), client);
    EXPECT_NE(Client("b"), client);
    EXPECT_EQ(client->GetContext(), m_context.get());
    EXPECT_EQ(client->GetName(), "test");
    AMessagePipeEventListener* const listener = Listener("e");
    EXPECT_EQ(Pipes()->GetEventListener(Loopback("e"), "", SocketRole::Bind), listener);

    MessageAddress const logical{"base", Transport::LOOPBACK, "sparseDevice.x"};
    EXPECT_EQ(Pipes()->GetRequestReplyServer(logical, "")->GetRemote(), Loopback("base.sparseDevice.x"));
}

TEST_F(PipeProviderTest, APortInUseMakesTheServerComeUpOnAnother) {
    zmq::socket_t occupier = MakeSocket(ZMQ_REP);
    occupier.bind("tcp://*:*");
    std::string const endpoint = occupier.get(zmq::sockopt::last_endpoint);
    MessageAddress const wanted = Socket("localhost" + endpoint.substr(endpoint.rfind(':')));

    vq::test::LogCapture log(LogLevel::Verbose);
    AMessagePipeRequestReply* const server = Pipes()->GetRequestReplyServer(wanted, "");
    ASSERT_NE(server, nullptr);
    EXPECT_NE(server->GetRemote(), wanted);
    EXPECT_EQ(log.Count(LogLevel::Verbose, "failed to create request/reply server socket for " +
                                               wanted.ToString() + " (" + wanted.ToString() + ") #0: "),
              1u);
    EXPECT_FALSE(log.Has(LogLevel::Error, ""));
    EXPECT_EQ(Pipes()->Resolve(wanted, false), server->GetRemote());
    AMessagePipeRequestReply* const client = Pipes()->GetRequestReplyClient(server->GetRemote(), "");
    EXPECT_TRUE(AreLinked(client, server));
}

TEST_F(PipeProviderTest, LocalhostIsBoundOnEveryInterface) {
    AMessagePipeRequestReply* const server = Pipes()->GetRequestReplyServer(Socket("localhost", "any"), "");
    std::string const port = std::to_string(server->GetRemote().ExtractPort());
    AMessagePipeRequestReply* const client = Pipes()->GetRequestReplyClient(Socket("127.0.0.2:" + port), "");
    EXPECT_TRUE(AreLinked(client, server));
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
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(Pipes()->GetEventListener(Socket("host:0"), "", SocketRole::Connect), nullptr);
    EXPECT_EQ(log.Lines(), (Texts{"E Invalid port in host:0"}));
}

TEST_F(PipeProviderTest, HostAndPortAreCutAtTheLastColon) {
    struct Case {
        char const* text;
        bool good;
        char const* host;
        int port;
    };
    for (Case const& c : {Case{"localhost:5", true, "localhost", 5}, Case{":5", true, "localhost", 5},
                          Case{"", true, "localhost", 17975}, Case{"host", true, "host", 17975},
                          Case{"::1:80", true, "::1", 80}, Case{"host:123abc", true, "host", 123},
                          Case{"host:0", false, "host:0", 0}, Case{"host:", false, "host:", 0},
                          Case{"host:x", false, "host:x", 0}}) {
        std::string host;
        int port = -1;
        EXPECT_EQ(ZMQMessagePipeProvider::ParseHostPort(c.text, host, port), c.good) << c.text;
        EXPECT_EQ(host, c.host);
        EXPECT_EQ(port, c.port);
    }
}

TEST_F(PipeProviderTest, UrlsFollowTheTransport) {
    struct Case {
        MessageAddress address;
        char const* url;
    };
    for (Case const& c : {Case{{"", Transport::NONE, ""}, ""}, Case{Loopback("x"), "inproc://x"},
                          Case{Socket("h:5"), "tcp://h:5"}, Case{Socket("h:0"), ""},
                          Case{{"/tmp/x", Transport::IPC, "n"}, "ipc:///tmp/x?n"}}) {
        EXPECT_EQ(Provider().GetURL(c.address), c.url);
    }
    EXPECT_EQ(Pipes()->Resolve({"", Transport::LOOPBACK, "n"}, false), Loopback("_.n"));
    EXPECT_EQ(Pipes()->Resolve(Socket("host:0"), false), MessageAddress());
    MessageAddress const moved = Pipes()->Resolve(Socket("localhost:1"), true);
    EXPECT_NE(moved.location, "localhost:1");
    EXPECT_EQ(Pipes()->Resolve(Socket("localhost:1"), false), moved);

    // The word is replaced in paths too.
    std::string const directory = vq::test::HomeDirectory() + "localhost";
    std::filesystem::create_directory(directory);
    zmq::socket_t socket = MakeSocket(ZMQ_REP);
    EXPECT_THROW(Provider().BindOrConnect(&socket, {directory + "/x", Transport::IPC, ""}, SocketRole::Bind),
                 zmq::error_t);
}

TEST_F(PipeProviderTest, PipesAreDisposedOfOnceAndForEveryHolder) {
    // Connecting ones: the socket library gives a bound endpoint free a little after its socket is closed.
    AMessagePipe* const client = Client("s");
    AMessagePipeEventListener* const listener = Listener("e");
    vq::test::LogCapture log;
    Pipes()->DisposePipe(client);
    EXPECT_TRUE(log.Lines().empty());
    Pipes()->DisposePipe(client);
    EXPECT_EQ(log.Lines(), (Texts{"W Can't find the message pipe in the reverse map"}));
    AMessagePipeRequestReply* const again = Client("s");

    log.Clear();
    Pipes()->DisposePipes();
    EXPECT_EQ(Next(listener, kUnlimited), nullptr);
    EXPECT_FALSE(MessageUtils::Send(again, vq::vds::GetVersion(), kUnlimited, nullptr));
    Pipes()->Cleanup();
    EXPECT_TRUE(log.Lines().empty()) << testing::PrintToString(log.Lines());
    EXPECT_FALSE(Client("s")->IsDisposed());
}

TEST_F(PipeProviderTest, CleanupReachesTheDeviceHandler) {
    struct Handler : RemoteDeviceHandler {
        explicit Handler(int& count) : m_count(count) {}
        void Cleanup() override { ++m_count; }
        int& m_count;
    };
    int cleanups = 0;
    {
        ZMQMessagePipeProvider provider(m_context.get(), std::make_unique<Handler>(cleanups));
        EXPECT_NE(provider.GetDeviceHandler(), nullptr);
        provider.Cleanup();
        EXPECT_EQ(cleanups, 1);
    }
    EXPECT_EQ(cleanups, 2);
    EXPECT_EQ(Pipes()->GetDeviceHandler(), nullptr);
}

class MessageManagerTest : public PipeProviderTest {};

TEST_F(MessageManagerTest, ContextsAreOnePerAddressAndNewAfterCleanup) {
    AMessageManager& manager = AMessageManager::Instance();
    EXPECT_EQ(manager.FindContext(Loopback("a")), nullptr);
    for (int round = 0; round < 2; ++round) {
        AMessageContext* const a = manager.GetContext(Loopback("a"));
        AMessageContext* const b = manager.GetContext(Loopback("b"));
        EXPECT_EQ(manager.GetContext(Loopback("a")), a);
        EXPECT_EQ(manager.FindContext(Loopback("b")), b);
        EXPECT_EQ(a->GetAddress(), Loopback("a"));
        // Contexts reach each other inside the process.
        AMessagePipeRequestReply* const server =
            a->GetPipeProvider()->GetRequestReplyServer(manager.GetDefaultProcessLoopbackAddress(), "");
        AMessagePipeRequestReply* const client =
            b->GetPipeProvider()->GetRequestReplyClient(manager.GetDefaultProcessLoopbackAddress(), "");
        EXPECT_TRUE(AreLinked(client, server));
        manager.Cleanup();
        EXPECT_EQ(manager.FindContext(Loopback("a")), nullptr);
    }
}

TEST_F(MessageManagerTest, TheServerIsTheChosenOneElseTheOnlyOneElseTheDefault) {
    AMessageManager& manager = AMessageManager::Instance();
    ServerRegistry& registry = ServerRegistry::Instance();
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
            ASSERT_TRUE(registry.RegisterServer(server, kLimit, nullptr));
        }
        MessageAddress const fallback = servers == 1 ? registered : standard;
        Texts const fallbackLines =
            servers == 2 ? Texts{"W More than one VDS is running: set VQ_VDS_ADDRESS to select one"}
                         : Texts{};
        struct Case {
            char const* value;
            char const* address;  // null: what the registry says, behind an error line
        };
        for (Case const& c :
             {Case{"6000", "SOCKET:localhost:6000"}, Case{"123abc", "SOCKET:localhost:123abc"},
              Case{"SOCKET:host:6000", "SOCKET:host:6000"}, Case{"IPC:a?b", "IPC:a?b"}, Case{"abc", nullptr},
              Case{"NONE:x", nullptr}}) {
            vq::test::LogCapture log;
            ::setenv("VQ_VDS_ADDRESS", c.value, 1);
            EXPECT_EQ(manager.GetServerAddress(),
                      c.address != nullptr ? MessageAddress::FromString(c.address) : fallback)
                << c.value;
            Texts expected = c.address != nullptr ? Texts{} : fallbackLines;
            if (c.address == nullptr) {
                expected.insert(expected.begin(),
                                std::string("E Invalid address or port for server: ") + c.value);
            }
            EXPECT_EQ(log.Lines(), expected);
        }
        ::unsetenv("VQ_VDS_ADDRESS");
        vq::test::LogCapture log;
        EXPECT_EQ(manager.GetServerAddress(), fallback);
        EXPECT_EQ(log.Lines(), fallbackLines);
    }
}

}  // namespace
