// The program itself, against a real server and device, and against none.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>

#include "TestSupport/ChildProcess.h"
#include "TestSupport/TestHome.h"

namespace vq::test {
namespace {

using testing::HasSubstr;

constexpr std::chrono::minutes kPatience{2};

struct Result {
    int status = -1;
    std::string output;
};

std::string Binary(char const* name) {
    return std::string(VQ_BINARY_DIR) + "/" + name;
}

class Rigctl : public testing::Test {
protected:
    Rigctl() { ::setenv("VQ_VDS_ADDRESS", m_address.c_str(), 1); }
    /// No server outlives its test.
    ~Rigctl() override { Run({"-k", "--timeout", "30000"}); }

    static Result Run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), Binary("RIGCTL"));
        ChildProcess child(arguments);
        Result result;
        result.status = child.WaitForExit(kPatience).value_or(-1);
        result.output = child.DrainOutput();
        return result;
    }
    Result Start() { return Run({"-s", "--address", m_address, "--timeout", "60000"}); }

    std::string const m_address = "IPC:" + HomeDirectory() + "vds";
};

TEST_F(Rigctl, SaysWhatIsWrongAndTellsItByTheStatus) {
    EXPECT_EQ(Run({"--help"}).status, 0);
    EXPECT_EQ(Run({"nonsense"}).status, 2);
    Result const none = Run({"devices"});
    EXPECT_EQ(none.status, 3);
    EXPECT_THAT(none.output, HasSubstr("Start one with 'RIGCTL -s'."));
    Result const silent = Run({"devices", "--address", "SOCKET:127.0.0.1:1", "--timeout", "300"});
    EXPECT_EQ(silent.status, 4);
    EXPECT_THAT(silent.output, HasSubstr("No answer from the server"));
}

TEST_F(Rigctl, StartsShowsAndStopsAServer) {
    Result const started = Start();
    ASSERT_EQ(started.status, 0) << started.output;
    EXPECT_EQ(Start().status, 0) << "one that runs already";
    EXPECT_EQ(Run({"call", "Nonsense"}).status, 2);
    EXPECT_THAT(Run({"--json", "--timeout", "30000"}).output, HasSubstr("\"devices\":0"));
    EXPECT_THAT(Run({"servers", "--json", "--timeout", "30000"}).output, HasSubstr("\"answers\":true"));
    EXPECT_EQ(Run({"-k", "--timeout", "60000"}).status, 0);
    EXPECT_EQ(Run({"devices"}).status, 3);
}

TEST_F(Rigctl, SteersADevice) {
    ASSERT_EQ(Start().status, 0);
    ChildProcess provider({Binary("mock_identity_device")});
    ASSERT_TRUE(provider.ReadLineWith("ready", kPatience)) << provider.Output();
    std::string const device = "MockVQ1IdentitySparseDevice";
    auto const run = [](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--timeout", "30000"});
        Result const result = Run(arguments);
        EXPECT_EQ(result.status, 0) << arguments[0] << ": " << result.output;
        return result.output;
    };
    EXPECT_THAT(run({"devices", "--json"}), HasSubstr("\"name\":\"" + device + "\""));
    EXPECT_THAT(run({"channels", "--json"}), HasSubstr("\"served_by\":[\"" + device + "\"]"));
    EXPECT_THAT(run({"call", "GetDevicesOfType", "type=Identity"}), HasSubstr("devices: " + device));
    EXPECT_THAT(run({"stats", device}), HasSubstr("counter"));
    run({"config", device, "set", "DelayMs=17"});
    EXPECT_EQ(run({"config", device, "get", "DelayMs"}), "17\n");
    std::string const file = HomeDirectory() + "saved.json";
    run({"config", device, "save", file});
    run({"config", device, "reset", "DelayMs"});
    EXPECT_EQ(run({"config", device, "get", "DelayMs"}), "0\n");
    run({"config", device, "load", file});
    EXPECT_EQ(run({"config", device, "get", "DelayMs"}), "17\n");
    Result const misfit = Run({"config", device, "set", "DelayMs=abc", "--timeout", "30000"});
    EXPECT_EQ(misfit.status, 1);
    EXPECT_THAT(misfit.output, HasSubstr("Cannot set property 'DelayMs'"));
    run({"rate", device, "33"});
    EXPECT_THAT(run({"rate", device, "--json"}), HasSubstr("\"hertz\":33"));
    run({"quit", device, "--application"});
    EXPECT_EQ(provider.WaitForExit(kPatience), 0) << provider.DrainOutput();
}

}  // namespace
}  // namespace vq::test
