// The program itself, against a real server and device, and against none.

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>

#include "TestSupport/Program.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/SharedMutex.h"
#include "Utils/TextUtils.h"

namespace vq::test {
namespace {

using Words = std::vector<std::string>;

constexpr char kDevice[] = "MockVQ1IdentitySparseDevice";
Words const kPatiently = {"--timeout", "60000"};

class Rigctl : public testing::Test {
public:
    Rigctl() { ::setenv("VQ_VDS_ADDRESS", m_address.c_str(), 1); }
    /// No server outlives its test.
    ~Rigctl() override {
        SignalServer(SIGKILL);
        // Another one may have taken its place.
        Run({"-k", "--timeout", "10000"});
    }

    /// The arguments of a line of a table.
    Words WordsOf(std::string line) const {
        line = ReplaceSubstring(ReplaceSubstring(line, "ADDRESS", m_address), "DEVICE", kDevice);
        return line == kNone ? Words() : Parameterize(ReplaceSubstring(line, "FILE", m_file));
    }
    static ChildProcess Begin(Words arguments) {
        arguments.insert(arguments.begin(), "RIGCTL");
        return ChildProcess(arguments);
    }
    static Outcome Run(Words const& arguments) { return Begin(arguments).Finish(); }
    /// Goes through a section of the table.
    /// @param common  stands in front of each line
    void Expect(char const* section, Words const& common = {}) {
        ::setenv("PATH", (ProgramPath("") + ":/usr/bin:/bin").c_str(), 1);
        for (auto const& [line, status, says] : Rows<3>("Rigctl", section)) {
            Words arguments = WordsOf(line);
            arguments.insert(arguments.begin(), common.begin(), common.end());
            Outcome const outcome = Run(arguments);
            EXPECT_EQ(outcome.status, std::stoi(status)) << line << ": " << outcome.output;
            EXPECT_THAT(outcome.output, HasSubstr(says)) << line;
        }
    }
    /// Its output; the command succeeds.
    static std::string Do(Words arguments) {
        // In front, where it is no argument of a program to be run.
        arguments.insert(arguments.begin(), kPatiently.begin(), kPatiently.end());
        Outcome const outcome = Run(arguments);
        EXPECT_EQ(outcome.status, 0) << testing::PrintToString(arguments) << ": " << outcome.output;
        return outcome.output;
    }
    void StartServer() {
        Do({"-s"});
        std::string const line = Do({"--json"});
        std::string const key = "\"process\":";
        ASSERT_NE(line.find(key), std::string::npos) << line;
        m_server = std::stoi(line.substr(line.find(key) + key.size()));
    }
    void SignalServer(int number) const {
        if (m_server > 0) {
            ::kill(m_server, number);
        }
    }
    void StartProvider() { m_provider = std::make_unique<Program>(Words{"mock_identity_device"}); }

    std::string const m_address = "IPC:" + HomeDirectory() + "vds";
    std::string const m_file = HomeDirectory() + "saved.json";
    pid_t m_server = 0;
    std::unique_ptr<Program> m_provider;
};

TEST_F(Rigctl, TellsABadCommandLineAndThatThereIsNoServer) {
    Expect("no-server");
}

TEST_F(Rigctl, TellsWhatARunningAHungAndADeadServerDo) {
    StartServer();
    Expect("running-server");
    ChildProcess watcher = Begin({"watch"});
    while (watcher.DrainOutput().empty()) {
        Do({"call", "RegisterVQSDKApplication", "name=a", "process_id=1"});
    }
    SignalServer(SIGSTOP);
    Expect("hung-server");
    Outcome const silence = watcher.Finish();
    EXPECT_EQ(silence.status, 4);
    EXPECT_THAT(silence.output, HasSubstr("has fallen silent"));
    int const end = static_cast<int>(::syscall(SYS_pidfd_open, m_server, 0));
    pollfd waiting{.fd = end, .events = POLLIN, .revents = 0};
    SignalServer(SIGKILL);
    ASSERT_EQ(::poll(&waiting, 1, 60000), 1);
    ::close(end);
    Expect("dead-server");
}

TEST_F(Rigctl, ShowsWhatThereIsAsJson) {
    StartServer();
    StartProvider();
    for (auto const& [line, json] : Rows<2>("Rigctl", "json")) {
        Words arguments = WordsOf(line);
        arguments.emplace_back("--json");
        std::string text = Do(arguments);
        for (std::string const key : {"\"process\":", "\"application\":", "\"minimum_protocol\":"}) {
            for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
                std::size_t const number = at + key.size();
                text.replace(number, text.find_first_not_of("0123456789", number) - number, "N");
            }
        }
        text = ReplaceSubstring(ReplaceSubstring(text, m_address, "ADDRESS"), kDevice, "DEVICE");
        EXPECT_EQ(text, json + "\n") << line;
    }
    EXPECT_EQ(Run({"devices", "--color", "always"}).output.substr(0, 4), "\x1b[1m");
    EXPECT_THAT(Run({"devices", "--color", "auto"}).output, StartsWith("ID  NAME"))
        << "no terminal, no colour";
}

TEST_F(Rigctl, SteersADevice) {
    StartServer();
    StartProvider();
    Expect("device", kPatiently);
    // A watcher that comes late sees the next change; one that comes early may be told of the young device.
    std::string seen;
    do {
        ChildProcess watcher = Begin({"watch", "--count", "1", "--json", "--timeout", "60000"});
        while (!watcher.WaitForExit(std::chrono::milliseconds(0))) {
            Do({"mappings", "remove", kDevice, "identity_feature"});
            Do({"mappings", "add", kDevice, "identity_feature"});
        }
        seen = watcher.Finish().output;
    } while (seen.find(R"("type":"vq.vds.DeviceRegisteredEvent")") != std::string::npos);
    EXPECT_THAT(seen, HasSubstr(R"("type":"vq.vds.ChannelMappingChangedEvent")"));
    Do({"quit", kDevice, "--application"});
    EXPECT_EQ(m_provider->WaitForExit(), 0) << m_provider->DrainOutput();
    Do({"-r"});
    Do({"-k"});
    EXPECT_EQ(Run({"devices"}).status, 3);
}

TEST_F(Rigctl, FindsAProviderThatAnswersTooLate) {
    StartServer();
    StartProvider();
    Expect("late-device", kPatiently);
}

TEST_F(Rigctl, RecoversAWedgedRegistryAndHealsABrokenOne) {
    StartServer();
    SharedMutex mutex("VQTLRegistry.mutex");
    ASSERT_TRUE(mutex.Open() && mutex.Lock());
    Expect("wedged-registry");
    std::ofstream(HomeDirectory() + ".config/vqvds/VQTLRegistry.memory", std::ios::in) << "no line\n";
    Expect("broken-registry");
}

TEST_F(Rigctl, FindsAnAddressThatIsWrittenInAnotherWay) {
    ::setenv("VQ_VDS_ADDRESS", "IPC:named", 1);
    StartServer();
    EXPECT_THAT(Run({"doctor"}).output, HasSubstr("'IPC:" + HomeDirectory() + ".config/vqvds/named'"));
}

TEST_F(Rigctl, RunsAProgramInSurroundingsThatGoWithIt) {
    std::string const program =
        "echo home $HOME; " + ProgramPath("RIGCTL") + " devices --json; exec sleep 600";
    ChildProcess runner = Begin({"run", "--", "sh", "-c", program});
    auto const home = runner.ReadLineWith("home ");
    ASSERT_TRUE(home) << runner.Output();
    EXPECT_TRUE(runner.ReadLineWith(R"({"application")")) << runner.Output();
    runner.Signal(SIGTERM);
    EXPECT_EQ(runner.Finish().status, 128 + SIGTERM) << "what ended the program, which got the signal";
    EXPECT_FALSE(std::filesystem::exists(*home));
    EXPECT_EQ(Run({"devices", "--address", "IPC:" + *home + "/vds"}).status, 3);
}

TEST_F(Rigctl, CompletesWithLiveNames) {
    StartServer();
    StartProvider();
    EXPECT_THAT(Do({}), HasSubstr("vdserver@vds"));
    EXPECT_THAT(Run({"--complete", "wa"}).output, HasSubstr("watch\n"));
    EXPECT_THAT(Run({"--complete", "call", "--d"}).output, HasSubstr("--device\n"));
    // What devices call themselves is never run.
    ChildProcess shell({"/bin/bash", "-c",
                        "RIGCTL() { printf '%s\n' 'a b' '$(exit)' none; }; . \"$0\"\n"
                        "COMP_WORDS=(RIGCTL quit '') COMP_CWORD=2; _rigctl; echo \"${COMPREPLY[@]}\"",
                        VQ_COMPLETION});
    EXPECT_EQ(shell.Finish().output, "a\\ b \\$\\(exit\\) none\n");
    // A machine that is too slow gives no names: then the next attempt may.
    for (auto const& [words, name] :
         {std::pair{Words{"--complete", "quit", ""}, kDevice},
          {Words{"--complete", "config", kDevice, "--timeout", "5", "set", "De"}, "DelayMs"},
          {Words{"--complete", "registry", "remove", ""}, "vdserver@vds"}}) {
        std::string output;
        for (int attempt = 0; attempt < 100 && output.find(name) == std::string::npos; ++attempt) {
            output = Run(words).output;
        }
        EXPECT_THAT(output, HasSubstr(name)) << words[1];
    }
}

}  // namespace
}  // namespace vq::test
