// Processes that die, stop or come back while an application holds the library.

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <list>

#include "Rig.h"
#include "TestSupport/Test.h"

namespace vq::test {
namespace {

class Faults : public testing::Test {
protected:
    void StartAll() {
        m_rig.StartServer();
        m_rig.StartProvider();
    }

    // Calls until the code is there: events that heal a connection travel beside the calls.
    CallResult CallUntil(Caller& caller, std::string const& command, std::uint32_t code,
                         std::chrono::seconds limit) {
        auto const deadline = std::chrono::steady_clock::now() + limit;
        CallResult result = caller.Call(command);
        while (result.code != code && std::chrono::steady_clock::now() < deadline) {
            result = caller.Call(command);
        }
        return result;
    }

    Rig m_rig;
};

TEST_F(Faults, WithoutAServerACallGivesUpAfterFifteenSeconds) {
    Caller caller;
    CallResult const names = caller.Call("names");
    EXPECT_EQ(names.code, kNoLocalService);
    EXPECT_GE(names.duration, 14900ms);
    EXPECT_LT(names.duration, 40s);
    EXPECT_EQ(caller.Call("values-async-null").code, kNoLocalService)
        << "this null, unlike the others, is looked at behind the wait";
}

TEST_F(Faults, WithoutAProviderTheTwoGroupsOfCodesStayApart) {
    m_rig.StartServer();
    Caller caller;
    for (auto const& [command, code] : {std::pair<char const*, std::uint32_t>{"names", kFailure},
                                        {"known 1", kFailure},
                                        {"values", kFailure},
                                        {"names-async", kNoCloudService},
                                        {"values-async", kNoCloudService},
                                        {"release", kNoCloudService}}) {
        EXPECT_EQ(caller.Call(command).code, code) << command;
    }
}

TEST_F(Faults, AProviderThatComesLaterHealsTheFeatureAndOneThatIsReplacedIsFollowed) {
    m_rig.StartServer();
    Caller caller;
    ASSERT_EQ(caller.Call("names").code, kFailure);
    m_rig.StartProvider();
    EXPECT_EQ(CallUntil(caller, "names", kOk, 30s).code, kOk);
    m_rig.Provider().Stop();
    EXPECT_EQ(CallUntil(caller, "names", kFailure, 30s).code, kFailure);
    m_rig.StartProvider();
    EXPECT_EQ(CallUntil(caller, "names", kOk, 60s).code, kOk);
}

TEST_F(Faults, EveryWayToExitIsCleanAndUnregistersTheDevice) {
    StartAll();
    for (auto const& [command, connectFirst] : {std::pair{"exit", false},
                                                {"exit", true},
                                                {"exit-from-thread", true},
                                                {"names-and-exit-meanwhile", false},
                                                {"", true}}) {  // last: main returns
        Caller caller;
        // Also finds the place of its predecessor of the same name free.
        ASSERT_TRUE(!connectFirst || caller.Call("names").code == kOk) << caller.Process().DrainOutput();
        *command == '\0' ? caller.Process().CloseInput() : caller.Begin(command);
        EXPECT_EQ(caller.Process().WaitForExit(), 0) << command << caller.Process().DrainOutput();
    }
    Caller orphan;
    ASSERT_EQ(orphan.Call("names").code, kOk);
    m_rig.Server().Signal(SIGSTOP);
    orphan.Begin("exit");
    EXPECT_EQ(orphan.Process().WaitForExit(), 0) << "its server hangs: " << orphan.Process().DrainOutput();
}

void LimitDescriptors(Caller& caller, rlim_t count) {
    rlimit limit{};
    ASSERT_EQ(::prlimit(caller.Process().Pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
    limit.rlim_cur = std::min(count, limit.rlim_max);
    ASSERT_EQ(::prlimit(caller.Process().Pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
}

TEST_F(Faults, DescriptorsThatAreUsedUpFailTheCallsUntilThereAreSomeAgain) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers need descriptors themselves, and report nonsense without";
#endif
    StartAll();
    for (bool const isFirst : {true, false}) {
        std::list<Caller> callers;
        for (rlim_t const count : {3u, 6u, 9u, 12u, 18u, 30u, 40u, 50u}) {
            Caller& caller = callers.emplace_back();
            if (!isFirst) {
                EXPECT_EQ(CallUntil(caller, "names", kOk, 30s).code, kOk);
                LimitDescriptors(caller, count);
                EXPECT_EQ(CallUntil(caller, "release", kOk, 30s).code, kOk);
            }
            LimitDescriptors(caller, count);
            caller.Begin("names");
        }
        for (Caller& caller : callers) {
            CallResult const names = caller.Finish();
            // kFailure: its device has just made room for a namesake, that of another caller.
            EXPECT_TRUE(names.code == kOk || names.code == kNoLocalService || names.code == kFailure)
                << names.code;
            LimitDescriptors(caller, RLIM_INFINITY);
            if (!isFirst) {  // a registry that could not be opened at the first call is not opened later
                EXPECT_EQ(CallUntil(caller, "names", kOk, 30s).code, kOk) << caller.Process().DrainOutput();
            }
            caller.ExpectCleanExit();
        }
    }
}

}  // namespace
}  // namespace vq::test
