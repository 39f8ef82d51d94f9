// The program itself: signals, crashes, restarts, and what it leaves behind.

#include <fcntl.h>
#include <semaphore.h>
#include <signal.h>

#include "Messaging/MessageAddress.h"
#include "RawDevice.h"
#include "TestSupport/ChildProcess.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"
#include "Utils/SharedMutex.h"

namespace vq::server {
namespace {

using test::kPatience;

/// A server process; its address is known once it can be reached.
class ServerProcess {
public:
    explicit ServerProcess(std::string const& address, std::vector<std::string> const& more = {})
        : m_child(Arguments(address, more)) {
        m_address = m_child.ReadLineWith("ready ", kPatience).value_or("");
        EXPECT_THAT(m_address, Not(IsEmpty())) << m_child.Output();
    }
    int End(int signal) {
        m_child.Signal(signal);
        return m_child.WaitForExit(kPatience).value_or(-1);
    }
    std::string const& Address() const { return m_address; }
    test::ChildProcess& Child() { return m_child; }

    static std::vector<std::string> Arguments(std::string const& address,
                                              std::vector<std::string> const& more) {
        std::vector<std::string> arguments = {VDSERVER_PATH, "--address", address};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

private:
    test::ChildProcess m_child;
    std::string m_address;
};

/// The lines of the registry of servers.
std::vector<std::string> RegistryLines() {
    std::ifstream file(GetUserTempDirectory() + "VQTLRegistry.memory");
    std::vector<std::string> lines;
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
                    HasSubstr("\t" + server.Address() + "\t" + std::to_string(server.Child().Pid()) + "\t"));
        server.Child().Signal(signal);
        events.Await<vq::vds::ServerStoppingEvent>();
        EXPECT_EQ(server.Child().WaitForExit(kPatience), 0) << server.Child().Output();
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
    EXPECT_THAT(RegistryLines()[0], HasSubstr(std::to_string(server->Child().Pid())));
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
    using More = std::vector<std::string>;
    std::optional<ServerProcess> server(std::in_place, Address(), More{"--name", "former"});
    std::optional<test::RawSocket> client(std::in_place, ZMQ_REQ, server->Address());
    vq::vds::CreateServerSharedMemory request;
    request.set_memory_id("camera");
    request.set_size(100);
    request.set_resizable(false);
    auto const former = client->Get(request);
    // Somebody died in the middle of a write.
    SharedMutex held(former.mutex_name());
    ASSERT_TRUE(held.Open() && held.Lock());
    server->End(SIGKILL);
    std::string const file = GetUserTempDirectory() + former.memory_name();
    EXPECT_TRUE(FileExists(file) && SharedMutex(former.mutex_name()).Exists());

    // On TCP the address is another one each time, so that the name must tell.
    server.emplace(Address(), More{"--name", std::string(GetParam()) == "IPC" ? "other" : "former"});
    client.emplace(ZMQ_REQ, server->Address());
    EXPECT_FALSE(FileExists(file) || SharedMutex(former.mutex_name()).Exists());
    vq::vds::FindServerSharedMemory find;
    find.set_memory_id("camera");
    EXPECT_FALSE(client->Get(find).found());
    SharedMutex free(client->Get(request).mutex_name());
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
        test::ChildProcess refused(arguments);
        EXPECT_EQ(refused.WaitForExit(kPatience), 1) << refused.DrainOutput();
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
    std::vector<std::pair<std::vector<std::string>, char const*>> const cases = {
        {{"--address", "nowhere"}, "is no address"},
        {{"--address", "SOCKET:127.0.0.1:0?x", "--data", "/nowhere"}, "does not exist"},
        {{"--prune-after", "soon"}, "--prune-after"},
        {{"--log-level", "loud"}, "--log-level"},
    };
    for (auto const& [arguments, text] : cases) {
        std::vector<std::string> line = {VDSERVER_PATH};
        line.insert(line.end(), arguments.begin(), arguments.end());
        test::ChildProcess child(line);
        EXPECT_NE(child.WaitForExit(kPatience).value_or(0), 0);
        EXPECT_THAT(child.DrainOutput(), HasSubstr(text));
    }
}

}  // namespace
}  // namespace vq::server
