#include "Utils/ThreadUtils.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>

#include "TestSupport/LogCapture.h"
#include "Utils/OSUtils.h"

namespace {

using vq::test::LogCapture;

TEST(ThreadUtilsTest, NamesAThreadByItsNameOrItsNumber) {
    std::thread([] {
        EXPECT_EQ(GetThreadName(), std::to_string(::gettid())) << "it inherits the program's name";
        ::pthread_setname_np(::pthread_self(), "from outside");
        EXPECT_EQ(GetThreadName(), "from outside");
        SetThreadName("twentycharacterslong");
        EXPECT_EQ(GetThreadName(), "twentycharacter");
        char name[16] = "";
        ::pthread_getname_np(::pthread_self(), name, sizeof name);
        EXPECT_STREQ(name, "twentycharacter");
    }).join();
}

TEST(ThreadUtilsTest, AnotherSchedulingPolicyChangesNothing) {
    LogCapture const capture(LogLevel::Verbose);
    SetThreadSchedulerPolicy(3);
    EXPECT_TRUE(capture.Has(LogLevel::Verbose, "Policy(3) is not set to RR"));
    int policy = -1;
    sched_param parameters{};
    ::pthread_getschedparam(::pthread_self(), &policy, &parameters);
    EXPECT_EQ(policy, SCHED_OTHER);
}

TEST(ThreadUtilsTest, RoundRobinIsTakenOrItsRefusalLogged) {
    LogCapture const capture(LogLevel::Verbose);
    int policy = -1;
    sched_param parameters{};
    std::thread([&] {
        SetThreadSchedulerPolicy(0);
        ::pthread_getschedparam(::pthread_self(), &policy, &parameters);
    }).join();
    if (policy == SCHED_RR) {
        EXPECT_EQ(parameters.sched_priority, ::sched_get_priority_max(SCHED_RR) - 1);
        EXPECT_TRUE(capture.Lines().empty());
    } else {
        EXPECT_TRUE(capture.Has(LogLevel::Verbose, "Failed to set thread scheduler to RR "));
    }
}

__attribute__((noinline)) std::string TraceOf(int skip, int frames) {
    std::string trace = GetStackTrace(skip, frames);
    return trace;  // not a tail call: this frame has to be on the stack
}

TEST(ThreadUtilsTest, StackTracesLeaveOutTheirOwnAndTheSkippedFrames) {
    auto const lines = [](std::string const& text) { return std::count(text.begin(), text.end(), '\n'); };
    std::string const whole = TraceOf(0, 64);
    EXPECT_GT(lines(whole), 2);
    EXPECT_EQ(lines(TraceOf(1, 64)), lines(whole) - 1);
    EXPECT_EQ(lines(TraceOf(0, 3)), 2);
    EXPECT_EQ(TraceOf(64, 64), "");
    EXPECT_EQ(TraceOf(0, 0), "");
}

TEST(ThreadUtilsTest, ThreadsStartedUnderBlockedSignalsNeverSeeThem) {
    auto const blocked = [](int signal) {
        sigset_t mask;
        ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return ::sigismember(&mask, signal) == 1;
    };
    std::thread thread;
    {
        BlockedSignals const guard;
        thread = std::thread([&] { EXPECT_TRUE(blocked(SIGTERM) && blocked(SIGPROF) && blocked(SIGCHLD)); });
    }
    EXPECT_FALSE(blocked(SIGTERM) || blocked(SIGPROF));
    thread.join();
}

}  // namespace
