// What a line into the log file costs, beside the same line in other libraries' files.

#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <thread>

#include "FileLogBases.h"
#include "Logging/FileLogHandler.h"
#include "Logging/Log.h"
#include "Logging/LogConfig.h"
#include "Twin.h"
#include "Utils/ThreadUtils.h"

namespace {

constexpr std::size_t kLines = 1000;
constexpr int kLinesOfThread = 5000;
constexpr int kLinesBetweenTrims = 1000000;
constexpr char const* device = "MockDevice";

// In memory, where no disk disturbs the figures. Private to this process, as its home is.
std::string const g_ours = "/dev/shm/ours.log";
std::string const g_base = "/dev/shm/base.log";

/// The process's log writes to a file and nowhere else while it lives.
class OnlyFile {
public:
    OnlyFile() {
        SetThreadName("first");
        LogConfig& config = LogConfig::Instance();
        config.Reset(false);
        config.SetLevel(LogLevel::Info);
        auto* const file = config.EnsureLogHandler<FileLogHandler>(LogTarget::File);
        file->SetLocation(g_ours);
        file->SetMaxFileSize(1UL << 40);
    }
    ~OnlyFile() {
        LogConfig::Instance().Reset(true);
        ::unlink(g_ours.c_str());
        ::unlink(g_base.c_str());
    }
    OnlyFile(OnlyFile const&) = delete;
    OnlyFile& operator=(OnlyFile const&) = delete;
};

/// Calls `write` with a number that differs from line to line, so that none is folded, and keeps the file
/// from filling the memory.
template <typename Write>
auto EachLine(std::string const& path, Write write) {
    return [&path, write, id = 0]() mutable {
        if (++id % kLinesBetweenTrims == 0) {
            static_cast<void>(!::truncate(path.c_str(), 0));
        }
        write(id);
    };
}

/// The same from two threads at once, many lines a call.
template <typename Write>
auto EachLineOfTwo(std::string const& path, Write write) {
    return [&path, write, calls = 0]() mutable {
        if (++calls % (kLinesBetweenTrims / kLinesOfThread / 2) == 0) {
            static_cast<void>(!::truncate(path.c_str(), 0));
        }
        std::thread other([&write] {
            SetThreadName("second");
            for (int i = 0; i < kLinesOfThread; ++i) {
                write(2 * i + 1);
            }
        });
        for (int i = 0; i < kLinesOfThread; ++i) {
            write(2 * i);
        }
        other.join();
    };
}

[[gnu::noinline]] void WriteOurs(int id) {
    LOG_I("Registered '%s' with id %d", device, id);
}

void StreamOurs(int id) {
    VQ_LOG_STREAM(LogLevel::Info) << "Registered '" << device << "' with id " << id;
}

void StreamByHand(int id) {
    if (IsLogged(LogLevel::Info)) {
        std::ostringstream text;
        text << "Registered '" << device << "' with id " << id;
        LogInternal(false, nullptr, __FILE__, __LINE__, __func__, LogLevel::Info, "%s", text.str().c_str());
    }
}

void Streamed(benchmark::State& state) {
    OnlyFile const file;
    bench::RunTwin(state, kLines, EachLine(g_ours, StreamByHand), EachLine(g_ours, StreamOurs));
}

VQ_TWIN("log_streamed", Streamed);

#ifdef VQ_BENCH_SPDLOG
void FileLine(benchmark::State& state) {
    OnlyFile const file;
    auto const base = bench::OpenSpdlog(g_base);
    bench::RunTwin(state, kLines, EachLine(g_base, [&base](int id) { base->WriteLine(device, id); }),
                   EachLine(g_ours, WriteOurs));
}

void FileLineQuiet(benchmark::State& state) {
    OnlyFile const file;
    auto const base = bench::OpenSpdlog(g_base);
    bench::RunQuiet(state, kLines, EachLine(g_base, [&base](int id) { base->WriteLine(device, id); }));
}

void FileLineTwoThreads(benchmark::State& state) {
    OnlyFile const file;
    auto const base = bench::OpenSpdlog(g_base);
    bench::RunTwin(state, 1, EachLineOfTwo(g_base, [&base](int id) { base->WriteLine(device, id); }),
                   EachLineOfTwo(g_ours, WriteOurs));
}

VQ_TWIN("log_file_line", FileLine);
VQ_TWIN("log_file_line_quiet", FileLineQuiet);
VQ_TWIN("log_file_two_threads", FileLineTwoThreads);
#endif

#ifdef VQ_BENCH_GLOG
void FileLineGlog(benchmark::State& state) {
    OnlyFile const file;
    static auto const base = bench::OpenGlog(g_base);
    bench::RunTwin(state, kLines, EachLine(g_base, [](int id) { base->WriteLine(device, id); }),
                   EachLine(g_ours, WriteOurs));
}

VQ_TWIN("log_file_line_glog", FileLineGlog);
#endif

}  // namespace
