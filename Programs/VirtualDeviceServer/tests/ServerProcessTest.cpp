// The program itself: signals, crashes, restarts, and what it leaves behind.

#include <fcntl.h>
#include <semaphore.h>
#include <signal.h>

#include "Messaging/MessageAddress.h"
#include "RawDevice.h"
#include "TestSupport/Program.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"
#include "Utils/SharedMutex.h"
#include "Utils/TextUtils.h"

namespace vq::server {
namespace {

/// A server process, in service.
class ServerProcess : public test::Program {
public:
    explicit ServerProcess(std::string const& address, Lines const& more = {})
        : Program(Arguments(address, more)) {}
    std::string const& Address() const { return Ready(); }

    static Lines Arguments(std::string const& address, Lines const& more) {
        Lines arguments = {"vdserver", "--address", address};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
};

/// The lines of the registry of servers.
Lines RegistryLines() {
    std::ifstream file(GetUserTempDirectory() + "VQTLRegistry.memory");
    Lines lines;
    for (std::string line; std::getline(file, line) && line.front() != '\0';) {
        lines.push_back(line);
    }
    return lines;
}

class ServerProcessTest : public testing::TestWithParam<char const*> {
protected:
    void SetUp() override {
        // What servers of the tests before may have left: they are killed at their end.
        for (std::string const& name : GetDirectoryEntries(GetUserTempDirectory())) {
            RemoveFile(GetUserTempDirectory() + name);
        }
    }
    static std::string IpcAddress(std::string const& name) { return "IPC:" + test::HomeDirectory() + name; }
    /// An address that a restarted server can take again.
    static std::string Address() {
        if (std::string(GetParam()) == "IPC") {
            return "IPC:s";  // of the user, as people type it
        }
        int port = 0;
        EXPECT_TRUE(GetEphemeralPort(port));
        return "SOCKET:127.0.0.1:" + std::to_string(port);
    }
    static std::string EventAddress(test::RawSocket& client) {
        return client.Get(vq::vds::GetServerEventAddress()).address();
    }
};

INSTANTIATE_TEST_SUITE_P(Transports, ServerProcessTest, testing::Values("IPC", "SOCKET"),
                         [](auto const& param) { return std::string(param.param); });

TEST_P(ServerProcessTest, AStopSignalIsAnnouncedAndLeavesNothingBehind) {
    for (int const signal : {SIGTERM, SIGINT}) {
        ServerProcess server(Address());
        test::RawSocket client(ZMQ_REQ, server.Address());
        test::RawSocket events = Listen(EventAddress(client));
        ASSERT_EQ(RegistryLines().size(), 1U);
        EXPECT_THAT(RegistryLines()[0],
                    HasSubstr("\t" + server.Address() + "\t" + std::to_string(server.Pid()) + "\t"));
        server.Signal(signal);
        events.Await<vq::vds::ServerStoppingEvent>();
        EXPECT_EQ(server.WaitForExit(), 0) << server.Output();
        EXPECT_THAT(RegistryLines(), IsEmpty());
    }
    for (auto const& entry : std::filesystem::recursive_directory_iterator(test::HomeDirectory())) {
        EXPECT_FALSE(entry.is_socket()) << entry.path();
    }
}

TEST_P(ServerProcessTest, ARestartAfterACrashCallsTheFormerDevicesToRegisterAnew) {
    std::string const address = Address();
    std::optional<ServerProcess> server(address);
    test::RawSocket client(ZMQ_REQ, server->Address());
    std::string const eventAddress = EventAddress(client);
    test::RawSocket events = Listen(eventAddress);
    RawDevice const first(client, "first");
    EXPECT_EQ(first.Id(), 1);
    RawDevice const second(client, "second");
    server->End(SIGKILL);
    EXPECT_EQ(RegistryLines().size(), 1U) << "a killed server cannot remove its line";

    server.emplace(address);
    ASSERT_EQ(RegistryLines().size(), 1U) << "the line of the dead server is replaced";
    EXPECT_THAT(RegistryLines()[0], HasSubstr(std::to_string(server->Pid())));
    EXPECT_FALSE(FileExists(MessageAddress::FromString(second.Address()).location)) << "it binds another";
    // Listener and client were never made anew.
    EXPECT_EQ(events.Await<vq::vds::DeviceUnregisteredEvent>().device_id(), 1U);
    EXPECT_EQ(events.Await<vq::vds::DeviceUnregisteredEvent>().device_id(), 2U);
    EXPECT_EQ(EventAddress(client), eventAddress);
    EXPECT_EQ(client.Get(vq::vds::GetDeviceInfos()).infos_size(), 0);
    EXPECT_EQ(RawDevice(client, "first").Id(), 3);
    // More than once, and only who is still missing.
    events.Await<vq::vds::DeviceRegisteredEvent>();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(events.Await<vq::vds::DeviceUnregisteredEvent>().name(), "second");
    }
    EXPECT_EQ(server->End(SIGTERM), 0);
}

TEST_P(ServerProcessTest, SharedMemoryOfADeadServerIsRemovedByTheNextOnItsAddressOrOfItsName) {
    std::optional<ServerProcess> server(std::in_place, Address(), Lines{"--name", "former"});
    std::optional<test::RawSocket> client(std::in_place, ZMQ_REQ, server->Address());
    char const* const camera = "1:'camera' 2:100 3:0";
    auto const former = client->Get<vq::vds::CreateServerSharedMemory>(camera);
    // Somebody died in the middle of a write.
    SharedMutex held(former.mutex_name());
    ASSERT_TRUE(held.Open() && held.Lock());
    server->End(SIGKILL);
    std::string const file = GetUserTempDirectory() + former.memory_name();
    EXPECT_TRUE(FileExists(file) && SharedMutex(former.mutex_name()).Exists());

    // On TCP the address is another one each time, so that the name must tell.
    server.emplace(Address(), Lines{"--name", std::string(GetParam()) == "IPC" ? "other" : "former"});
    client.emplace(ZMQ_REQ, server->Address());
    EXPECT_FALSE(FileExists(file) || SharedMutex(former.mutex_name()).Exists());
    EXPECT_FALSE(client->Get<vq::vds::FindServerSharedMemory>("1:'camera'").found());
    SharedMutex free(client->Get<vq::vds::CreateServerSharedMemory>(camera).mutex_name());
    EXPECT_TRUE(free.Open() && free.Lock(0ms, nullptr));
    EXPECT_EQ(server->End(SIGTERM), 0);
    EXPECT_FALSE(free.Exists());
}

TEST_P(ServerProcessTest, TwoServersStandBesideEachOther) {
    ServerProcess first(Address());
    ServerProcess second(IpcAddress("other"), {"--protocol-version", "13"});
    EXPECT_EQ(RegistryLines().size(), 2U);
    test::RawSocket client(ZMQ_REQ, first.Address());
    test::RawSocket other(ZMQ_REQ, second.Address());
    RawDevice const device(client, "d");
    EXPECT_EQ(other.Get(vq::vds::GetDeviceInfos()).infos_size(), 0);
    EXPECT_EQ(other.Get(vq::vds::GetProtocolVersion()).protocol_version(), 13);

    // Neither the address nor the name of a living server can be had.
    std::string const name = RegistryLines()[0].substr(0, RegistryLines()[0].find('\t'));
    for (auto const& arguments : {ServerProcess::Arguments(first.Address(), {}),
                                  ServerProcess::Arguments(IpcAddress("third"), {"--name", name})}) {
        test::Outcome const refused = test::ChildProcess(arguments).Finish();
        EXPECT_EQ(refused.status, 1) << refused.output;
    }
    EXPECT_EQ(client.Ask(vq::vds::Ping()), "vq.vds.Ping.Reply") << "the intruder took the address";
    EXPECT_EQ(first.End(SIGTERM), 0);
    ASSERT_EQ(RegistryLines().size(), 1U);
    EXPECT_THAT(RegistryLines()[0], HasSubstr(second.Address()));
}

TEST_P(ServerProcessTest, HealsADamagedRegistry) {
    std::string const table = GetUserTempDirectory() + "VQTLRegistry.memory";
    for (std::string const& text :
         {std::string(4096, '\xee'), std::string(3, '\t'), std::string("no table\n")}) {
        std::ofstream(table, std::ios::trunc) << text;
        ServerProcess server(Address());
        ASSERT_EQ(RegistryLines().size(), 1U);
        EXPECT_EQ(server.End(SIGTERM), 0);
    }
}

TEST_P(ServerProcessTest, TakesTheNameOfALineThatNobodyCanServeAt) {
    for (std::string const& address : {"IPC:/" + std::string(200, 'x'), std::string("SOCKET:nowhere"),
                                       std::string("SOCKET:127.0.0.1:1"), std::string("LOOPBACK:x")}) {
        std::ofstream(GetUserTempDirectory() + "VQTLRegistry.memory", std::ios::trunc)
            << "held\t" << address << "\t1\t" << address << "\t" << address << "\t12\t11\n";
        ServerProcess server(Address(), {"--name", "held"});
        EXPECT_THAT(RegistryLines(), Contains(HasSubstr("held\t" + server.Address() + "\t")));
        EXPECT_EQ(server.End(), 0);
    }
}

TEST_P(ServerProcessTest, FreesARegistryThatADeadProcessLeftLocked) {
    EXPECT_EQ(ServerProcess(Address()).End(SIGTERM), 0);
    sem_t* const semaphore = ::sem_open("VQTLRegistry.mutex", 0);
    ASSERT_NE(semaphore, SEM_FAILED);
    ASSERT_EQ(::sem_trywait(semaphore), 0);
    ::sem_close(semaphore);
    ServerProcess server(Address());
    EXPECT_EQ(RegistryLines().size(), 1U);
    EXPECT_EQ(server.End(SIGTERM), 0);
}

TEST(ServerArgumentsTest, BadOnesAreRefusedWithAWord) {
    for (auto const& [line, text] : Rows<2>("ServerProcess", "refused")) {
        Lines arguments = Parameterize(line);
        arguments.insert(arguments.begin(), "vdserver");
        test::Outcome const outcome = test::ChildProcess(arguments).Finish();
        EXPECT_GT(outcome.status, 0) << line;
        EXPECT_THAT(outcome.output, HasSubstr(text));
    }
}

}  // namespace
}  // namespace vq::server
