// The program itself, against a real server and device, and against none.

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>

#include "TestSupport/ChildProcess.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/SharedMutex.h"
#include "Utils/TextUtils.h"

namespace vq::test {
namespace {

using Words = std::vector<std::string>;

constexpr std::chrono::minutes kPatience{2};
constexpr char kDevice[] = "MockVQ1IdentitySparseDevice";

struct Result {
    int status = -1;
    std::string output;
};

std::string Binary(char const* name) {
    return std::string(VQ_BINARY_DIR) + "/" + name;
}

void Replace(std::string& text, std::string const& from, std::string const& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

std::string Joined(Words const& words) {
    return testing::PrintToString(words);
}

class Rigctl : public testing::Test {
protected:
    Rigctl() { ::setenv("VQ_VDS_ADDRESS", m_address.c_str(), 1); }
    /// No server outlives its test.
    ~Rigctl() override {
        SignalServer(SIGKILL);
        // Another one may have taken its place.
        Run({"-k", "--timeout", "10000"});
    }

    /// The arguments of a line of a table.
    Words WordsOf(std::string line) const {
        Replace(line, "ADDRESS", m_address);
        Replace(line, "DEVICE", kDevice);
        return line == kNone ? Words() : Parameterize(line);
    }
    static ChildProcess Begin(Words arguments, ChildProcess::Environment const& environment = {}) {
        arguments.insert(arguments.begin(), Binary("RIGCTL"));
        return ChildProcess(arguments, environment);
    }
    static Result End(ChildProcess& child) {
        Result result;
        result.status = child.WaitForExit(kPatience).value_or(-1);
        result.output = child.DrainOutput();
        return result;
    }
    static Result Run(Words const& arguments) {
        ChildProcess child = Begin(arguments);
        return End(child);
    }
    /// Its output; the command succeeds.
    static std::string Do(Words arguments) {
        // In front, where it is no argument of a program to be run.
        arguments.insert(arguments.begin(), {"--timeout", "60000"});
        Result const result = Run(arguments);
        EXPECT_EQ(result.status, 0) << Joined(arguments) << ": " << result.output;
        return result.output;
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
    void StartProvider() {
        m_provider = std::make_unique<ChildProcess>(Words{Binary("mock_identity_device")});
        ASSERT_TRUE(m_provider->ReadLineWith("ready", kPatience)) << m_provider->Output();
    }

    std::string const m_address = "IPC:" + HomeDirectory() + "vds";
    pid_t m_server = 0;
    std::unique_ptr<ChildProcess> m_provider;
};

class ExitStatus : public Rigctl {
protected:
    void Expect(char const* section) {
        ::setenv("PATH", (std::string(VQ_BINARY_DIR) + ":/usr/bin:/bin").c_str(), 1);
        for (auto const& [line, status, says] : Rows<3>("Rigctl", section)) {
            Result const result = Run(WordsOf(line));
            EXPECT_EQ(result.status, std::stoi(status)) << line << ": " << result.output;
            EXPECT_THAT(result.output, HasSubstr(says)) << line;
        }
    }
};

TEST_F(ExitStatus, TellsABadCommandLineAndThatThereIsNoServer) {
    Expect("no-server");
}

TEST_F(ExitStatus, TellsWhatARunningAHungAndADeadServerDo) {
    StartServer();
    Expect("running-server");
    ChildProcess watcher = Begin({"watch"});
    while (watcher.DrainOutput().empty()) {
        Do({"call", "RegisterVQSDKApplication", "name=a", "process_id=1"});
    }
    SignalServer(SIGSTOP);
    Expect("hung-server");
    Result const silence = End(watcher);
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
        for (char const* const key : {"\"process\":", "\"application\":", "\"minimum_protocol\":"}) {
            for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
                std::size_t const number = at + std::strlen(key);
                text.replace(number, text.find_first_not_of("0123456789", number) - number, "N");
            }
        }
        Replace(text, m_address, "ADDRESS");
        Replace(text, kDevice, "DEVICE");
        EXPECT_EQ(text, json + "\n") << line;
    }
    EXPECT_EQ(Run({"devices", "--color", "always"}).output.substr(0, 4), "\x1b[1m");
    ChildProcess plain = Begin({"devices", "--color", "auto"});
    EXPECT_THAT(End(plain).output, StartsWith("ID  NAME")) << "no terminal, no colour";
}

TEST_F(Rigctl, SteersADevice) {
    StartServer();
    StartProvider();
    EXPECT_THAT(Do({"stats", kDevice}), HasSubstr("counter"));
    Do({"config", kDevice, "set", "DelayMs=17"});
    EXPECT_EQ(Do({"config", kDevice, "get", "DelayMs"}), "17\n");
    std::string const file = HomeDirectory() + "saved.json";
    Do({"config", kDevice, "save", file});
    Do({"config", kDevice, "reset", "DelayMs"});
    EXPECT_EQ(Do({"config", kDevice, "get", "DelayMs"}), "0\n");
    Do({"config", kDevice, "load", file});
    EXPECT_EQ(Do({"config", kDevice, "get", "DelayMs"}), "17\n");
    Result const misfit = Run({"config", kDevice, "set", "DelayMs=abc"});
    EXPECT_EQ(misfit.status, 1);
    EXPECT_THAT(misfit.output, HasSubstr("Cannot set property 'DelayMs'"));
    EXPECT_EQ(Run({"prune", "\x1b[2J\xc2\x9b\n"}).output, "there is no device ' [2J   '\n");
    Do({"rate", kDevice, "33"});
    EXPECT_THAT(Do({"rate", kDevice}), HasSubstr("33"));
    EXPECT_THAT(Do({"top", "--count", "1", "--interval", "0.3", "--json"}), HasSubstr("\"state\":\"ready\""));
    EXPECT_THAT(Do({"identity"}), HasSubstr("Lindqvist"));
    Do({"config", kDevice, "set", "LoggedIn=false"});
    EXPECT_THAT(Run({"identity", "--timeout", "60000"}).output, HasSubstr("(0x7D4D0004)"));
    // A watcher that comes late sees the next change; one that comes early may be told of the young device.
    std::string seen;
    do {
        ChildProcess watcher = Begin({"watch", "--count", "1", "--json", "--timeout", "60000"});
        while (!watcher.WaitForExit(std::chrono::milliseconds(0))) {
            Do({"mappings", "remove", kDevice, "identity_feature"});
            Do({"mappings", "add", kDevice, "identity_feature"});
        }
        seen = End(watcher).output;
    } while (seen.find(R"("type":"vq.vds.DeviceRegisteredEvent")") != std::string::npos);
    EXPECT_THAT(seen, HasSubstr(R"("type":"vq.vds.ChannelMappingChangedEvent")"));
    Do({"quit", kDevice, "--application"});
    EXPECT_EQ(m_provider->WaitForExit(kPatience), 0) << m_provider->DrainOutput();
    Do({"-r"});
    Do({"-k"});
    EXPECT_EQ(Run({"devices"}).status, 3);
}

TEST_F(Rigctl, FindsAProviderThatAnswersTooLate) {
    StartServer();
    StartProvider();
    EXPECT_THAT(Do({"doctor"}), HasSubstr("never been too slow"));
    Do({"config", kDevice, "set", "DelayMs=5500"});
    Result const late = Run({"doctor", "--timeout", "60000"});
    EXPECT_EQ(late.status, 5);
    EXPECT_THAT(late.output, HasSubstr("and programs wait for 5 s"));
    Do({"config", kDevice, "set", "DelayMs=0"});
    Result const past = Run({"doctor", "--timeout", "60000"});
    EXPECT_EQ(past.status, 5) << "whoever has asked is cut off still";
    EXPECT_THAT(past.output, HasSubstr("has a stuck pipe"));
}

TEST_F(Rigctl, RecoversAWedgedRegistryAndHealsABrokenOne) {
    StartServer();
    SharedMutex mutex("VQTLRegistry.mutex");
    ASSERT_TRUE(mutex.Open() && mutex.Lock());
    Result const wedged = Run({"doctor", "--timeout", "200"});
    EXPECT_EQ(wedged.status, 5);
    EXPECT_THAT(wedged.output, HasSubstr("RIGCTL registry recover"));
    EXPECT_THAT(Run({"registry", "recover", "--timeout", "200"}).output, HasSubstr("was replaced"));
    Do({"registry"});
    std::ofstream(HomeDirectory() + ".config/vqvds/VQTLRegistry.memory", std::ios::in) << "no line\n";
    EXPECT_EQ(Run({"registry"}).status, 1);
    EXPECT_THAT(Run({"doctor"}).output, HasSubstr("broken line"));
    Do({"-r"});
    Do({"registry"});
}

TEST_F(Rigctl, FindsAnAddressThatIsWrittenInAnotherWay) {
    ::setenv("VQ_VDS_ADDRESS", "IPC:named", 1);
    StartServer();
    EXPECT_THAT(Run({"doctor"}).output, HasSubstr("'IPC:" + HomeDirectory() + ".config/vqvds/named'"));
}

TEST_F(Rigctl, RunsAProgramInSurroundingsThatGoWithIt) {
    std::string const program = "echo home $HOME; " + Binary("RIGCTL") + " devices --json; exec sleep 600";
    ChildProcess runner = Begin({"run", "--", "sh", "-c", program});
    auto const home = runner.ReadLineWith("home ", kPatience);
    ASSERT_TRUE(home) << runner.Output();
    EXPECT_TRUE(runner.ReadLineWith(R"({"application")", kPatience)) << runner.Output();
    runner.Signal(SIGTERM);
    EXPECT_EQ(End(runner).status, 128 + SIGTERM) << "what ended the program, which got the signal";
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
    EXPECT_EQ(End(shell).output, "a\\ b \\$\\(exit\\) none\n");
    // A machine that is too slow gives no names: then the next attempt may.
    for (auto const& [words, name] :
         {std::pair{Words{"--complete", "quit", ""}, kDevice},
          {Words{"--complete", "config", kDevice, "--timeout", "5", "set", "De"}, "DelayMs"},
          {Words{"--complete", "registry", "remove", ""}, "vdserver@vds"}}) {
        std::string output;
        for (int attempt = 0; attempt < 100 && output.find(name) == std::string::npos; ++attempt) {
            output = Run(words).output;
        }
        EXPECT_THAT(output, HasSubstr(name)) << Joined(words);
    }
}

}  // namespace
}  // namespace vq::test
