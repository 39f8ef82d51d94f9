#include "VDSConnectionManager.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <condition_variable>
#include <semaphore>
#include <string>
#include <thread>
#include <zmq.hpp>

#include "TestSupport/LogCapture.h"
#include "Utils/ServerRegistry.h"

using namespace std::chrono_literals;
using vq::SdkShim::VDSConnectionManager;
using vq::test::LogCapture;

namespace {

constexpr auto kLimit = 60s;

/// What a server shows to a connection manager: its line in the registry and a heartbeat socket.
class HeartbeatServer {
public:
    explicit HeartbeatServer(int protocol) : m_socket(m_context, zmq::socket_type::pub) {
        m_socket.bind("tcp://127.0.0.1:*");
        std::string const endpoint = m_socket.get(zmq::sockopt::last_endpoint);
        m_server.name = "fake";
        m_server.address = {"127.0.0.1:9", MessageAddress::Transport::SOCKET, ""};
        m_server.heartbeatAddress = {endpoint.substr(endpoint.rfind('/') + 1),
                                     MessageAddress::Transport::SOCKET, ""};
        m_server.memoryEventAddress = m_server.address;
        m_server.protocol = protocol;
        m_server.pid = ::getpid();
        EXPECT_TRUE(ServerRegistry::Instance().RegisterServer(m_server, kLimit, nullptr));
    }
    ~HeartbeatServer() { ServerRegistry::Instance().RemoveServer(m_server, kLimit, nullptr); }

    /// An event whose header cannot be read.
    void SendMalformed() {
        m_socket.send(zmq::str_buffer("vq.vds.ServerHeartbeat?"), zmq::send_flags::sndmore);
        m_socket.send(zmq::message_t(), zmq::send_flags::none);
    }

private:
    zmq::context_t m_context;
    zmq::socket_t m_socket;
    ServerDescriptor m_server;
};

/// Counts the calls of both callbacks.
class CallCounter {
public:
    auto Connect() {
        return [this] { Add(m_connects); };
    }
    auto Disconnect() {
        return [this] { Add(m_disconnects); };
    }
    bool WaitForConnects(int count) { return Wait(m_connects, count); }
    int Connects() { return Get(m_connects); }
    int Disconnects() { return Get(m_disconnects); }

private:
    void Add(int& counter) {
        std::lock_guard lock(m_mutex);
        ++counter;
        m_changed.notify_all();
    }
    bool Wait(int const& counter, int count) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, [&] { return counter >= count; });
    }
    int Get(int const& counter) {
        std::lock_guard lock(m_mutex);
        return counter;
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_connects = 0;
    int m_disconnects = 0;
};

}  // namespace

TEST(VDSConnectionManagerTest, ASilentServerStaysAttachedUntilTheStop) {
    LogCapture log(LogLevel::Verbose);
    HeartbeatServer server(12);
    CallCounter calls;
    VDSConnectionManager manager(100ms, 200ms);
    EXPECT_FALSE(manager.WaitForConnection(kLimit)) << "not started";
    ASSERT_TRUE(manager.Start("Test", calls.Connect(), calls.Disconnect()));
    EXPECT_FALSE(manager.Start("Other", calls.Disconnect(), calls.Connect()));
    EXPECT_TRUE(log.Has(LogLevel::Error, "[VDSConnectionManager|Test] Already started."));

    ASSERT_TRUE(manager.WaitForConnection(kLimit));
    std::this_thread::sleep_for(1s);  // many times the limit of the silence
    EXPECT_TRUE(manager.WaitForConnection(0ms));
    EXPECT_EQ(calls.Disconnects(), 0);
    manager.Stop();
    EXPECT_FALSE(manager.WaitForConnection(0ms));
    EXPECT_EQ(calls.Connects(), 1);
    EXPECT_EQ(calls.Disconnects(), 1);
}

TEST(VDSConnectionManagerTest, AHeartbeatThatCannotBeReadDetachesOnceAndThenReconnects) {
    LogCapture log(LogLevel::Verbose);
    HeartbeatServer server(12);
    CallCounter calls;
    VDSConnectionManager manager(100ms, 200ms);
    ASSERT_TRUE(manager.Start("Test", calls.Connect(), calls.Disconnect()));
    ASSERT_TRUE(manager.WaitForConnection(kLimit));
    std::this_thread::sleep_for(300ms);  // it has seen the listener well
    // Faster than the manager reads, so that each of its looks finds one.
    auto const begin = std::chrono::steady_clock::now();
    while (calls.Disconnects() == 0 && std::chrono::steady_clock::now() < begin + kLimit) {
        server.SendMalformed();
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_GT(std::chrono::steady_clock::now() - begin, 150ms) << "one bad heartbeat is no reason to detach";
    EXPECT_TRUE(calls.WaitForConnects(2));
    EXPECT_TRUE(manager.WaitForConnection(kLimit));
    EXPECT_EQ(calls.Disconnects(), 1);
    EXPECT_TRUE(log.Has(LogLevel::Verbose, "[VDSConnectionManager|Test] Have not observed heartbeat in "));
}

TEST(VDSConnectionManagerTest, WithoutAServerItSaysSoOnceAndCallsNobody) {
    LogCapture log(LogLevel::Verbose);
    CallCounter calls;
    VDSConnectionManager manager;
    ASSERT_TRUE(manager.Start("Test", calls.Connect(), calls.Disconnect()));
    ASSERT_TRUE(log.WaitFor(LogLevel::Info, "Test library is not connected."));
    EXPECT_FALSE(manager.WaitForConnection(500ms));
    manager.Stop();
    EXPECT_EQ(log.Count(LogLevel::Info, "Test library is not connected."), 1u);
    EXPECT_EQ(calls.Connects() + calls.Disconnects(), 0);
    EXPECT_TRUE(log.Has(LogLevel::Verbose, "[VDSConnectionManager|Test] - Successfully disconnected!"));

    HeartbeatServer server(12);
    ASSERT_TRUE(manager.Start("Test", calls.Connect(), calls.Disconnect()));
    EXPECT_TRUE(manager.WaitForConnection(kLimit)) << "a stopped manager can be started again";
}

TEST(VDSConnectionManagerTest, ItIsConnectedOnlyWhenTheCallbackHasReturned) {
    LogCapture log;
    HeartbeatServer server(13);
    std::binary_semaphore entered{0};
    std::binary_semaphore leave{0};
    VDSConnectionManager manager;
    ASSERT_TRUE(manager.Start(
        "Test",
        [&] {
            entered.release();
            leave.acquire();
        },
        nullptr));
    entered.acquire();
    EXPECT_FALSE(manager.WaitForConnection(50ms));
    leave.release();
    EXPECT_TRUE(manager.WaitForConnection(kLimit)) << "a newer server is refused elsewhere";
    EXPECT_EQ(
        log.Count(LogLevel::Warning,
                  "Tessel Server is running protocol version 13, expected version 12: verify your runtime "
                  "environment"),
        1u);
}
