// How much the server holds: nobody is lost under load, and nobody who stands still costs it more than a
// bound.

#include <signal.h>
#include <sys/resource.h>

#include <list>

#include "RawDevice.h"
#include "TestSupport/Program.h"
#include "TestSupport/Test.h"

namespace vq::server {
namespace {

using Clock = std::chrono::steady_clock;
using test::RawSocket;
using test::ResidentMiB;

class ServerLoadTest : public testing::Test {
public:
    ~ServerLoadTest() override { m_server.Stop(); }

    zmq::context_t m_context;
    // Under the address sanitizer freed blocks would stand in a quarantine of 256 MiB and count as in use.
    char const* const m_options = std::getenv("ASAN_OPTIONS");
    test::Program m_server{
        {"vdserver", "--address", "SOCKET:127.0.0.1:1?load", "--log-level", "warning"},
        {{"ASAN_OPTIONS", std::string(m_options != nullptr ? m_options : "") + ":quarantine_size_mb=1"}}};
    std::string const& m_address = m_server.Ready();
    RawSocket m_client{ZMQ_REQ, m_address};
};

TEST_F(ServerLoadTest, HoldsTwoHundredDevicesUnderRequestsWithoutLosingOne) {
    constexpr int kDevices = 200;
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    std::string const eventAddress = m_client.Get(vq::vds::GetServerEventAddress()).address();
    std::list<RawSocket> clients;
    std::list<RawDevice> devices;
    std::list<RawSocket> listeners;
    auto nextHello = Clock::now();
    auto const greet = [&] {
        if (Clock::now() >= nextHello) {
            nextHello = Clock::now() + std::chrono::milliseconds(250);
            std::ranges::for_each(devices, &RawDevice::SayHello);
        }
    };
    for (int i = 0; i < kDevices; ++i) {
        greet();
        clients.emplace_back(ZMQ_REQ, m_address, &m_context);
        devices.emplace_back(clients.back(), "device" + std::to_string(i), &m_context);
        devices.back().ServeChannel("channel" + std::to_string(i));
        listeners.emplace_back(ZMQ_SUB, eventAddress, &m_context);
    }
    for (int done = 0; done < 5000;) {
        for (RawSocket& client : clients) {
            if (done % 100 == 0) {
                client.Get(vq::vds::GetDeviceInfos());
            } else {
                client.Get<vq::vds::GetDeviceRequestReplyAddress>("1:'device" +
                                                                  std::to_string(done % kDevices) + "' 2:0");
            }
            ASSERT_FALSE(HasFailure());
            ++done;
            greet();
        }
    }
    EXPECT_EQ(m_client.Get(vq::vds::GetDeviceInfos()).infos_size(), kDevices);
}

TEST_F(ServerLoadTest, AListenerThatStandsStillCostsTheServerABoundedQueue) {
    constexpr int kWindow = 100;
    RawDevice device(m_client, "d");
    device.ServeChannel("x");
    std::string const broadcast = m_client.Get(vq::vds::GetServerDataEventBroadcastAddress()).address();
    RawSocket still(ZMQ_SUB, broadcast);
    RawSocket busy(ZMQ_SUB, broadcast);
    device.JoinUntilHeardBy(busy);
    test::Frames const event = {std::string("vq.ch.AudioBufferChannelDataEvent\0x\0\1\0\0\0", 40),
                                std::string(65536, 'a')};
    double most = 0;
    for (int sent = 0; sent < 10000; sent += kWindow) {
        for (int i = 0; i < kWindow; ++i) {
            device.Publish(event);
        }
        for (int received = 0; received < kWindow;) {
            received += busy.Receive() == event;
        }
        most = std::max(most, ResidentMiB(m_server.Pid()));
    }
    // A queue of a thousand events, and what is on the way.
    EXPECT_LT(most, 400);
}

}  // namespace
}  // namespace vq::server
