// How much the server holds. Figures are printed; what is tested is that nobody is lost under the load.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <list>
#include <sstream>

#include "RawClient.h"
#include "TestSupport/ChildProcess.h"
#include "TestSupport/TestHome.h"

namespace vq::server {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kDevices = 200;
constexpr int kRequests = 5000;

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

/// Processor time of a process so far, in seconds.
double ProcessorTime(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string field;
    double ticks = 0;
    for (int i = 3; fields >> field && i <= 15; ++i) {
        ticks += i >= 14 ? std::stod(field) : 0;
    }
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

/// Memory that a process has in use, in MiB.
double ResidentMiB(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1 << 20);
}

/// What a device has open towards the server.
struct LoadedDevice {
    RawClient client;
    RawDevice device;
    zmq::socket_t events;

    LoadedDevice(zmq::context_t& context, std::string const& server, std::string const& eventAddress,
                 int number)
        : client(context, server),
          device(client, "device" + std::to_string(number)),
          events(MakeSocket(context, ZMQ_SUB)) {
        events.set(zmq::sockopt::subscribe, "vq.vds");
        events.connect(Url(eventAddress));
        device.ServeChannel("channel" + std::to_string(number));
    }
};

TEST(ServerLoadTest, HoldsTwoHundredDevicesUnderRequestsWithoutLosingOne) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);

    test::ChildProcess server(
        {VDSERVER_PATH, "--address", "SOCKET:127.0.0.1:1?load", "--log-level", "warning"});
    std::string const address =
        server.ReadLineWith("ready ", std::chrono::milliseconds(kPatienceMs)).value_or("");
    ASSERT_FALSE(address.empty());
    zmq::context_t context;
    RawClient client(context, address);
    std::string const eventAddress = client.Get(vq::vds::GetServerEventAddress()).address();

    auto start = Clock::now();
    std::list<LoadedDevice> devices;
    for (int i = 0; i < kDevices; ++i) {
        devices.emplace_back(context, address, eventAddress, i);
    }
    double const bringUp = Seconds(Clock::now() - start);

    vq::vds::GetDeviceRequestReplyAddress lookup;
    lookup.set_flag(false);
    double const processorBefore = ProcessorTime(server.Pid());
    start = Clock::now();
    auto nextHello = start;
    for (int done = 0; done < kRequests;) {
        for (LoadedDevice& device : devices) {
            lookup.set_device("device" + std::to_string(done % kDevices));
            bool const big = done % 100 == 0;
            std::string const answer =
                big ? device.client.Ask(vq::vds::GetDeviceInfos()) : device.client.Ask(lookup);
            ASSERT_TRUE(answer.ends_with(".Reply")) << answer;
            ++done;
            if (Clock::now() >= nextHello) {
                nextHello = Clock::now() + std::chrono::milliseconds(250);
                for (LoadedDevice& talking : devices) {
                    talking.device.SayHello();
                }
            }
        }
    }
    double const elapsed = Seconds(Clock::now() - start);
    double const processor = ProcessorTime(server.Pid()) - processorBefore;
    EXPECT_EQ(client.Get(vq::vds::GetDeviceInfos()).infos_size(), kDevices);
    server.Signal(SIGTERM);
    EXPECT_EQ(server.WaitForExit(std::chrono::milliseconds(kPatienceMs)), 0) << server.DrainOutput();
    std::printf(
        "%d devices registered in %.2f s; %d requests one after the other in %.2f s (%.0f a second), "
        "%.0f us of the server's processor time each, hellos included\n",
        kDevices, bringUp, kRequests, elapsed, kRequests / elapsed, processor / kRequests * 1e6);
}

TEST(ServerLoadTest, AListenerThatStandsStillCostsTheServerABoundedQueue) {
    constexpr int kEvents = 10000;
    constexpr int kWindow = 100;
    // Under the address sanitizer freed blocks would stand in a quarantine of 256 MiB and count as in use.
    char const* const options = std::getenv("ASAN_OPTIONS");
    test::ChildProcess server(
        {VDSERVER_PATH, "--address", "IPC:" + test::HomeDirectory() + "still", "--log-level", "warning"},
        {{"ASAN_OPTIONS", std::string(options != nullptr ? options : "") + ":quarantine_size_mb=1"}});
    std::string const address =
        server.ReadLineWith("ready ", std::chrono::milliseconds(kPatienceMs)).value_or("");
    ASSERT_FALSE(address.empty());
    zmq::context_t context;
    RawClient client(context, address);
    RawDevice device(client, "d");
    device.ServeChannel("x");
    std::string const broadcast = client.Get(vq::vds::GetServerDataEventBroadcastAddress()).address();
    zmq::socket_t still = MakeSocket(context, ZMQ_SUB);
    zmq::socket_t busy = MakeSocket(context, ZMQ_SUB);
    for (zmq::socket_t* const socket : {&still, &busy}) {
        socket->set(zmq::sockopt::rcvhwm, socket == &still ? 1 : 1000);
        socket->set(zmq::sockopt::subscribe, "vq.ch.");
        socket->connect(Url(broadcast));
    }
    busy.set(zmq::sockopt::rcvtimeo, 20);
    for (int i = 0; i < 3000 && ReceiveFrames(busy).empty(); ++i) {
        device.SayHello();
    }
    busy.set(zmq::sockopt::rcvtimeo, kPatienceMs);

    std::vector<std::string> const event = {std::string("vq.ch.AudioBufferChannelDataEvent\0x\0\1\0\0\0", 40),
                                            std::string(65536, 'a')};
    double most = 0;
    auto const start = Clock::now();
    for (int sent = 0; sent < kEvents; sent += kWindow) {
        for (int i = 0; i < kWindow; ++i) {
            device.Publish(event);
        }
        for (int received = 0; received < kWindow;) {
            std::vector<std::string> const frames = ReceiveFrames(busy);
            ASSERT_FALSE(frames.empty());
            received += frames == event;
        }
        most = std::max(most, ResidentMiB(server.Pid()));
    }
    double const elapsed = Seconds(Clock::now() - start);
    // A queue of a thousand events, and what is on the way.
    EXPECT_LT(most, 400);
    server.Signal(SIGTERM);
    EXPECT_EQ(server.WaitForExit(std::chrono::milliseconds(kPatienceMs)), 0) << server.DrainOutput();
    std::printf("%d events of 64 KiB passed on in %.2f s, the server held at most %.0f MiB\n", kEvents,
                elapsed, most);
}

}  // namespace
}  // namespace vq::server
