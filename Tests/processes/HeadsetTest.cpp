// A server, its steering program and a simulated headset behind the simulated bridge.

#include <signal.h>

#include "Messaging/MessageAddress.h"
#include "Rig.h"
#include "ServerRequests.pb.h"
#include "SimulatedHeadset/BridgeState.h"
#include "SimulatedHeadset/BridgeTunnels.h"
#include "SimulatedHeadset/HeadsetServer.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/TextUtils.h"

namespace vq::test {
namespace {

class HeadsetTest : public testing::Test {
public:
    HeadsetTest() {
        bridge.SetDevices({{"A1", "device"}});
        bridge.SetMisbehaviour("");
        int port = 0;
        EXPECT_TRUE(GetEphemeralPort(port));
        ::setenv("VQ_VDS_ADDRESS", ("SOCKET:127.0.0.1:" + std::to_string(port)).c_str(), 1);
        server = std::make_unique<Program>(Lines{"vdserver", "--address", ::getenv("VQ_VDS_ADDRESS"),
                                                 "--name", "rig", "--headset-level", "29"});
    }
    ~HeadsetTest() override {
        server->Stop();
        EXPECT_TRUE(tunnels.List().empty());
    }

    static Outcome Rigctl(std::vector<std::string> arguments, char const* timeout = "60000") {
        arguments.insert(arguments.begin(), "RIGCTL");
        arguments.insert(arguments.end(), {"--timeout", timeout, "--json"});
        return ChildProcess(arguments).Finish();
    }
    /// Begins to connect, and returns once that is with the bridge or the headset.
    std::unique_ptr<ChildProcess> BeginConnect(std::function<bool()> const& isThere) {
        auto program = std::make_unique<ChildProcess>(
            Lines{"RIGCTL", "remote", "connect", std::to_string(headset.Port()), "--timeout", "60000"});
        while (!isThere()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return program;
    }

    headset::BridgeState bridge;
    headset::BridgeTunnels tunnels{bridge};
    headset::HeadsetServer headset{0, 29};
    std::unique_ptr<Program> server;
};

TEST_F(HeadsetTest, IsConnectedToldOfTheServerAndLetGo) {
    std::string const port = std::to_string(headset.Port());
    EXPECT_THAT(Rigctl({"remote", "list"}).output, HasSubstr(R"({"answers":true,"serial":"A1"})"));
    Outcome const connected = Rigctl({"remote", "connect", port});
    ASSERT_EQ(connected.status, 0) << connected.output << server->DrainOutput();
    EXPECT_EQ(Rigctl({"remote", "connect", port, "--device", "A1"}).status, 0) << "it is connected already";

    // The way from the headset to the server is open.
    std::string const advertisement = headset.Requests().back();
    ASSERT_EQ(advertisement.substr(0, 3) + advertisement.substr(5), "VDSrig");
    int const way = headset::HeadsetServer::PortIn(advertisement, 3);
    RawSocket(ZMQ_REQ, "SOCKET:127.0.0.1:" + std::to_string(way)).Get(vq::vds::Ping());

    std::string const pair = Rigctl({"remote", "forwards", "4711"}).output;
    EXPECT_THAT(pair, HasSubstr(R"("headset":4711)"));
    EXPECT_EQ(Rigctl({"remote", "forwards", "4711"}).output, pair) << "the same pair again";
    EXPECT_THAT(Rigctl({"remote", "forwards", "--reverse", "4711", "4712"}).output,
                HasSubstr(R"("here":4712)"));
    EXPECT_EQ(tunnels.List().size(), 5U);  // the link, the server, three pairs

    for (auto const& [line, refusal] : Rows<2>("Headset", "refused")) {
        Outcome const outcome = Rigctl(Parameterize(ReplaceSubstring(line, "PORT", port)));
        EXPECT_EQ(outcome.status, 1) << line;
        EXPECT_THAT(outcome.output, HasSubstr(refusal)) << line;
    }
    EXPECT_EQ(Rigctl({"remote", "disconnect"}).status, 0);
    EXPECT_TRUE(tunnels.List().empty());
    EXPECT_THAT(Rigctl({"remote", "forwards", "4711"}).output, HasSubstr("no headset is connected"));
    headset.Answer("VDS", "nak:no");
    EXPECT_THAT(Rigctl({"remote", "connect", port}).output, HasSubstr("could not be told of this server"));
}

TEST_F(HeadsetTest, HoldsUpNobodyElseWhileItHangs) {
    bridge.SetMisbehaviour("forward hang\n");
    auto const calls = bridge.Calls().size();
    auto connecting = BeginConnect([&] {
        auto const now = bridge.Calls();
        return now.size() > calls && now.back().find("forward") != std::string::npos;
    });
    EXPECT_EQ(Rigctl({"devices"}).status, 0);
    EXPECT_EQ(Rigctl({"remote", "disconnect"}).status, 0) << "the attempt is given up";
    EXPECT_EQ(connecting->Finish().status, 1);

    // And one whose socket server is silent; the server then ends in the middle of it.
    bridge.SetMisbehaviour("");
    headset.Answer("VER", "silent");
    connecting = BeginConnect([&] { return !headset.Requests().empty(); });
    EXPECT_EQ(Rigctl({"devices"}).status, 0);
}

TEST_F(HeadsetTest, IsNotAwaitedForLongerThanTheTimeLimitBehindABridgeThatHangs) {
    for (auto const& [command, arguments] : {std::pair{"devices", Lines{"remote", "list"}},
                                             {"get-state", {"remote", "list"}},
                                             {"devices", {"remote", "connect", "4711"}},
                                             {"devices", {"remote", "disconnect"}}}) {
        bridge.SetMisbehaviour(std::string(command) + " hang\n");
        Outcome const outcome = Rigctl(arguments, "300");
        EXPECT_EQ(outcome.status, 4) << command;
        EXPECT_EQ(outcome.output, "No answer from the device bridge (vqdb) within the time limit.\n");
    }
}

TEST_F(HeadsetTest, AsAProgramFindsTheServerThatItIsToldOf) {
    bridge.SetDevices({});
    Program program({"simulated_headset", "--serial", "B2"});
    EXPECT_EQ(Rigctl({"remote", "connect", program.Ready()}).status, 0);
    EXPECT_THAT(program.ReadLineWith("the server behind port ").value_or(""),
                HasSubstr(" answers vq.vds.Ping.Reply"));
    EXPECT_EQ(Rigctl({"remote", "disconnect"}).status, 0);
    program.Stop();
    EXPECT_EQ(Rigctl({"remote", "list"}).output, "") << "it has left the bridge";
    EXPECT_EQ(ChildProcess({"simulated_headset", "--answer", "GET"}).Finish().output,
              "'GET' is no COMMAND=HOW\n");
}

}  // namespace
}  // namespace vq::test
