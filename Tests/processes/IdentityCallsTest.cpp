// The exported calls between processes: the normal course, both asynchronous pairs, and what a provider can
// answer.

#include <signal.h>

#include "Rig.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"

namespace vq::test {
namespace {

class IdentityCalls : public testing::Test {
protected:
    void Start(std::vector<std::string> const& providerSettings = {}) {
        m_rig.StartServer();
        m_rig.StartProvider(providerSettings);
    }

    Rig m_rig;
};

struct Course {
    std::string name;
    std::vector<std::string> providerSettings;
};

/// One caller that goes through a section of the table.
class IdentityCourse : public IdentityCalls, public testing::WithParamInterface<Course> {};

TEST_P(IdentityCourse, GivesTheStatedCodesAndProfiles) {
    Start(GetParam().providerSettings);
    Caller caller;
    for (auto const& [command, code, rest] : Rows<3>("IdentityCalls", GetParam().name)) {
        CallResult const result = caller.Call(command);
        EXPECT_EQ(result.code, std::stoul(code, nullptr, 0)) << command;
        EXPECT_THAT(result.rest + " ", HasSubstr(rest)) << command;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, IdentityCourse,
    testing::Values(Course{"NamesThenValues", {}}, Course{"ValuesBeforeAnyNames", {}},
                    Course{"AsynchronousPairs", {"DelayMs=150"}}, Course{"AnswerNotReady", {"DelayMs=60000"}},
                    Course{"UnknownFuture", {}}, Course{"ReleaseAndConnectAnew", {}},
                    Course{"OddProfile", {R"(Profile=[{"Key": 8, "Name": "a"}, {"Name": "b"},
                                                             {"Key": -1, "Name": "c"}, {"Key": 7}])"}}),
    [](auto const& each) { return each.param.name; });

TEST_F(IdentityCalls, AKeyOutsideTheEnumerationOrASuccessWithoutAttributesEndsTheProcess) {
    Start({"Profile=[]"});
    for (char const* const command : {"known 8", "names"}) {
        Caller caller;
        caller.Begin(command);
        EXPECT_EQ(caller.Process().WaitForExit(), 128 + SIGABRT) << command;
    }
}

TEST_F(IdentityCalls, TheProvidersResultCodesPassThrough) {
    Start({"LoggedIn=false"});
    Caller caller;
    CallResult const names = caller.Call("names");
    EXPECT_EQ(names.code, kNotLoggedIn);
    EXPECT_EQ(names.rest, "0 null");

    m_rig.Provider().Stop();
    m_rig.StartProvider({"Result=123456"});
    CallResult odd = caller.Call("names");
    // The mapping event that follows the new provider may still be on its way.
    for (int tries = 0; odd.code == kFailure && tries < 50; ++tries) {
        odd = caller.Call("names");
    }
    EXPECT_EQ(odd.code, 123456U);
}

TEST_F(IdentityCalls, RepeatedReleaseAndConnectLeaveNothingBehind) {
    Start();
    Caller caller;
    auto const countDescriptors = [&caller] {
        std::string const folder = "/proc/" + std::to_string(caller.Process().Pid()) + "/fd";
        return std::distance(std::filesystem::directory_iterator(folder), {});
    };
    std::ptrdiff_t descriptors = 0;
    std::ptrdiff_t threads = 0;
    for (int cycle = 0; cycle < 7; ++cycle) {
        if (cycle == 2) {
            descriptors = countDescriptors();
            threads = CountThreads(caller.Process().Pid());
        }
        ASSERT_EQ(caller.Call("names").code, kOk);
        ASSERT_EQ(caller.Call("release").code, kOk);
    }
    EXPECT_EQ(countDescriptors(), descriptors);
    EXPECT_EQ(CountThreads(caller.Process().Pid()), threads);
}

}  // namespace
}  // namespace vq::test
