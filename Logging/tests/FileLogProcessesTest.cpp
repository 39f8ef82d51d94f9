// Several processes on one file, and peers that stop or die.

#include <signal.h>
#include <sys/wait.h>

#include "FileLogFixture.h"
#include "TestSupport/ChildProcess.h"
#include "Utils/OSUtils.h"

namespace vq::test {

namespace {

constexpr std::chrono::minutes kLong{10};

class FileLogProcessesTest : public FileLogTest {
public:
    std::unique_ptr<ChildProcess> StartWriter(std::string const& name, int lines, int maxSize) const {
        return std::make_unique<ChildProcess>(Lines{GetExecutableDirectory() + "file_log_writer", path, name,
                                                    std::to_string(lines), std::to_string(maxSize)});
    }

    /// Holds the lock of a file: an open of its own excludes the handler as another process does.
    using Peer = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
    static Peer HoldLock(std::string const& file) {
        Peer peer(OpenSharedFile(file, "a+"), std::fclose);
        EXPECT_TRUE(LockFile(peer.get(), kLong));
        return peer;
    }
};

TEST_F(FileLogProcessesTest, SixProcessesLoseTearAndDoubleNoLineWhileTheLogRotates) {
    constexpr int kWriters = 6;
    // The full figure is 100000; a rotation copies the whole log, so the limit grows with it.
    char const* const wanted = std::getenv("VQ_FILE_LOG_LINES");
    int const lines = wanted != nullptr ? std::atoi(wanted) : 20000;
    std::vector<std::unique_ptr<ChildProcess>> writers;
    writers.reserve(kWriters);
    for (int i = 0; i < kWriters; ++i) {
        writers.push_back(StartWriter(std::to_string(i), lines, lines * kWriters * 70 / 40));
    }
    for (auto const& writer : writers) {
        EXPECT_EQ(writer->WaitForExit(kLong), 0);
        EXPECT_THAT(writer->Output(), EndsWith("done\n"));  // on a slow machine one falls back to another log
    }
    EXPECT_GT(Names().size(), 12U);
    auto numbers = Count();
    EXPECT_EQ(numbers["***"].size(), std::size_t{kWriters});
    EXPECT_EQ(numbers.size(), std::size_t{kWriters + 1}) << "torn lines";
    for (int i = 0; i < kWriters; ++i) {
        EXPECT_TRUE(numbers[std::to_string(i)] == AllBelow(lines)) << i;
    }
}

TEST_F(FileLogProcessesTest, WritersThatDieWhileTheyHoldTheLocksCostTheOthersNothing) {
    constexpr int kLines = 60000;
    auto const survivor = StartWriter("survivor", kLines, 200000);
    for (int killed = 0; !survivor->WaitForExit(std::chrono::milliseconds(1)); ++killed) {
        auto const victim = StartWriter("victim", 1000000, 200000);
        auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(5 + 7 * killed % 40);
        while (std::chrono::steady_clock::now() < end &&
               !survivor->WaitForExit(std::chrono::milliseconds(1))) {
        }
        victim->Signal(SIGKILL);
        EXPECT_EQ(victim->WaitForExit(kLong), 128 + SIGKILL);
    }
    EXPECT_THAT(survivor->Output(), EndsWith("done\n"));  // on a slow machine the names run out
    handler->Log(LogRecord());  // to open the log is to finish what the last one may have left half done
    auto numbers = Count();
    EXPECT_TRUE(numbers["survivor"] == AllBelow(kLines));
}

TEST_F(FileLogProcessesTest, AForkedChildLeavesToItsParentWhatThatHasLogged) {
    Log("parent");
    Log("parent");
    pid_t const child = ::fork();
    if (child == 0) {
        Log("child");
        handler->Close();
        ::_exit(0);
    }
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    EXPECT_THAT(Messages(),
                testing::UnorderedElementsAre("***", "parent", "parent (repeated 1 time)", "***", "child"));
}

TEST_F(FileLogProcessesTest, APeerThatKeepsTheLocksCostsNoLine) {
    LogCapture capture;
    Log("before");
    handler->Flush();
    Peer log = HoldLock(path);
    Peer rotation = HoldLock(directory + ".app.lock");
    capture.Clear();
    Log("during");
    // Of two flushes one waits for the peer, and the other no longer than it may.
    auto const flush = [this] {
        auto const start = std::chrono::steady_clock::now();
        handler->FlushWithin(1s);
        return std::chrono::steady_clock::now() - start;
    };
    auto other = std::async(std::launch::async, flush);
    auto const [quick, patient] = std::minmax({flush(), other.get()});
    EXPECT_LT(quick, 6s);
    EXPECT_GE(patient, 12s);
    EXPECT_THAT(Messages(), ElementsAre("***", "before", "during"));
    EXPECT_THAT(capture.Lines(), ElementsAre("E waiting for log rotation on " + path,
                                             "E log stream " + path + " is stuck, writing anyway"));

    // Who opens a log that is held does not wait for long: it falls back to another beside it.
    rotation.reset();
    capture.Clear();
    FileLogHandler another(config);
    another.SetLocation(path);
    another.Log(MakeRecord("elsewhere"));
    another.Close();
    EXPECT_TRUE(capture.Has(
        LogLevel::Error, "*** failed to open log stream: " + path + " (Resource temporarily unavailable)"));
    EXPECT_THAT(Messages(directory + "logfile.log"), ElementsAre("***", "elsewhere"));
    log.reset();
    capture.Clear();
    Log("after");
    EXPECT_THAT(Messages(), ElementsAre("***", "before", "during", "after"));
    EXPECT_TRUE(capture.Lines().empty());
}

}  // namespace

}  // namespace vq::test
