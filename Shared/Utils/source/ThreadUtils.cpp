#include "Utils/ThreadUtils.h"

#include <execinfo.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Logging/Log.h"
#include "Utils/OSUtils.h"

namespace {

constexpr std::size_t kNameLength = 15;
constexpr int kMaxFrames = 256;

constinit thread_local char t_ThreadName[kNameLength + 1] = "";

/// Keeps up to 15 characters as the calling thread's name.
void KeepThreadName(std::string_view name) {
    std::size_t const length = name.copy(t_ThreadName, kNameLength);
    t_ThreadName[length] = '\0';
}

/// The name that the system gives to a thread which nobody has named: the program's.
std::string_view GetInheritedThreadName() {
    // Destroyed trivially: threads ask while the process ends, and for each line of a log, without the heap.
    struct Name {
        Name() : length(GetExecutableName().copy(text, kNameLength)) {}
        char text[kNameLength];
        std::size_t length;
    };
    static Name const name;
    return {name.text, name.length};
}

struct FreedFrames {
    void operator()(char** frames) const { std::free(frames); }
};

}  // namespace

std::string_view GetGivenThreadName() {
    return t_ThreadName;
}

std::string GetThreadName() {
    if (*t_ThreadName != '\0') {
        return t_ThreadName;
    }
    char name[kNameLength + 1] = "";
    if (::pthread_getname_np(::pthread_self(), name, sizeof name) == 0 && *name != '\0' &&
        GetInheritedThreadName() != name) {
        KeepThreadName(name);
        return name;
    }
    // Nobody named this thread: it carries the program's name.
    char number[32];
    std::snprintf(number, sizeof number, "%llu", static_cast<unsigned long long>(::gettid()));
    return number;
}

void SetThreadName(std::string_view name) {
    std::string const kept(name.substr(0, kNameLength));
    int const error = ::pthread_setname_np(::pthread_self(), kept.c_str());
    if (error != 0) {
        LOG_E("Failed to set thread name: %s", GetOSErrorText(error).c_str());
        return;
    }
    KeepThreadName(kept);
}

void SetThreadSchedulerPolicy(int policy) {
    // Verbose only: an ordinary user may not do this, and every device start tries.
    if (policy != 0) {
        LOG_V("Policy(%d) is not set to RR", policy);
        return;
    }
    sched_param parameters{};
    parameters.sched_priority = ::sched_get_priority_max(SCHED_RR) - 1;
    int const error = ::pthread_setschedparam(::pthread_self(), SCHED_RR, &parameters);
    if (error != 0) {
        LOG_V("Failed to set thread scheduler to RR %s", GetOSErrorText(error).c_str());
    }
}

void UseDefaultScheduling() {
    if (HasRealTimeScheduling()) {
        sched_param const parameters{};
        ::pthread_setschedparam(::pthread_self(), SCHED_OTHER, &parameters);
    }
}

bool HasRealTimeScheduling() {
    int policy = SCHED_OTHER;
    sched_param parameters{};
    return ::pthread_getschedparam(::pthread_self(), &policy, &parameters) == 0 &&
           (policy == SCHED_RR || policy == SCHED_FIFO);
}

__attribute__((noinline)) std::string GetStackTrace(int skip, int maxFrames) {
    std::array<void*, kMaxFrames> frames{};
    int const count = ::backtrace(frames.data(), std::clamp(maxFrames, 0, kMaxFrames));
    std::unique_ptr<char*, FreedFrames> const symbols(::backtrace_symbols(frames.data(), count));
    if (!symbols) {
        return "??? error";
    }
    std::string trace;
    for (int i = std::clamp(skip, 0, kMaxFrames) + 1; i < count; ++i) {
        trace += symbols.get()[i];
        trace += '\n';
    }
    return trace;
}

BlockedSignals::BlockedSignals() {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &m_previous);
}

BlockedSignals::~BlockedSignals() {
    ::pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}
