#include "Messaging/MessageAddress.h"
#include "Messaging/VqdbAccessor.h"
#include "SimulatedHeadset/BridgeState.h"
#include "SimulatedHeadset/BridgeTunnels.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"
#include "Utils/TextUtils.h"

namespace {

using vq::headset::BridgeTunnels;

int FreePort() {
    int port = 0;
    EXPECT_TRUE(GetEphemeralPort(port));
    return port;
}

/// Sends a text to one port and hears it at the other.
std::string PassThrough(int from, int to, std::string const& text) {
    using vq::test::RawSocket;
    RawSocket listener(ZMQ_REP, "SOCKET:127.0.0.1:" + std::to_string(to));
    RawSocket sender(ZMQ_REQ, "SOCKET:127.0.0.1:" + std::to_string(from));
    sender.Send({text});
    return listener.Receive().at(0);
}

class DeviceBridgeTest : public testing::Test {
public:
    DeviceBridgeTest() { m_bridge.SetDevices({{"A1", "device"}, {"B2", "offline"}}); }
    // No process of a tunnel may outlive a test.
    ~DeviceBridgeTest() override { EXPECT_TRUE(m_tunnels.List().empty()); }

    Lines NewCalls() {
        Lines calls = m_bridge.Calls();
        Lines fresh(calls.begin() + static_cast<std::ptrdiff_t>(m_seen), calls.end());
        m_seen = calls.size();
        return fresh;
    }

    vq::headset::BridgeState m_bridge;
    BridgeTunnels m_tunnels{m_bridge};
    std::size_t m_seen = 0;
};

TEST_F(DeviceBridgeTest, ListsDevicesAndAsksTheChosenOne) {
    VqdbAccessor const any("");
    VqdbAccessor const offline("B2");
    EXPECT_TRUE(any.IsConfigured());
    Lines serials = {"stale"};
    EXPECT_TRUE(any.GetConnectedDevices(serials));
    EXPECT_THAT(serials, ElementsAre("A1", "B2"));
    EXPECT_TRUE(VqdbAccessor("A1").IsConnected());
    vq::test::LogCapture log;
    EXPECT_FALSE(offline.IsConnected());
    EXPECT_FALSE(VqdbAccessor("C; touch /tmp/x").IsConnected());
    EXPECT_THAT(log.Lines(),
                ElementsAre("E Unexpected device state: offline\n",
                            "E Unexpected device state: error: device 'C; touch /tmp/x' not found\n"));
    EXPECT_THAT(NewCalls(),
                ElementsAre("devices", "-s A1 get-state", "-s B2 get-state", "-s C; touch /tmp/x get-state"));
}

TEST_F(DeviceBridgeTest, ChoosesTheDefaultDeviceOrSaysWhyNot) {
    for (auto const& [serials, chosen, serial, error] : Rows<4>("DeviceBridge", "default")) {
        std::vector<vq::headset::BridgeState::Device> devices;
        for (std::string const& attached : Tokenize(serials, " ", true)) {
            devices.push_back({attached, "device"});
        }
        m_bridge.SetDevices(devices);
        chosen != kNone ? ::setenv("VQ_SERIAL", chosen.c_str(), 1) : ::unsetenv("VQ_SERIAL");
        std::string gotSerial = "stale";
        std::string gotError = "stale";
        EXPECT_EQ(VqdbAccessor::GetDefaultDevice(gotSerial, gotError), error.empty()) << serials;
        EXPECT_EQ(gotSerial, serial);
        EXPECT_EQ(gotError, error);
    }
    vq::test::LogCapture const log;
    std::string serial;
    std::string error;
    m_bridge.SetMisbehaviour("devices exit 3\n");
    EXPECT_FALSE(VqdbAccessor::GetDefaultDevice(serial, error));
    EXPECT_EQ(error, "Failed to talk to vqdb.");
    EXPECT_THAT(log.Lines(), ElementsAre("E Error 3 detecting devices:\n\nerror: refused on demand\n\n"));
}

TEST_F(DeviceBridgeTest, ConnectsPortsBothWaysUntilItsEnd) {
    int const local = FreePort();
    int const remote = FreePort();
    int const secondLocal = FreePort();
    int const secondRemote = FreePort();
    {
        VqdbAccessor bridge("A1");
        ASSERT_TRUE(bridge.ForwardPort(local, remote));
        ASSERT_TRUE(bridge.ReversePort(secondLocal, secondRemote));
        std::string const text(300000, 'x');
        EXPECT_EQ(PassThrough(local, remote, text), text);
        EXPECT_EQ(PassThrough(secondRemote, secondLocal, text), text);

        vq::test::LogCapture log;
        EXPECT_FALSE(bridge.ForwardPort(local, FreePort()));
        EXPECT_THAT(log.Lines(), ElementsAre(HasSubstr("error: cannot rebind existing socket")));
        EXPECT_TRUE(bridge.UnforwardPort(local, remote));
        log.Clear();
        // Somebody else's, or nobody's: the tool is asked all the same.
        EXPECT_FALSE(bridge.UnforwardPort(local, remote));
        EXPECT_FALSE(bridge.UnreversePort(local, remote));
        std::string const l = std::to_string(local);
        std::string const r = std::to_string(remote);
        EXPECT_THAT(log.Lines(), ElementsAre("E Error 1 un-forwarding port " + l +
                                                 ":\n\nerror: listener 'tcp:" + l + "' not found\n\n",
                                             "E Error 1 un-reversing port " + r +
                                                 "\n\nerror: listener 'tcp:" + r + "' not found\n\n"));
        NewCalls();
    }
    EXPECT_THAT(NewCalls(), ElementsAre("-s A1 reverse --remove tcp:" + std::to_string(secondRemote)));
}

TEST_F(DeviceBridgeTest, CleansUpSeveralPortsAtOnceAndStopsAtAFailure) {
    VqdbAccessor bridge("A1");
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(bridge.ForwardPort(FreePort(), FreePort()));
    }
    ASSERT_TRUE(bridge.ReversePort(FreePort(), FreePort()));
    vq::test::LogCapture log;
    m_bridge.SetMisbehaviour("unforward exit 9\n");
    EXPECT_FALSE(bridge.CleanupPorts(true));
    EXPECT_EQ(log.Count(LogLevel::Error, "Error 9 removing forwarded port "), 5U);
    EXPECT_EQ(m_tunnels.List().size(), 6U);
    // It remembers none of them now.
    m_bridge.SetMisbehaviour("");
    EXPECT_TRUE(bridge.CleanupPorts(true));
    for (auto const& tunnel : m_tunnels.List()) {
        EXPECT_EQ(m_tunnels.Remove(tunnel.kind, tunnel.listen), std::nullopt);
    }
}

TEST_F(DeviceBridgeTest, TellsWhatAPackageIsDoing) {
    m_bridge.SetProcessList(Rows<1>("DeviceBridge", "processes").at(0).at(0));
    vq::test::LogCapture log;
    VqdbAccessor const bridge("A1");
    for (auto const& [package, component, found, state] : Rows<4>("DeviceBridge", "packages")) {
        VqdbPackageState got = VqdbPackageState::Running;
        EXPECT_EQ(bridge.GetPackageState(got, package, component), found == "true") << package;
        EXPECT_EQ(static_cast<int>(got), std::stoi(state)) << package;
    }
    EXPECT_EQ(log.Lines(), (Lines{"W Unknown package state 'Dancing' for qc"}));

    // What is no list, and one with entries that are none, raise one alarm a process.
    log.Clear();
    for (char const* list : {"{}", R"([1, {"package": "p", "component": 2, "state": "Running"}])"}) {
        VqdbPackageState got = VqdbPackageState::NotListed;
        m_bridge.SetProcessList(list);
        EXPECT_TRUE(bridge.GetPackageState(got, "r", ""));
        EXPECT_EQ(got, VqdbPackageState::Running);
    }
    std::string const assumed = "W Assuming package r is (still) running";
    EXPECT_EQ(log.Lines(), (Lines{"E format of 'vqdb ps -j' changed!", assumed, assumed}));

    log.Clear();
    m_bridge.SetProcessList(std::string(2000, '['));
    VqdbPackageState got = VqdbPackageState::Running;
    EXPECT_FALSE(bridge.GetPackageState(got, "r", ""));
    EXPECT_EQ(got, VqdbPackageState::NotListed);
    EXPECT_THAT(log.Lines(), ElementsAre(HasSubstr("failed to parse 'vqdb ps -j' output: ")));
}

TEST_F(DeviceBridgeTest, SurvivesAToolThatMisbehaves) {
    VqdbAccessor const bridge("A1");
    vq::test::LogCapture log;
    Lines serials;
    VqdbPackageState state{};
    m_bridge.SetMisbehaviour("devices big 3000000\nget-state signal 9\nps garbage\n");
    EXPECT_TRUE(bridge.GetConnectedDevices(serials));
    EXPECT_THAT(serials, ElementsAre("A1", "B2"));
    EXPECT_FALSE(bridge.IsConnected());
    EXPECT_FALSE(bridge.GetPackageState(state, "p", ""));
    m_bridge.SetMisbehaviour("devices slow 5\n");
    EXPECT_TRUE(bridge.GetConnectedDevices(serials));
    EXPECT_EQ(serials.size(), 2U);

    // One that hangs is killed at its limit.
    m_bridge.SetMisbehaviour("any hang\n");
    EXPECT_FALSE(VqdbAccessor("A1", {}, 200ms).ForwardPort(1, 2));

    // And holds nobody who may be stopped.
    std::stop_source stop;
    VqdbAccessor hanging("A1", stop.get_token());
    auto answer = std::async(std::launch::async, [&] { return hanging.ForwardPort(3, 4); });
    while (m_bridge.Calls().back() != "-s A1 forward --no-rebind tcp:3 tcp:4") {
        std::this_thread::yield();
    }
    stop.request_stop();
    EXPECT_FALSE(answer.get());
}

TEST(NoDeviceBridgeTest, SaysThatTheToolIsMissing) {
    // The tool lies beside this program, so that only a copy of it elsewhere has none.
    std::string const elsewhere = GetUserHomeDirectory() + "elsewhere";
    if (std::getenv("VQ_NO_TOOL") == nullptr) {
        std::string const command = "cp '" + GetExecutablePath() + "' '" + elsewhere +
                                    "' && PATH=/bin VQ_NO_TOOL=1 '" + elsewhere +
                                    "' --gtest_filter=NoDeviceBridgeTest.*";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return;
    }
    VqdbAccessor bridge("");
    Lines serials;
    VqdbPackageState state{};
    vq::test::LogCapture log;
    EXPECT_FALSE(bridge.IsConfigured());
    EXPECT_EQ(log.Lines(), (Lines{"E Failed to locate 'vqdb': please run 'envsetup'"}));
    log.Clear();
    EXPECT_FALSE(bridge.GetConnectedDevices(serials));
    EXPECT_FALSE(bridge.ForwardPort(1, 2));
    EXPECT_FALSE(bridge.GetPackageState(state, "p", ""));
    std::string const line = "E Failed to run vqdb: Failed to spawn: No such file or directory";
    EXPECT_EQ(log.Lines(), (Lines{line, line, line}));
}

}  // namespace
