// What a log statement costs, reported and not.

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "Logging/Log.h"
#include "Logging/LogConfig.h"
#include "Twin.h"

namespace {

/// Standard output goes to the null device while it lives.
class NullOutput {
public:
    NullOutput() : m_before(::dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        int const null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        m_open = null >= 0 && ::dup2(null, STDOUT_FILENO) >= 0;
        ::close(null);
    }
    ~NullOutput() {
        std::fflush(stdout);
        ::dup2(m_before, STDOUT_FILENO);
        ::close(m_before);
    }
    NullOutput(NullOutput const&) = delete;
    NullOutput& operator=(NullOutput const&) = delete;

    bool IsOpen() const { return m_open; }

private:
    int m_before;
    bool m_open = false;
};

constexpr std::size_t kStatements = 100000;
constexpr std::size_t kLines = 100;

constinit std::atomic<int> g_threshold{static_cast<int>(LogLevel::Info)};

/// Kept out of line and not inlined, as the log's own function is.
[[gnu::noinline, gnu::cold]] void PrintNumber(int number) {
    std::printf("number %d", number);
}

auto const looksAtTheLevel = [number = 7] {
    if (g_threshold.load(std::memory_order_relaxed) >= static_cast<int>(LogLevel::Verbose)) {
        PrintNumber(number);
    }
};

void BelowLevel(benchmark::State& state) {
    LogConfig::Instance().SetLevel(LogLevel::Info);
    bench::RunTwin(state, kStatements, looksAtTheLevel, [number = 7] { LOG_V("number %d", number); });
}

void BelowLevelQuiet(benchmark::State& state) {
    bench::RunQuiet(state, kStatements, looksAtTheLevel);
}

char const* const device = "MockDevice";

// Both print the same bytes but for the functions' names, which are equally long.
void PrintByHand() {
    char line[256];
    std::snprintf(line, sizeof line, "I [%s] Registered '%s' with id %d\n", __func__, device, 12);
    std::fputs(line, stdout);
    std::fflush(stdout);
}

void PrintByLogs() {
    LOG_I("Registered '%s' with id %d", device, 12);
}

void ConsoleLine(benchmark::State& state) {
    LogConfig::Instance().SetLevel(LogLevel::Info);
    NullOutput const output;
    if (!output.IsOpen()) {
        state.SkipWithError("no null device");
        return;
    }
    bench::RunTwin(state, kLines, PrintByHand, PrintByLogs);
}

void ConsoleLineQuiet(benchmark::State& state) {
    NullOutput const output;
    bench::RunQuiet(state, kLines, PrintByHand);
}

VQ_TWIN("log_below_level", BelowLevel);
VQ_TWIN("log_below_level_quiet", BelowLevelQuiet);
VQ_TWIN("log_console_line", ConsoleLine);
VQ_TWIN("log_console_line_quiet", ConsoleLineQuiet);

}  // namespace
