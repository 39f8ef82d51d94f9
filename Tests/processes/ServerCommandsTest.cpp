// What the server has of its devices and of the programs that run them: commands to devices, programs that it
// launches, and programs that die.

#include <signal.h>

#include "DeviceRequests.pb.h"
#include "Rig.h"
#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Test.h"

namespace vq::test {
namespace {

/// A rig's server as bare sockets see it.
class ServerCommands : public testing::Test {
protected:
    void Start(std::vector<std::string> const& arguments = {}) {
        rig.StartServer(arguments);
        server.emplace(ZMQ_REQ, rig.Address());
        events.emplace(ZMQ_SUB, server->Get(vq::vds::GetServerEventAddress()).address());
        ASSERT_FALSE(events->Receive().empty()) << "the server says hello all the time";
    }

    /// Registers a device of bare sockets, in an application or none.
    RawSocket AddDevice(std::string const& name, std::uint32_t application = 0) {
        std::string const address = "IPC:" + HomeDirectory() + name;
        RawSocket device(ZMQ_REP, address);
        server->Get<vq::vds::RegisterSparseDevice>("1:{1:'" + name + "' 2:'Label of " + name +
                                                   "' 3:'Generic' 9:" + std::to_string(application) +
                                                   " 10:0} 2:'" + address + "'");
        return device;
    }

    Rig rig;
    std::optional<RawSocket> server;
    std::optional<RawSocket> events;
};

TEST_F(ServerCommands, TellsEveryDeviceOfStatisticsAndOfItsEnd) {
    Start({"--stop-grace", "30000"});
    RawSocket devices[] = {AddDevice("first"), AddDevice("second")};
    server->Get<vq::vds::EnableAutomaticStatsCollection>("1:1");
    for (RawSocket& device : devices) {
        EXPECT_TRUE(device.Command<vq::sd::EnableAutomaticStatsCollection>().enabled());
        device.Send(FramesOf(vq::sd::EnableAutomaticStatsCollection::Reply()));
    }
    rig.Server().Signal(SIGTERM);
    for (RawSocket& device : devices) {
        device.Command<vq::sd::NotifyServerStopping>();
    }
    rig.Server().Signal(SIGTERM);
    EXPECT_EQ(rig.Server().WaitForExit(), 0);
}

TEST_F(ServerCommands, TellsTheSettingsOfAllDevicesOnceItHasThem) {
    Start();
    RawSocket talker = AddDevice("talker");
    RawSocket const mute = AddDevice("mute");
    EXPECT_EQ(server->Refused(vq::vds::GetDevicePropertyInfo()),
              "2 devices have been asked for their settings: ask again");
    talker.Command<vq::sd::GetConfigurationPropertyInfo>();
    talker.Send(FramesOf(wire::Parsed<vq::sd::GetConfigurationPropertyInfo::Reply>(
        "1:{1:{5:{1:'list' 2:'List' 4:'string'}} 2:{1:{1:'Count' 2:'integer'}}}")));

    // The other one never answers, which takes its time.
    vq::vds::GetDevicePropertyInfo::Reply reply;
    auto const end = std::chrono::steady_clock::now() + kPatience;
    while (!reply.has_info() && std::chrono::steady_clock::now() < end) {
        auto const [type, payload] = server->Exchange(FramesOf(vq::vds::GetDevicePropertyInfo()));
        EXPECT_TRUE(type != reply.GetTypeName() || reply.ParseFromString(payload));
    }
    ASSERT_EQ(reply.info().groups_size(), 2);
    EXPECT_EQ(reply.info().common().array_types(0).name(), "list");
    auto const& group = reply.info().groups(0);
    EXPECT_EQ(group.name(), "talker");
    EXPECT_EQ(group.label(), "Label of talker");
    ASSERT_EQ(group.properties_size(), 1);
    EXPECT_EQ(group.properties(0).property().common().type(), "integer");
    EXPECT_EQ(reply.info().groups(1).properties_size(), 0);
}

TEST_F(ServerCommands, LaunchesNothingUnlessToldTo) {
    Start();
    EXPECT_THAT(server->Refused<vq::vds::LaunchDeviceApplication>("1:'mock_identity_device' 3:0"),
                HasSubstr("this server launches no programs"));
    EXPECT_EQ(server->Get(vq::vds::GetAvailableDeviceApplications()).applications_size(), 0);
}

TEST_F(ServerCommands, LaunchesEndsAndMissesItsPrograms) {
    std::string const directory = HomeDirectory() + "programs";
    std::filesystem::create_directory(directory);
    std::filesystem::create_symlink(ProgramPath("mock_identity_device"), directory + "/mock");
    std::filesystem::create_symlink("/etc/passwd", directory + "/data");
    ::setenv("VQ_VDS_DATA", ProgramPath("data").c_str(), 1);
    Start({"--launch-from", directory});
    EXPECT_THAT(server->Get(vq::vds::GetAvailableDeviceApplications()).applications(), ElementsAre("mock"));

    using vq::vds::LaunchDeviceApplication;
    for (std::string const name : {"data", "../programs/mock", "", ".", "none"}) {
        EXPECT_THAT(server->Refused<LaunchDeviceApplication>("1:'" + name + "' 3:1"),
                    HasSubstr("there is no program"))
            << name;
    }
    auto launched = server->Get<LaunchDeviceApplication>("1:'mock' 3:1");
    auto const started = events->Await<vq::vds::DeviceApplicationStartedEvent>();
    EXPECT_EQ(started.description().field_7(), launched.process_id());
    vq::vds::KillDeviceApplication kill;
    kill.set_application_id(started.application_id());
    server->Get(kill);
    EXPECT_EQ(events->Await<vq::vds::DeviceApplicationUnregisteredEvent>().application_id(),
              kill.application_id());
    EXPECT_THAT(server->Refused(kill), HasSubstr("there is no device application with id"));

    launched = server->Get<LaunchDeviceApplication>("1:'mock' 3:1");
    auto const again = events->Await<vq::vds::DeviceApplicationStartedEvent>();
    ASSERT_EQ(::kill(static_cast<pid_t>(launched.process_id()), SIGKILL), 0);
    auto const crash = events->Await<vq::vds::DeviceApplicationCrashedEvent>();
    EXPECT_EQ(crash.application_id(), again.application_id());
    EXPECT_EQ(crash.message(), "its process was ended by signal 9");
}

TEST_F(ServerCommands, EndsAForeignProgramThroughItsDeviceAndNoticesItsDeath) {
    Start();
    ChildProcess program({"/bin/cat"});
    std::string const process = std::to_string(program.Pid());
    std::uint32_t const application =
        server->Get<vq::vds::RegisterDeviceApplication>("1:'raw' 2:'Raw' 3:" + process).application_id();
    std::uint32_t const user =
        server->Get<vq::vds::RegisterVQSDKApplication>("1:'raw' 2:" + process).application_id();
    vq::vds::KillDeviceApplication kill;
    kill.set_application_id(application);
    EXPECT_THAT(server->Refused(kill), HasSubstr("has no device that could be asked to quit"));
    RawSocket device = AddDevice("puck", application);
    server->Get(kill);
    device.Command<vq::sd::QuitApplication>();
    program.Signal(SIGKILL);
    EXPECT_EQ(events->Await<vq::vds::DeviceUnregisteredEvent>().name(), "puck");
    auto const crash = events->Await<vq::vds::DeviceApplicationCrashedEvent>();
    EXPECT_EQ(crash.application_id(), application);
    EXPECT_EQ(crash.message(), "its process has ended");
    EXPECT_EQ(events->Await<vq::vds::DeviceApplicationUnregisteredEvent>().application_id(), application);
    EXPECT_EQ(events->Await<vq::vds::VQSDKApplicationUnregisteredEvent>().application_id(), user);
}

}  // namespace
}  // namespace vq::test
