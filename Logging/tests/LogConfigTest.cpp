#include "Logging/LogConfig.h"

#include "MakeRecord.h"
#include "TestSupport/Test.h"

namespace {

/// Counts its records.
class CountingHandler : public LogHandler {
public:
    CountingHandler(LogConfig& config, LogTarget target) : LogHandler(config, target) {}
    void Log(LogRecord const&) override { ++m_records; }
    std::atomic<int> m_records = 0;
};

TEST(LogConfigTest, KeepsHandlersInOrderAndOnceAndResetsToTheTwoOfTheConsole) {
    LogConfig config(false);
    auto* const file = new CountingHandler(config, LogTarget::File);
    auto const second = std::make_unique<CountingHandler>(config, LogTarget::File);
    EXPECT_TRUE(config.AddLogHandler(file) && config.AddLogHandler(second.get()));
    EXPECT_FALSE(config.AddLogHandler(file) || config.AddLogHandler(nullptr));
    EXPECT_EQ(config.FindFileLogHandler(), file);
    EXPECT_THAT(config.GetLogHandlers(), ElementsAre(file, second.get()));
    EXPECT_TRUE(config.RemoveLogHandler(second.get()));
    EXPECT_FALSE(config.RemoveLogHandler(second.get()) || config.RemoveLogHandler(nullptr));
    config.Dispatch(MakeRecord(LogLevel::Info));
    EXPECT_TRUE(file->m_records == 1 && second->m_records == 0);

    config.SetLevel(LogLevel::Trace);
    config.SetLogCallback([](LogRecord const&) { return false; });
    config.Reset(true);
    EXPECT_EQ(config.SetLevel(LogLevel::Error), LogLevel::Info);
    EXPECT_FALSE(config.SetLogCallback({}));
    ASSERT_EQ(config.GetLogHandlers().size(), 2U);
    EXPECT_EQ(config.GetLogHandlers()[0]->GetTarget(), LogTarget::Stdout);
    EXPECT_EQ(config.GetLogHandlers()[1]->GetTarget(), LogTarget::Stderr);
    EXPECT_TRUE(IsLogged(LogLevel::Info)) << "a private configuration has a level of its own";
}

TEST(LogConfigTest, TheRedirectorPrintsEveryRecordOnStandardErrorOnly) {
    LogConfig config(false);
    auto* const handler = new CountingHandler(config, LogTarget::File);
    config.AddLogHandler(handler);
    int seen = 0;
    config.SetLogCallback([&seen](LogRecord const&) { return ++seen > 0; });
    testing::internal::CaptureStderr();
    {
        LogToStderrRedirector const redirector(config);
        config.Dispatch(MakeRecord(LogLevel::Info, "first"));
        config.Dispatch(MakeRecord(LogLevel::Error, "second"));
    }
    config.Dispatch(MakeRecord(LogLevel::Error, "third"));
    EXPECT_EQ(config.EnsureLogHandler<LogHandler>(static_cast<LogTarget>(7)), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "I [Run] first\nE [Channel.cpp:120] second\nUnknown log target 7\n");
    EXPECT_TRUE(handler->m_records == 1 && seen == 1);
}

TEST(LogConfigTest, ThreadsLogWhileHandlersComeAndGo) {
    LogConfig config(false);
    std::atomic<int> seen = 0;
    auto const counting = [&seen](LogRecord const&) { return ++seen > 0; };
    config.SetLogCallback(counting);
    std::vector<std::jthread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&config] {
            for (int line = 0; line < 500; ++line) {
                config.Dispatch(MakeRecord(LogLevel::Info, ""));
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        config.AddLogHandler(new CountingHandler(config, LogTarget::File));
        config.Reset(false);
        config.SetLogCallback(counting);
    }
    threads.clear();
    EXPECT_GT(seen, 0);
}

TEST(LogConfigDeathTest, AProcessExitsWhileOtherThreadsStillLog) {
    auto const leave = [] {
        for (int i = 0; i < 3; ++i) {
            std::thread([] {
                for (;;) {
                    LOG_V("busy");
                    LOG_I("%s", "busy");
                }
            }).detach();
        }
        testing::internal::CaptureStdout();
        LOG_I("leaving");
        std::exit(3);
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(3), "");
}

TEST(LogConfigDeathTest, AReaderThatGoesAwayMutesTheConsoleAndDoesNotKillTheProcess) {
    auto const write = [] {
        int ends[2];
        if (::pipe(ends) != 0) {
            std::_Exit(1);
        }
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[0]);
        ::close(ends[1]);
        for (int i = 0; i < 3; ++i) {
            LOG_I("nobody reads this");
        }
        LOG_E("still here");
        std::_Exit(5);
    };
    EXPECT_EXIT(write(), testing::ExitedWithCode(5), "still here");
}

}  // namespace
