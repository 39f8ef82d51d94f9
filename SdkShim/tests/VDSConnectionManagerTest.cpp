#include "VDSConnectionManager.h"

#include <semaphore>

#include "TestSupport/LogCapture.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Test.h"
#include "Utils/ServerRegistry.h"

using vq::SdkShim::VDSConnectionManager;
using vq::test::LogCapture;

namespace {

constexpr auto kLimit = 60s;

/// What a server shows to a connection manager: its line in the registry and a heartbeat socket.
class HeartbeatServer {
public:
    explicit HeartbeatServer(int protocol) {
        MessageAddress const address = MessageAddress::FromString(m_address);
        m_line = {"fake", address, protocol, protocol, ::getpid(), address, address};
        EXPECT_TRUE(ServerRegistry::Instance().RegisterServer(m_line, kLimit, nullptr));
    }
    ~HeartbeatServer() { ServerRegistry::Instance().RemoveServer(m_line, kLimit, nullptr); }

    /// An event whose header cannot be read.
    void SendMalformed() { m_socket.Send({"vq.vds.ServerHeartbeat?", ""}); }

private:
    std::string const m_address = "IPC:" + vq::test::HomeDirectory() + "heartbeat";
    vq::test::RawSocket m_socket{ZMQ_PUB, m_address};
    ServerDescriptor m_line;
};

class VDSConnectionManagerTest : public testing::Test {
protected:
    bool Start(VDSConnectionManager& manager) {
        return manager.Start(
            "Test", [this] { ++m_connects; }, [this] { ++m_disconnects; });
    }

    LogCapture m_log{LogLevel::Verbose};
    std::atomic<int> m_connects{0};
    std::atomic<int> m_disconnects{0};
};

}  // namespace

TEST_F(VDSConnectionManagerTest, ASilentServerStaysAttachedUntilTheStop) {
    HeartbeatServer server(12);
    VDSConnectionManager manager(100ms, 200ms);
    EXPECT_FALSE(manager.WaitForConnection(kLimit)) << "not started";
    ASSERT_TRUE(Start(manager));
    EXPECT_FALSE(manager.Start("Other", nullptr, nullptr));
    EXPECT_TRUE(m_log.Has(LogLevel::Error, "[VDSConnectionManager|Test] Already started."));

    ASSERT_TRUE(manager.WaitForConnection(kLimit));
    std::this_thread::sleep_for(1s);  // many times the limit of the silence
    EXPECT_TRUE(manager.WaitForConnection(0ms));
    EXPECT_EQ(m_disconnects, 0);
    manager.Stop();
    EXPECT_FALSE(manager.WaitForConnection(0ms));
    EXPECT_EQ(m_connects, 1);
    EXPECT_EQ(m_disconnects, 1);
}

TEST_F(VDSConnectionManagerTest, AHeartbeatThatCannotBeReadDetachesOnceAndThenReconnects) {
    HeartbeatServer server(12);
    VDSConnectionManager manager(100ms, 200ms);
    ASSERT_TRUE(Start(manager));
    ASSERT_TRUE(manager.WaitForConnection(kLimit));
    std::this_thread::sleep_for(300ms);  // it has seen the listener well
    // Faster than the manager reads, so that each of its looks finds one.
    auto const begin = std::chrono::steady_clock::now();
    while (m_disconnects == 0 && std::chrono::steady_clock::now() < begin + kLimit) {
        server.SendMalformed();
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_GT(std::chrono::steady_clock::now() - begin, 150ms) << "one bad heartbeat is no reason to detach";
    ASSERT_TRUE(m_log.WaitFor(LogLevel::Verbose, "- Successfully disconnected!"));
    EXPECT_TRUE(manager.WaitForConnection(kLimit));
    EXPECT_EQ(m_connects, 2);
    EXPECT_EQ(m_disconnects, 1);
    EXPECT_TRUE(m_log.Has(LogLevel::Verbose, "[VDSConnectionManager|Test] Have not observed heartbeat in "));
}

TEST_F(VDSConnectionManagerTest, WithoutAServerItSaysSoOnceAndCallsNobody) {
    VDSConnectionManager manager;
    ASSERT_TRUE(Start(manager));
    ASSERT_TRUE(m_log.WaitFor(LogLevel::Info, "Test library is not connected."));
    EXPECT_FALSE(manager.WaitForConnection(500ms));
    manager.Stop();
    EXPECT_EQ(m_log.Count(LogLevel::Info, "Test library is not connected."), 1u);
    EXPECT_EQ(m_connects + m_disconnects, 0);
    EXPECT_TRUE(m_log.Has(LogLevel::Verbose, "[VDSConnectionManager|Test] - Successfully disconnected!"));

    HeartbeatServer server(12);
    ASSERT_TRUE(Start(manager));
    EXPECT_TRUE(manager.WaitForConnection(kLimit)) << "a stopped manager can be started again";
}

TEST_F(VDSConnectionManagerTest, ItIsConnectedOnlyWhenTheCallbackHasReturned) {
    HeartbeatServer server(13);
    std::binary_semaphore entered{0};
    std::binary_semaphore leave{0};
    auto const connect = [&] {
        entered.release();
        leave.acquire();
    };
    VDSConnectionManager manager;
    ASSERT_TRUE(manager.Start("Test", connect, nullptr));
    entered.acquire();
    EXPECT_FALSE(manager.WaitForConnection(50ms));
    leave.release();
    EXPECT_TRUE(manager.WaitForConnection(kLimit)) << "a newer server is refused elsewhere";
    EXPECT_EQ(m_log.Count(LogLevel::Warning,
                          "Tessel Server is running protocol version 13, expected version 12: "
                          "verify your runtime environment"),
              1u);
}
