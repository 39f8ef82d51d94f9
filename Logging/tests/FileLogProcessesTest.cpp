// Several processes on one file, and peers that stop or die.

#include <signal.h>

#include "FileLogFixture.h"
#include "TestSupport/ChildProcess.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"

namespace vq::test {

namespace {

constexpr std::chrono::minutes kLong{10};

std::string Writer() {
    return GetExecutableDirectory() + "file_log_writer";
}

class FileLogProcessesTest : public FileLogTest {
public:
    struct Tally {
        std::map<std::string, std::vector<int>> lines;  // numbers of each writer, in the order of the files
        std::size_t banners = 0;
        std::size_t torn = 0;
        std::size_t files = 0;
    };

    static std::string NameOf(int writer) { return std::string(1, static_cast<char>('a' + writer)); }

    std::unique_ptr<ChildProcess> StartWriter(std::string const& name, int lines, int maxSize) const {
        return std::make_unique<ChildProcess>(
            Lines{Writer(), "write", path, name, std::to_string(lines), std::to_string(maxSize)});
    }

    /// A process that has taken the locks of some files and does not run any more.
    static std::unique_ptr<ChildProcess> StartStoppedHolder(std::vector<std::string> const& files) {
        std::vector<std::string> arguments = {Writer(), "hold"};
        arguments.insert(arguments.end(), files.begin(), files.end());
        auto holder = std::make_unique<ChildProcess>(arguments);
        EXPECT_TRUE(holder->ReadLineWith("held", kLong));
        holder->Signal(SIGSTOP);
        std::string const status = "/proc/" + std::to_string(holder->Pid()) + "/stat";
        while (ReadFile(status).find(") T ") == std::string::npos) {
            std::this_thread::yield();
        }
        return holder;
    }

    Tally Count() {
        Tally tally;
        for (std::string const& name : Names()) {
            ++tally.files;
            for (std::string const& message : Messages(directory + name)) {
                std::size_t const blank = message.find(' ');
                if (message == "***") {
                    ++tally.banners;
                } else if (blank == std::string::npos || message.starts_with("torn")) {
                    ++tally.torn;
                } else {
                    tally.lines[message.substr(0, blank)].push_back(std::atoi(message.c_str() + blank));
                }
            }
        }
        return tally;
    }

    /// Every number from 0 on, once.
    static void ExpectAll(std::vector<int> numbers, int count) {
        std::sort(numbers.begin(), numbers.end());
        ASSERT_EQ(numbers.size(), static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ(numbers[static_cast<std::size_t>(i)], i);
        }
    }
};

TEST_F(FileLogProcessesTest, SixProcessesLoseTearAndDoubleNoLineWhileTheLogRotates) {
    constexpr int kWriters = 6;
    // The full figure is 100000; a rotation copies the whole log, so the limit grows with it.
    char const* const wanted = std::getenv("VQ_FILE_LOG_LINES");
    int const lines = wanted != nullptr ? std::atoi(wanted) : 20000;
    std::vector<std::unique_ptr<ChildProcess>> writers;
    for (int i = 0; i < kWriters; ++i) {
        writers.push_back(StartWriter(NameOf(i), lines, lines * kWriters * 70 / 40));
    }
    for (auto const& writer : writers) {
        EXPECT_EQ(writer->WaitForExit(kLong), 0);
        EXPECT_EQ(writer->Output(), "done\n");
    }
    Tally tally = Count();
    EXPECT_EQ(tally.torn, 0U);
    EXPECT_EQ(tally.banners, std::size_t{kWriters});
    EXPECT_GT(tally.files, 12U);
    EXPECT_EQ(tally.files, handler->GetLogsAtLocation().size());
    for (int i = 0; i < kWriters; ++i) {
        ExpectAll(tally.lines[NameOf(i)], lines);
    }
}

TEST_F(FileLogProcessesTest, WritersThatDieWhileTheyHoldTheLocksCostTheOthersNothing) {
    constexpr int kLines = 60000;
    auto const survivor = StartWriter("survivor", kLines, 200000);
    int killed = 0;
    while (!survivor->WaitForExit(std::chrono::milliseconds(1))) {
        auto const victim = StartWriter("victim", 1000000, 200000);
        auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(5 + 7 * killed % 40);
        while (std::chrono::steady_clock::now() < end &&
               !survivor->WaitForExit(std::chrono::milliseconds(1))) {
        }
        victim->Signal(SIGKILL);
        EXPECT_EQ(victim->WaitForExit(kLong), 128 + SIGKILL);
        ++killed;
    }
    EXPECT_THAT(survivor->Output(), EndsWith("done\n"));  // on a slow machine the names run out
    handler->Log(LogRecord());  // to open the log is to finish what the last one may have left half done
    Tally tally = Count();
    EXPECT_LE(tally.torn, static_cast<std::size_t>(killed)) << "a victim may leave its last line unfinished";
    ExpectAll(tally.lines["survivor"], kLines);
}

TEST_F(FileLogProcessesTest, AStoppedPeerThatHoldsTheLocksCostsNoLine) {
    LogCapture capture;
    Log("before");
    handler->Flush();
    auto const peer = StartStoppedHolder({path, directory + ".app.lock"});
    capture.Clear();
    auto const start = std::chrono::steady_clock::now();
    Log("during");
    EXPECT_THAT(Messages(), ElementsAre("***", "before", "during"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(12));
    EXPECT_THAT(capture.Lines(), ElementsAre("E waiting for log rotation on " + path,
                                             "E log stream " + path + " is stuck, writing anyway"));

    // Who opens a log that is held does not wait for long: it falls back to another beside it.
    peer->Signal(SIGKILL);
    ASSERT_TRUE(peer->WaitForExit(kLong));
    auto const next = StartStoppedHolder({path});
    capture.Clear();
    FileLogHandler other(config);
    other.SetLocation(path);
    other.Log(MakeRecord("elsewhere"));
    other.Close();
    EXPECT_TRUE(capture.Has(
        LogLevel::Error, "*** failed to open log stream: " + path + " (Resource temporarily unavailable)"));
    EXPECT_THAT(Messages(directory + "logfile.log"), ElementsAre("***", "elsewhere"));
    next->Signal(SIGKILL);
    ASSERT_TRUE(next->WaitForExit(kLong));
    capture.Clear();
    Log("after");
    EXPECT_THAT(Messages(), ElementsAre("***", "before", "during", "after"));
    EXPECT_TRUE(capture.Lines().empty());
}

}  // namespace

}  // namespace vq::test
