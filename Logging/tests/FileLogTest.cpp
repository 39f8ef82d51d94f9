// What goes into a log file, and when.

#include "FileLogFixture.h"

#include <sys/mount.h>

#include "Utils/OSUtils.h"
#include "Utils/ThreadUtils.h"

namespace vq::test {

namespace {

TEST_F(FileLogTest, WritesABannerAndLinesByteByByte) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    LogRecord record = MakeRecord("channel opened");
    std::ostringstream time;
    LogHandler::FormatTime(time, record.time, false);
    LogHandler::FormatTime(time << " ", record.time, true);
    EXPECT_EQ(time.str(), "122640.007 Sun Sep 13 12:26:40 2020");
    record.tag = "tag ";
    std::string const start = "122640.007 <" + GetExecutableName() + "~worker> ";
    SetThreadName("worker");
    handler->Log(record);
    record.tag = nullptr;
    record.file = nullptr;
    record.level = LogLevel::Error;
    handler->Log(record);
    handler->SetUsesColor(true);
    record.tag = "tag";
    record.level = LogLevel::Warning;
    handler->Log(record);
    record.message.assign(5000, 'x');
    handler->SetUsesColor(false);
    handler->Log(record);
    handler->Close();
    Lines const lines = SplitLines(ReadFile(path), false);
    EXPECT_THAT(lines, ElementsAre(StartsWith("*** " + GetExecutableName() + " pid " +
                                              std::to_string(::getpid()) + " started logging at "),
                                   start + "tag I [Channel.cpp:120] channel opened",
                                   start + "E [Send] channel opened",
                                   "\033[2m" + start + "\033[35mtagW [Send] \033[1;33mchannel opened\033[m",
                                   start + "tagW [Send] " + std::string(5000, 'x')));
}

TEST_F(FileLogTest, FoldsRepeatsIntoOneLineWithACount) {
    for (int i = 0; i < 5; ++i) {
        Log("lost");
    }
    Log("found");  // ends the run, and cannot begin one
    Log("found");
    Log("found");
    EXPECT_THAT(Messages(), ElementsAre("***", "lost", "lost (repeated 4 times)", "found", "found",
                                        "found (repeated 1 time)"));
    handler->SetBuffered(false);
    Log("lost");
    Log("lost");
    EXPECT_THAT(Messages(), AllOf(testing::SizeIs(8), Contains("lost").Times(3)));
}

TEST_F(FileLogTest, WritesWhenTheBufferIsFullOrOld) {
    handler->Log(LogRecord());
    EXPECT_THAT(ReadFile(path), StartsWith("*** ")) << "an empty record opens the file";
    std::size_t const banner = ReadFile(path).size();
    int lines = 0;
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (ReadFile(path).size() == banner && std::chrono::steady_clock::now() < end) {
        Log("line " + std::to_string(++lines));
    }
    EXPECT_GT(ReadFile(path).size(), banner);
    EXPECT_THAT(ReadFile(path), EndsWith("line " + std::to_string(lines) + "\n"));
    Log(std::string(65536, 'x'));
    EXPECT_THAT(ReadFile(path), EndsWith("xxx\n"));
}

TEST_F(FileLogTest, OpensAFallbackOrTellsThatItCannot) {
    LogCapture capture(LogLevel::Info);
    std::filesystem::create_directory(path);
    Log("to the fallback");
    EXPECT_EQ(handler->GetLocation(), directory + "logfile.log");
    EXPECT_THAT(Messages(directory + "logfile.log"), ElementsAre("***", "to the fallback"));
    EXPECT_THAT(capture.Lines(), ElementsAre("E *** failed to open log stream: " + path + " (Is a directory)",
                                             "I Logging to " + directory + "logfile.log"));

    std::string const missing = directory + "missing/";
    handler->SetLocation(missing + "app.log");
    capture.Clear();
    Log("nowhere");
    EXPECT_TRUE(capture.Has(LogLevel::Error, "*** failed to open log stream: " + missing +
                                                 "app.log (No such file or directory)"));
    EXPECT_TRUE(capture.Has(LogLevel::Error, "failed to open fallback " + missing + "logfile.log (No such"));
    EXPECT_EQ(handler->GetLocation(), "");
    std::filesystem::create_directory(missing);
    Log("back");
    EXPECT_THAT(Messages(missing + "logfile.log"), ElementsAre("***", "back"));
}

TEST_F(FileLogTest, FollowsItsPathWhenTheFileIsRemovedOrReplaced) {
    LogCapture const capture;
    Log("one");
    handler->Flush();
    std::filesystem::remove(path);
    Log("two");
    EXPECT_THAT(Messages(), ElementsAre("***", "two"));
    std::filesystem::rename(path, directory + "moved.log");
    Log("three");
    EXPECT_THAT(Messages(directory + "moved.log"), ElementsAre("***", "two", "three"))
        << "nothing took its place";
    std::ofstream(path).flush();
    Log("four");
    EXPECT_THAT(Messages(), ElementsAre("***", "four"));

    std::filesystem::remove_all(directory);
    Log("five");
    handler->Flush();
    EXPECT_TRUE(capture.Has(LogLevel::Error, "failed to open fallback"));
    std::filesystem::create_directory(directory);
    Log("six");
    EXPECT_THAT(Messages(directory + "logfile.log"), ElementsAre("***", "five", "six"));
}

TEST_F(FileLogTest, AFullDiskCostsLinesButTearsNoneAndStopsNothing) {
    if (::mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "may not mount a file system";
    }
    LogCapture capture(LogLevel::Info);
    handler->SetBuffered(false);
    for (int i = 0; i < 300; ++i) {
        Log("line " + std::to_string(i) + std::string(1000, 'x'));
    }
    EXPECT_EQ(capture.Count(LogLevel::Error, "failed to write log " + path + " (No space left on device)"),
              1U);
    handler->SetMaxFileSize(20000);
    EXPECT_TRUE(capture.Has(LogLevel::Error, "Log file backup to " + directory + "app"));
    EXPECT_THAT(Names(), ElementsAre("app.log")) << "what cannot be copied stays";
    std::vector<std::string> const messages = Messages();
    EXPECT_GT(messages.size(), 40U);
    EXPECT_THAT(messages, testing::Each(testing::AnyOf("***", EndsWith("xxx"))));

    handler->SetMaxFileSize(1 << 20);
    ASSERT_EQ(::truncate(path.c_str(), 0), 0);
    Log("room again");
    EXPECT_THAT(Messages(), ElementsAre("room again"));
    handler->Close();
    ::umount(directory.c_str());
}

TEST_F(FileLogTest, ThreadsWriteWholeLinesWhileItIsReconfigured) {
    constexpr int kThreads = 4;
    constexpr int kLines = 2000;
    std::vector<std::jthread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] {
            for (int line = 0; line < kLines; ++line) {
                Log(std::to_string(thread) + " " + std::to_string(line));
            }
        });
    }
    for (int i = 0; i < 30; ++i) {
        handler->Flush();
        handler->SetMaxFileSize(i % 2 == 0 ? 10000 : 1 << 20);
        handler->GetLogsAtLocation();
        handler->Close();
    }
    threads.clear();
    handler->Close();
    auto numbers = Count();
    numbers.erase("***");
    EXPECT_EQ(numbers.size(), std::size_t{kThreads});
    for (auto const& [thread, lines] : numbers) {
        EXPECT_TRUE(lines == AllBelow(kLines)) << thread;
    }
}

TEST_F(FileLogTest, IsFlushedAtTheEndThoughAnotherThreadHangsInTheConsole) {
    struct HangingHandler : LogHandler {
        explicit HangingHandler(LogConfig& owner) : LogHandler(owner, LogTarget::Stdout) {}
        void Log(LogRecord const&) override {
            entered.set_value();
            released.get_future().wait();
        }
        std::promise<void> entered;
        std::promise<void> released;
    };
    auto* const console = new HangingHandler(config);
    auto* const file = handler.release();
    config.AddLogHandler(console);
    std::jthread hanging([&] { config.Dispatch(MakeRecord("")); });
    console->entered.get_future().wait();
    file->Log(MakeRecord("one"));
    file->Flush();
    file->Log(MakeRecord("two"));
    config.AddLogHandler(file);
    config.Reset(false);
    EXPECT_THAT(ReadFile(path), EndsWith("two\n"));
    console->released.set_value();
    hanging.join();
    delete console;  // nobody else will
    handler.reset(file);
}

TEST_F(FileLogTest, ATestDriverChoosesTheDirectoryOfTheDefaultLog) {
    ::setenv("VDS_TEST_DIR", directory.c_str(), 1);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ConfigureFileLogging();
    ConfigureFileLogging();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Logging to " + directory + "/VDSTests.log\n");
    EXPECT_THAT(Messages(directory + "VDSTests.log"), ElementsAre("***"));
}

}  // namespace

}  // namespace vq::test
