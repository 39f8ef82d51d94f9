#include "Utils/ServerRegistry.h"

#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"

namespace {

using Transport = MessageAddress::Transport;

ServerDescriptor Server(std::string const& name, std::string const& location) {
    ServerDescriptor server;
    server.name = name;
    server.address = {location, Transport::IPC, ""};
    server.heartbeatAddress = {location + ".h", Transport::IPC, ""};
    server.memoryEventAddress = {location + ".m", Transport::IPC, ""};
    server.pid = 1;
    server.protocol = 12;
    server.minimumProtocol = 11;
    return server;
}

class ServerRegistryTest : public testing::Test {
public:
    ServerRegistryTest() : m_path(GetUserTempDirectory() + Name() + ".memory") {}
    ~ServerRegistryTest() override {
        SharedMutex(Name() + ".mutex").Delete();
        RemoveFile(m_path);
    }
    static std::string Name() { return "testTLRegistry." + std::to_string(::getpid()); }

    /// Puts the text where other processes would; the rest of the page is zero.
    void SetTable(std::string const& text, std::size_t fileLength = 4096) const {
        std::string page = text;
        page.resize(fileLength, '\0');
        std::fstream file(m_path, std::ios::in | std::ios::out | std::ios::binary);
        file.write(page.data(), static_cast<std::streamsize>(page.size()));
    }
    std::string GetTable() const {
        std::ifstream file(m_path, std::ios::binary);
        std::string const page{std::istreambuf_iterator<char>(file), {}};
        return page.substr(0, page.find('\0'));
    }
    bool Register(std::string const& name, std::string const& location) {
        return m_registry->RegisterServer(Server(name, location), 5s, nullptr);
    }
    /// Names in table order, after a "!" when the table was not read to its end.
    std::string Read() {
        ServerRegistry::Servers servers;
        std::string names = m_registry->GetServers(servers, 5s, nullptr) ? "" : "!";
        for (ServerDescriptor const& server : servers) {
            names += server.name;
        }
        return names;
    }

    std::shared_ptr<ServerRegistry> m_registry = ServerRegistry::MakeTestInstance();
    std::string m_path;
};

TEST_F(ServerRegistryTest, TheTextOfTheTableIsReadUpToItsFirstBadLine) {
    for (auto const& [text, names, line] : Rows<3>("ServerRegistry", "texts")) {
        SetTable(text);
        vq::test::LogCapture log;
        EXPECT_EQ(Read(), names) << text;
        EXPECT_EQ(Read(), names) << text;
        EXPECT_EQ(log.Lines().size(), !line.empty()) << text;  // told once, not once a read
        EXPECT_TRUE(line.empty() || log.Has(LogLevel::Error, line)) << text;
        Register("fresh", "/fresh");  // a write lets it be told again
    }
}

TEST_F(ServerRegistryTest, ServersReplaceTheirOwnLineAndKeepItsPlace) {
    for (auto const& [name, location] :
         {std::pair{"A", "/a"}, {"B", "/b"}, {"C", "/c"}, {"A", "/new"}, {"D", "/b"}}) {
        EXPECT_TRUE(Register(name, location));
    }
    EXPECT_EQ(GetTable(),
              "A\tIPC:/new\t1\tIPC:/new.h\tIPC:/new.m\t12\t11\n"
              "D\tIPC:/b\t1\tIPC:/b.h\tIPC:/b.m\t12\t11\n"
              "C\tIPC:/c\t1\tIPC:/c.h\tIPC:/c.m\t12\t11\n");

    ServerDescriptor found;
    EXPECT_TRUE(m_registry->FindServer({"/b", Transport::IPC, ""}, found, 5s, nullptr));
    EXPECT_EQ(found.name, "D");
    EXPECT_FALSE(m_registry->FindServer({"/b", Transport::LOOPBACK, ""}, found, 5s, nullptr));
    EXPECT_TRUE(m_registry->FindServerByName("C", found, 5s, nullptr));
    std::ostringstream text;
    text << found;
    EXPECT_EQ(text.str(),
              "ServerDescriptor: address=IPC:/c; heartbeatAddress=IPC:/c.h; memoryEventAddress=IPC:/c.m; "
              "pid=1; protocol=12; minimumProtocol=11");
    EXPECT_FALSE(m_registry->RemoveServer(Server("X", "/x"), 5s, nullptr));
    EXPECT_TRUE(m_registry->RemoveServer(Server("X", "/b"), 5s, nullptr));
    EXPECT_TRUE(m_registry->RemoveServer(Server("A", "/x"), 5s, nullptr));
    EXPECT_EQ(Read(), "C");
}

TEST_F(ServerRegistryTest, UnusableAddressesAreRefusedButForTheMemoryAddress) {
    vq::test::LogCapture log;
    ServerDescriptor server = Server("A", "/a");
    server.heartbeatAddress = {};
    EXPECT_FALSE(m_registry->RegisterServer(server, 5s, nullptr));
    server = Server("A", "/a");
    server.address.logicalName = "n";
    EXPECT_FALSE(m_registry->RegisterServer(server, 5s, nullptr));
    EXPECT_EQ(log.Lines(), (Lines{"E Failed to use empty MessageAddress",
                                  "E Failed to use logical MessageAddresses, must use "
                                  "AMessagePipeProvider::Resolve first on IPC:/a?n"}));
    EXPECT_EQ(GetTable(), "");
    server = Server("A", "/a");
    server.memoryEventAddress = {};
    EXPECT_TRUE(m_registry->RegisterServer(server, 5s, nullptr));
    EXPECT_EQ(Read(), "!");
}

TEST_F(ServerRegistryTest, ATableThatIsTooLongIsCutAndHealsAtTheNextRegistration) {
    vq::test::LogCapture log;
    EXPECT_TRUE(Register("A", "/a"));
    EXPECT_TRUE(Register("L", "/" + std::string(400, 'l')));
    EXPECT_EQ(GetTable().size(), 1024u);
    EXPECT_TRUE(
        log.Has(LogLevel::Error, "truncating Tessel Server registry (allocated = 1024; needed = 1268)"))
        << testing::PrintToString(log.Lines());
    EXPECT_EQ(Read(), "!A");
    EXPECT_TRUE(Register("B", "/b"));
    EXPECT_EQ(
        log.Count(LogLevel::Warning, "ServerRegistry: trying to rewrite registry that we couldn't read"), 1u);
    EXPECT_EQ(Read(), "AB");
}

TEST_F(ServerRegistryTest, DamagedTablesAreReadInsideTheirPageAndHeal) {
    vq::test::LogCapture const quiet;
    ASSERT_TRUE(Register("A", "/a") && Register("B", "/b"));
    std::string const whole = GetTable();
    std::mt19937 random(7);
    std::uniform_int_distribution<int> byte(1, 255);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        ASSERT_EQ(::truncate(m_path.c_str(), 0), 0);
        SetTable(whole.substr(0, length), length);  // the file itself ends here, under the open block
        Read();
    }
    std::string noise(3 * 4096, '\0');
    for (char& c : noise) {
        c = static_cast<char>(byte(random));
    }
    for (std::size_t const length : {0u, 1u, 1024u, 4095u, 4096u, 3 * 4096u}) {
        ASSERT_EQ(::truncate(m_path.c_str(), 0), 0);
        SetTable(noise.substr(0, length), length);
        Read();
        EXPECT_TRUE(Register("A", "/a"));
        EXPECT_EQ(Read(), "A") << length;
        // Whoever comes later finds a whole file again.
        EXPECT_GE(ServerRegistry(Name()).GetServerAddress().location.size(), 1u);
    }
    ASSERT_EQ(::unlink(m_path.c_str()), 0);
    EXPECT_EQ(Read(), "");
    EXPECT_FALSE(Register("A", "/a"));
}

TEST_F(ServerRegistryTest, ADeadHolderOfTheMutexCostsTheTimeoutUntilItIsRecovered) {
    ASSERT_TRUE(Register("A", "/a"));
    {
        SharedMutex mutex(Name() + ".mutex");  // as that of a process that dies: nothing unlocks it
        ASSERT_TRUE(mutex.Open() && mutex.Lock());
    }
    ServerRegistry::Servers servers{Server("old", "/old")};
    bool timedOut = false;
    EXPECT_FALSE(m_registry->GetServers(servers, 50ms, &timedOut));
    EXPECT_TRUE(timedOut && servers.empty());
    timedOut = false;
    EXPECT_FALSE(m_registry->RemoveServer(Server("A", "/a"), 0ms, &timedOut));
    EXPECT_TRUE(timedOut);
    m_registry->Recover();
    EXPECT_EQ(Read(), "A");
}

TEST_F(ServerRegistryTest, OperationsUnderWaySurviveThatTheRegistryIsClosedAndItsMutexReplaced) {
    vq::test::LogCapture const quiet;
    std::atomic<bool> ended{false};
    auto const use = [&] {
        while (!ended) {
            Register("A", "/a");
            Read();
        }
    };
    std::vector<std::jthread> users;
    users.emplace_back(use);
    users.emplace_back(use);
    for (int i = 0; i < 200; ++i) {
        m_registry->Recover();
        m_registry->Terminate();
        m_registry->Initialize();
    }
    ended = true;
    users.clear();
    EXPECT_TRUE(Register("A", "/a"));
    m_registry->Terminate();
    EXPECT_EQ(Read(), "");
    m_registry->Initialize();
    EXPECT_EQ(Read(), "A");
}

TEST(ServerSelectionTest, TheUserChoosesByAddressThenByNameThenTheTableDecides) {
    int registered = 0;
    for (auto const& [servers, address, name, expected, line] : Rows<5>("ServerRegistry", "choice")) {
        for (; registered < std::stoi(servers); ++registered) {
            ASSERT_TRUE(ServerRegistry::Instance().RegisterServer(
                registered == 0 ? Server("A", "/a") : Server("B", "/b"), 5s, nullptr));
        }
        for (auto const& [variable, value] : {std::pair{"VQ_VDS_ADDRESS", address}, {"VQ_VDS_NAME", name}}) {
            value != kNone ? ::setenv(variable, value.c_str(), 1) : ::unsetenv(variable);
        }
        vq::test::LogCapture log;
        EXPECT_EQ(ServerRegistry::GetServerAddress().ToString(), expected);
        EXPECT_EQ(log.Lines(), line.empty() ? Lines{} : Lines{line});
    }
}

}  // namespace
