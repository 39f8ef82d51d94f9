// What the server has of its devices and of the programs that run them: commands to devices, programs that it
// launches, and programs that die.

#include <gmock/gmock.h>
#include <signal.h>
#include <zmq.h>

#include <filesystem>

#include "DeviceRequests.pb.h"
#include "RawPeer.h"
#include "Rig.h"
#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "TestSupport/TestHome.h"

namespace vq::test {
namespace {

using testing::HasSubstr;

/// A rig's server as bare sockets see it.
class ServerCommands : public testing::Test {
protected:
    void Start(std::vector<std::string> const& arguments = {}) {
        rig.StartServer(arguments);
        server = std::make_unique<RawSocket>(ZMQ_REQ, "ipc://" + HomeDirectory() + "vds");
        vq::vds::GetServerEventAddress::Reply reply;
        Exchange(*server, vq::vds::GetServerEventAddress(), reply);
        events = std::make_unique<RawSocket>(ZMQ_SUB, "ipc://" + reply.address().substr(4));
        ASSERT_FALSE(events->Receive().empty()) << "the server says hello all the time";
    }

    /// The text of the refusal.
    template <class Request>
    std::string Refused(Request const& request) {
        typename Request::Error error;
        Exchange(*server, request, error);
        return error.message();
    }

    /// The next event of a type.
    template <class Event>
    Event Await() {
        Event event;
        auto const end = std::chrono::steady_clock::now() + kStartLimit;
        while (std::chrono::steady_clock::now() < end) {
            Frames const frames = events->Receive();
            if (frames.size() == 2 && frames[0].substr(0, frames[0].find('\0')) == event.GetTypeName()) {
                EXPECT_TRUE(event.ParseFromString(frames[1]));
                return event;
            }
        }
        ADD_FAILURE() << "no " << event.GetTypeName();
        return event;
    }

    /// Registers a device of bare sockets, in an application or none.
    std::unique_ptr<RawSocket> AddDevice(std::string const& name, std::uint32_t application = 0) {
        auto device = std::make_unique<RawSocket>(ZMQ_REP, "ipc://" + HomeDirectory() + name);
        vq::vds::RegisterSparseDevice request;
        request.mutable_description()->set_name(name);
        request.mutable_description()->set_display_name("Label of " + name);
        request.mutable_description()->set_type("Generic");
        request.mutable_description()->set_process_id(application);
        request.mutable_description()->set_second_process_id(0);
        request.set_address("IPC:" + HomeDirectory() + name);
        vq::vds::RegisterSparseDevice::Reply reply;
        Exchange(*server, request, reply);
        return device;
    }

    std::uint32_t AddApplication(std::int64_t processId) {
        vq::vds::RegisterDeviceApplication request;
        request.set_name("raw");
        request.set_second_name("Raw");
        request.set_process_id(processId);
        vq::vds::RegisterDeviceApplication::Reply reply;
        Exchange(*server, request, reply);
        return reply.application_id();
    }

    /// The command that a device gets next, parsed.
    template <class Request>
    Request Command(RawSocket& device) {
        Request request;
        Frames const frames = device.Receive();
        EXPECT_EQ(frames.size(), 3U);
        if (frames.size() == 3) {
            EXPECT_EQ(frames[1], request.GetTypeName());
            EXPECT_TRUE(request.ParseFromString(frames[2]));
        }
        return request;
    }

    Rig rig;
    std::unique_ptr<RawSocket> server;
    std::unique_ptr<RawSocket> events;
};

TEST_F(ServerCommands, TellsEveryDeviceOfStatisticsAndOfItsEnd) {
    Start({"--stop-grace", "30000"});
    auto const first = AddDevice("first");
    auto const second = AddDevice("second");
    vq::vds::EnableAutomaticStatsCollection enable;
    enable.set_enabled(true);
    vq::vds::EnableAutomaticStatsCollection::Reply enabled;
    Exchange(*server, enable, enabled);
    for (RawSocket* const device : {first.get(), second.get()}) {
        EXPECT_TRUE(Command<vq::sd::EnableAutomaticStatsCollection>(*device).enabled());
        device->Send(FramesOf(vq::sd::EnableAutomaticStatsCollection::Reply()));
    }
    rig.Server().Signal(SIGTERM);
    for (RawSocket* const device : {first.get(), second.get()}) {
        Command<vq::sd::NotifyServerStopping>(*device);
    }
    rig.Server().Signal(SIGTERM);
    EXPECT_EQ(rig.Server().WaitForExit(kStartLimit), 0);
}

TEST_F(ServerCommands, TellsTheSettingsOfAllDevicesOnceItHasThem) {
    Start();
    auto const talker = AddDevice("talker");
    auto const mute = AddDevice("mute");
    EXPECT_EQ(Refused(vq::vds::GetDevicePropertyInfo()),
              "2 devices have been asked for their settings: ask again");
    Command<vq::sd::GetConfigurationPropertyInfo>(*talker);
    vq::sd::GetConfigurationPropertyInfo::Reply settings;
    settings.mutable_info()->mutable_common()->add_array_types()->set_name("list");
    settings.mutable_info()->mutable_common()->mutable_array_types(0)->set_label("List");
    settings.mutable_info()->mutable_common()->mutable_array_types(0)->set_element_type("string");
    auto& property = *settings.mutable_info()->add_properties()->mutable_common();
    property.set_name("Count");
    property.set_type("integer");
    talker->Send(FramesOf(settings));

    // The other one never answers, which takes its time.
    vq::vds::GetDevicePropertyInfo::Reply reply;
    auto const end = std::chrono::steady_clock::now() + kStartLimit;
    while (!reply.has_info() && std::chrono::steady_clock::now() < end) {
        server->Send(FramesOf(vq::vds::GetDevicePropertyInfo()));
        Frames const answer = server->Receive();
        ASSERT_EQ(answer.size(), 3U);
        if (answer[1] == reply.GetTypeName()) {
            ASSERT_TRUE(reply.ParseFromString(answer[2]));
        }
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
    vq::vds::LaunchDeviceApplication launch;
    launch.set_application("mock_identity_device");
    launch.set_flag_3(false);
    EXPECT_THAT(Refused(launch), HasSubstr("this server launches no programs"));
    vq::vds::GetAvailableDeviceApplications::Reply available;
    Exchange(*server, vq::vds::GetAvailableDeviceApplications(), available);
    EXPECT_EQ(available.applications_size(), 0);
}

TEST_F(ServerCommands, LaunchesEndsAndMissesItsPrograms) {
    std::string const directory = HomeDirectory() + "programs";
    std::filesystem::create_directory(directory);
    std::filesystem::create_symlink(std::string(VQ_BINARY_DIR) + "/mock_identity_device",
                                    directory + "/mock");
    std::filesystem::create_symlink("/etc/passwd", directory + "/data");
    ::setenv("VQ_VDS_DATA", (std::string(VQ_BINARY_DIR) + "/data").c_str(), 1);
    Start({"--launch-from", directory});
    vq::vds::GetAvailableDeviceApplications::Reply available;
    Exchange(*server, vq::vds::GetAvailableDeviceApplications(), available);
    EXPECT_THAT(available.applications(), testing::ElementsAre("mock"));

    vq::vds::LaunchDeviceApplication launch;
    launch.set_flag_3(true);
    for (char const* const name : {"data", "../programs/mock", "", ".", "none"}) {
        launch.set_application(name);
        EXPECT_THAT(Refused(launch), HasSubstr("there is no program")) << name;
    }
    launch.set_application("mock");
    vq::vds::LaunchDeviceApplication::Reply launched;
    Exchange(*server, launch, launched);
    auto const started = Await<vq::vds::DeviceApplicationStartedEvent>();
    EXPECT_EQ(started.description().field_7(), launched.process_id());
    vq::vds::KillDeviceApplication kill;
    kill.set_application_id(started.application_id());
    vq::vds::KillDeviceApplication::Reply killed;
    Exchange(*server, kill, killed);
    EXPECT_EQ(Await<vq::vds::DeviceApplicationUnregisteredEvent>().application_id(), kill.application_id());
    EXPECT_THAT(Refused(kill), HasSubstr("there is no device application with id"));

    Exchange(*server, launch, launched);
    auto const again = Await<vq::vds::DeviceApplicationStartedEvent>();
    ASSERT_EQ(::kill(static_cast<pid_t>(launched.process_id()), SIGKILL), 0);
    auto const crash = Await<vq::vds::DeviceApplicationCrashedEvent>();
    EXPECT_EQ(crash.application_id(), again.application_id());
    EXPECT_EQ(crash.message(), "its process was ended by signal 9");
}

TEST_F(ServerCommands, EndsAForeignProgramThroughItsDeviceAndNoticesItsDeath) {
    Start();
    ChildProcess program({"/bin/cat"});
    std::uint32_t const application = AddApplication(program.Pid());
    vq::vds::KillDeviceApplication kill;
    kill.set_application_id(application);
    EXPECT_THAT(Refused(kill), HasSubstr("has no device that could be asked to quit"));
    auto const device = AddDevice("puck", application);
    vq::vds::KillDeviceApplication::Reply killed;
    Exchange(*server, kill, killed);
    Command<vq::sd::QuitApplication>(*device);
    program.Signal(SIGKILL);
    EXPECT_EQ(Await<vq::vds::DeviceUnregisteredEvent>().name(), "puck");
    auto const crash = Await<vq::vds::DeviceApplicationCrashedEvent>();
    EXPECT_EQ(crash.application_id(), application);
    EXPECT_EQ(crash.message(), "its process has ended");
    EXPECT_EQ(Await<vq::vds::DeviceApplicationUnregisteredEvent>().application_id(), application);
}

}  // namespace
}  // namespace vq::test
