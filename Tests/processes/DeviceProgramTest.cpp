// A stand-alone device program, from the outside: what ends it and how, and what the guide says of it.

#include <signal.h>

#include "DeviceRequests.pb.h"
#include "Rig.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"
#include "Utils/ServerRegistry.h"

namespace vq::test {
namespace {

class DeviceProgram : public testing::Test {
protected:
    DeviceProgram() { m_rig.StartServer(); }

    static std::string Rigctl(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"RIGCTL", "--timeout", "60000"});
        Outcome const outcome = ChildProcess(arguments).Finish();
        EXPECT_EQ(outcome.status, 0) << testing::PrintToString(arguments) << outcome.output;
        return outcome.output;
    }

    static std::unique_ptr<Program> Start(ChildProcess::Environment const& environment = {}) {
        return std::make_unique<Program>(Lines{"turntable"}, environment);
    }

    Rig m_rig;
};

/// A server inside the test, in the registry too.
class RegisteredServer : public FakeServer {
public:
    RegisteredServer() { EXPECT_TRUE(ServerRegistry::Instance().RegisterServer(m_line, kPatience, nullptr)); }
    ~RegisteredServer() { ServerRegistry::Instance().RemoveServer(m_line, kPatience, nullptr); }

private:
    ServerDescriptor const m_line{"fake", Address(), 12, 11, ::getpid(), Address(), Address()};
};

TEST_F(DeviceProgram, OfTheGuideIsTheOneThatIsBuilt) {
    std::string const source = std::string(VQ_SOURCE_DIR) + "/";
    std::string const guide = ReadFile(source + "docs/writing-a-device.md");
    EXPECT_THAT(guide, HasSubstr("```cpp\n" + ReadFile(source + "Examples/turntable/turntable.cpp") + "```"));
    EXPECT_THAT(guide,
                HasSubstr("```json\n" + ReadFile(source + "Examples/turntable/turntable.json") + "```"));
}

TEST_F(DeviceProgram, OfTheGuidePublishesTakesSettingsAndQuits) {
    auto const program = Start();
    EXPECT_THAT(Rigctl({"watch", "turntable.angle", "--count", "3"}),
                HasSubstr("turntable.angle  vq.ch.IntegerChannelDataEvent  "));
    Rigctl({"config", "Turntable", "set", "Speed=1000"});
    EXPECT_EQ(Rigctl({"config", "Turntable", "get", "Speed"}), "360\n") << "the limit of its type";
    std::string const file = m_rig.Address().substr(4) + ".log";
    for (std::string const target : {"Turntable", "server"}) {
        Rigctl({"log", target, "--", "-V", "verbose", "--logfile", file});
        EXPECT_THAT(Rigctl({"log", target}), HasSubstr(file));
    }
    Rigctl({"quit", "Turntable", "--application"});
    EXPECT_EQ(program->WaitForExit(), 0) << program->DrainOutput();
}

TEST_F(DeviceProgram, SaysWhatIsWrongWithItsCommandLine) {
    for (auto const& [option, argument, complaint] : Rows<3>("DeviceProgram", "refused")) {
        Outcome const outcome = ChildProcess({"turntable", option, argument}).Finish();
        EXPECT_GT(outcome.status, 0) << argument;
        EXPECT_THAT(outcome.output, HasSubstr(complaint));
    }
}

TEST(DeviceProgramOfAServer, RegistersItselfAndItsDeviceAndEndsWithTheDevice) {
    RegisteredServer server;
    Program program({"turntable"});
    RawSocket tool(ZMQ_REQ, server.DeviceAddress("Turntable"));
    EXPECT_EQ(tool.Ask(vq::sd::QuitDevice()), "vq.sd.QuitDevice.Reply");
    EXPECT_EQ(program.WaitForExit(), 0) << program.DrainOutput();
    EXPECT_THAT(server.RequestTypes(),
                ElementsAre("RegisterDeviceApplication", "GetServerEventAddress",
                            "GetServerDataEventBroadcastAddress", "RegisterSparseDevice",
                            "CreateServerDataEventListenerAddress", "GetChannelInfos",
                            "RegisterSparseDeviceChannels", "ReportSparseDeviceInitialized",
                            "GetServerHeartbeatEventAddress", "ReportDeviceApplicationInitialized",
                            "UnregisterSparseDevice", "UnregisterDeviceApplication"));
    auto const registration = server.Received<vq::vds::RegisterDeviceApplication>().at(0);
    EXPECT_EQ(registration.name() + "/" + registration.second_name(), "turntable/Turntable");
    EXPECT_EQ(registration.process_id(), program.Pid());
    auto const device = server.Received<vq::vds::RegisterSparseDevice>().at(0);
    EXPECT_EQ(device.description().process_id(), 7u) << "the id that the server gave the application";
    EXPECT_EQ(server.Received<vq::vds::UnregisterDeviceApplication>().at(0).application_id(), 7u);
}

TEST(DeviceProgramOfAServer, SaysWhatKeepsItFromStartingAndLeavesNoDeviceBehind) {
    using namespace vq::vds;
    auto const refuse = [](auto const&) { return FakeServer::Refuse("no"); };
    struct Case {
        std::function<void(FakeServer&)> prepare;
        char const *sentence, *lastRequest;
    };
    Case const cases[] = {
        {[](FakeServer&) { setenv("VQ_VDS_ADDRESS", "SOCKET:here:nowhere", 1); },
         "Failed to GetRequestReplyClient for VDS connection", ""},
        {[&](FakeServer& server) { server.On<RegisterDeviceApplication>(refuse); },
         "got protocol error from vq.vds.RegisterDeviceApplication: no", "RegisterDeviceApplication"},
        {[](FakeServer& server) {
             server.Answer<RegisterDeviceApplication, RegisterDeviceApplication::Error>(
                 wire::Bytes("1:'full'"));
         },
         "Failed to register: full", "RegisterDeviceApplication"},
        {[](FakeServer& server) { server.Answer<RegisterDeviceApplication>(wire::Bytes("1:0")); },
         "Failed to register: the server gave no id", "RegisterDeviceApplication"},
        {[&](FakeServer& server) { server.On<RegisterSparseDevice>(refuse); },
         "Failed to initialize sparse device", "RegisterSparseDevice"},
        {[&](FakeServer& server) { server.On<RegisterSparseDeviceChannels>(refuse); },
         "Failed to finish initialization of sparse device", "UnregisterSparseDevice"},
        {[&](FakeServer& server) { server.On<GetServerHeartbeatEventAddress>(refuse); },
         "Failed to GetServerHeartbeatEventAddress", "UnregisterSparseDevice"},
        {[](FakeServer& server) {
             server.Answer<GetServerHeartbeatEventAddress>(wire::Bytes("1:'nowhere'"));
         },
         "Failed to GetEventListener for serverHeartbeatEventListener @ nowhere", "UnregisterSparseDevice"},
        {[](FakeServer& server) {
             using Report = ReportDeviceApplicationInitialized;
             server.Answer<Report, Report::Error>(wire::Bytes("1:'late'"));
         },
         "Failed to report initialization: late", "UnregisterSparseDevice"},
    };
    for (auto const& [prepare, sentence, lastRequest] : cases) {
        RegisteredServer server;
        prepare(server);
        Outcome const outcome = ChildProcess({"turntable"}).Finish();
        EXPECT_EQ(outcome.status, 1) << sentence;
        EXPECT_THAT(outcome.output, AllOf(HasSubstr(sentence), Not(HasSubstr("ready"))));
        Lines const requests = server.RequestTypes();
        EXPECT_EQ(requests.empty() ? "" : requests.back(), lastRequest) << sentence;
    }
}

TEST_F(DeviceProgram, EndsInOrderOnQuitOnASignalAndWithTheServer) {
    auto const quitter = Start();
    for (char const* const line : {"", "nonsense", "help", "quit"}) {
        EXPECT_TRUE(quitter->WriteLine(line));
    }
    EXPECT_EQ(quitter->WaitForExit(), 0) << quitter->DrainOutput();
    for (char const* const text :
         {"Enter Command (type help for command list): ", "invalid sparse device input command",
          "\nSparse Device Input Commands:\nh | help - this screen\nq | quit - shuts the device down and "
          "unregisters it from the VDS\n"}) {
        EXPECT_THAT(quitter->Output(), HasSubstr(text));
    }
    for (int const number : {SIGINT, SIGTERM, SIGABRT}) {
        auto const signalled = Start();
        EXPECT_EQ(signalled->End(number), 0) << signalled->DrainOutput();
        EXPECT_THAT(signalled->Output(), HasSubstr("exiting from signal " + std::to_string(number)));
    }
    auto const follower = Start();
    m_rig.Server().Stop();
    EXPECT_EQ(follower->WaitForExit(), 0) << follower->DrainOutput();
    Outcome const alone = ChildProcess({"turntable"}).Finish();
    EXPECT_EQ(alone.status, 1);
    EXPECT_THAT(alone.output,
                HasSubstr("Did not detect a running Virtual Device Server.\nPlease (re-)start it first"));
}

TEST_F(DeviceProgram, IsEndedWhenItHangsAtExit) {
    auto const program = Start();
    // Taking leave of a server that does not answer takes longer than the program is given.
    m_rig.Server().Signal(SIGSTOP);
    EXPECT_EQ(program->End(), 1) << program->DrainOutput();
    EXPECT_THAT(program->DrainOutput(), HasSubstr("device application did not shut down cleanly!"));
}

TEST_F(DeviceProgram, IsEndedAtOnceByASecondSignal) {
    int status = -1;
    // Two seconds later it would be gone anyhow: a slow machine gets another chance.
    for (int attempt = 0; attempt < 5 && status != 128 + SIGINT; ++attempt) {
        auto const program = Start();
        m_rig.Server().Signal(SIGSTOP);
        program->Signal(SIGINT);
        while (program->DrainOutput().find("exiting from signal") == std::string::npos) {
            ASSERT_FALSE(program->WaitForExit(std::chrono::milliseconds(5))) << program->DrainOutput();
        }
        status = program->End(SIGINT);
        m_rig.Server().Signal(SIGCONT);
    }
    EXPECT_EQ(status, 128 + SIGINT);
}

TEST_F(DeviceProgram, LeavesAServerThatHasFallenSilentUnlessItIsBeingDebugged) {
    auto const debugged = Start({{"VQ_DEBUG_VDS", "1"}});
    auto const watching = Start({{"VQ_DEBUG_VDS", "2"}});
    m_rig.Server().Signal(SIGSTOP);
    EXPECT_EQ(watching->WaitForExit(), 1) << "no farewell is answered";
    EXPECT_THAT(watching->DrainOutput(),
                HasSubstr("Failed to observe heartbeat from Virtual Device Server, exiting"));
    EXPECT_FALSE(debugged->WaitForExit(std::chrono::seconds(3))) << debugged->DrainOutput();
}

}  // namespace
}  // namespace vq::test
