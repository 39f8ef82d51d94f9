#include "Utils/ThreadUtils.h"

#include <pthread.h>

#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"

namespace {

TEST(ThreadUtilsTest, NamesAThreadByItsNameOrItsNumber) {
    std::thread([] {
        EXPECT_EQ(GetThreadName(), std::to_string(::gettid())) << "it inherits the program's name";
        ::pthread_setname_np(::pthread_self(), "from outside");
        EXPECT_EQ(GetThreadName(), "from outside");
        SetThreadName("twentycharacterslong");
        EXPECT_EQ(GetThreadName(), "twentycharacter");
    }).join();
}

TEST(ThreadUtilsTest, RoundRobinIsTakenOrItsRefusalLogged) {
    vq::test::LogCapture const log(LogLevel::Verbose);
    int policy = -1;
    sched_param parameters{};
    std::thread([&] {
        SetThreadSchedulerPolicy(3);
        EXPECT_EQ(log.Lines(), (Lines{"V Policy(3) is not set to RR"}));
        SetThreadSchedulerPolicy(0);
        ::pthread_getschedparam(::pthread_self(), &policy, &parameters);
    }).join();
    EXPECT_EQ(policy,
              log.Has(LogLevel::Verbose, "Failed to set thread scheduler to RR ") ? SCHED_OTHER : SCHED_RR);
    EXPECT_EQ(parameters.sched_priority, policy == SCHED_RR ? ::sched_get_priority_max(SCHED_RR) - 1 : 0);
}

__attribute__((noinline)) std::string TraceOf(int skip, int frames) {
    std::string trace = GetStackTrace(skip, frames);
    return trace;  // not a tail call: this frame has to be on the stack
}

TEST(ThreadUtilsTest, StackTracesLeaveOutTheirOwnAndTheSkippedFrames) {
    auto const lines = [](std::string const& text) { return std::count(text.begin(), text.end(), '\n'); };
    EXPECT_GT(lines(TraceOf(0, 64)), 2);
    EXPECT_EQ(lines(TraceOf(1, 64)), lines(TraceOf(0, 64)) - 1);
    EXPECT_EQ(lines(TraceOf(0, 3)), 2);
    EXPECT_EQ(TraceOf(64, 64) + TraceOf(0, 0), "");
}

TEST(ThreadUtilsTest, ThreadsStartedUnderBlockedSignalsNeverSeeThem) {
    auto const isBlocked = [] {
        sigset_t mask;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return ::sigismember(&mask, SIGTERM) == 1 && ::sigismember(&mask, SIGPROF) == 1;
    };
    {
        BlockedSignals const guard;
        EXPECT_TRUE(std::async(std::launch::async, isBlocked).get());
    }
    EXPECT_FALSE(isBlocked());
}

}  // namespace
