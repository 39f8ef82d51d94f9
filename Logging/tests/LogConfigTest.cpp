#include "Logging/LogConfig.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Counts its records.
class CountingHandler : public LogHandler {
public:
    CountingHandler(LogConfig& config, LogTarget target) : LogHandler(config, target) {}
    void Log(LogRecord const&) override { ++m_records; }
    std::atomic<int> m_records = 0;
};

LogRecord MakeRecord(LogLevel level, std::string text) {
    LogRecord record;
    record.file = "/src/Some.cpp";
    record.line = 12;
    record.function = "Run";
    record.level = level;
    record.toStderr = level < LogLevel::Info;
    record.message = std::move(text);
    return record;
}

TEST(LogConfigTest, KeepsHandlersInOrderAndOnce) {
    LogConfig config(false);
    auto* const file = new CountingHandler(config, LogTarget::File);
    auto* const console = new CountingHandler(config, LogTarget::Stdout);
    auto const second = std::make_unique<CountingHandler>(config, LogTarget::File);
    EXPECT_TRUE(config.AddLogHandler(file));
    EXPECT_TRUE(config.AddLogHandler(console));
    EXPECT_TRUE(config.AddLogHandler(second.get()));
    EXPECT_FALSE(config.AddLogHandler(file));
    EXPECT_FALSE(config.AddLogHandler(nullptr));
    EXPECT_EQ(config.FindFileLogHandler(), file);
    EXPECT_EQ(config.EnsureLogHandler<CountingHandler>(LogTarget::File), file);
    EXPECT_THAT(config.GetLogHandlers(), ElementsAre(file, console, second.get()));

    EXPECT_TRUE(config.RemoveLogHandler(second.get()));
    EXPECT_FALSE(config.RemoveLogHandler(second.get()));
    EXPECT_FALSE(config.RemoveLogHandler(nullptr));
    config.Dispatch(MakeRecord(LogLevel::Info, "one"));
    EXPECT_EQ(file->m_records, 1);
    EXPECT_EQ(second->m_records, 0);
}

TEST(LogConfigTest, ResetGoesBackToInfoWithTheTwoConsoleHandlers) {
    LogConfig config(false);
    EXPECT_THAT(config.GetLogHandlers(), IsEmpty());
    config.AddLogHandler(new CountingHandler(config, LogTarget::File));
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

TEST(LogConfigTest, RefusesAnUnknownTarget) {
    LogConfig config(false);
    testing::internal::CaptureStderr();
    EXPECT_EQ(LogFactory::CreateLogHandler(config, static_cast<LogTarget>(9)), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unknown log target 9\n");
}

TEST(LogConfigTest, HasNoFileLogWhereNoneIsLinkedIn) {
    LogConfig config(false);
    EXPECT_EQ(config.EnsureLogHandler<LogHandler>(LogTarget::File), nullptr);
}

TEST(LogConfigTest, TheRedirectorPrintsEveryRecordOnStandardErrorOnly) {
    LogConfig config(false);
    auto* const handler = new CountingHandler(config, LogTarget::File);
    config.AddLogHandler(handler);
    int seenBefore = 0;
    config.SetLogCallback([&seenBefore](LogRecord const&) {
        ++seenBefore;
        return true;
    });
    testing::internal::CaptureStderr();
    {
        LogToStderrRedirector const redirector(config);
        config.Dispatch(MakeRecord(LogLevel::Info, "first"));
        config.Dispatch(MakeRecord(LogLevel::Error, "second"));
    }
    config.Dispatch(MakeRecord(LogLevel::Error, "third"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "I [Run] first\nE [Some.cpp:12] second\n");
    EXPECT_EQ(handler->m_records, 1);
    EXPECT_EQ(seenBefore, 1);
}

TEST(LogConfigTest, RecordsRepeatByAddressOfTheStatement) {
    static char const sameText[] = "/src/Some.cpp";
    LogRecord const record = MakeRecord(LogLevel::Info, "text");
    LogRecord later = record;
    later.time += std::chrono::seconds(1);
    later.plain = true;
    EXPECT_TRUE(later.IsRepeatOf(record));
    later.file = sameText;
    EXPECT_FALSE(later.IsRepeatOf(record));
}

TEST(LogConfigTest, ThreadsLogWhileHandlersComeAndGo) {
    LogConfig config(false);
    std::atomic<int> seen = 0;
    config.SetLogCallback([&seen](LogRecord const&) {
        ++seen;
        return true;
    });
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
        config.SetLogCallback([&seen](LogRecord const&) {
            ++seen;
            return true;
        });
    }
    threads.clear();
    EXPECT_GT(seen, 0);
}

TEST(LogConfigTest, AHandlerIsNotDeletedWhileAThreadIsInIt) {
    class BusyHandler : public LogHandler {
    public:
        BusyHandler(LogConfig& config, std::atomic<bool>& entered, std::atomic<bool>& deletedInside)
            : LogHandler(config, LogTarget::File), m_entered(entered), m_deletedInside(deletedInside) {}
        ~BusyHandler() override { m_deletedInside = m_inside.load(); }
        void Log(LogRecord const&) override {
            m_inside = true;
            m_entered = true;
            while (!GetConfig().GetLogHandlers().empty()) {
                std::this_thread::yield();
            }
            // Taken out of the list: now it would be deleted, were it not waited for.
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            m_inside = false;
        }

    private:
        std::atomic<bool>& m_entered;
        std::atomic<bool>& m_deletedInside;
        std::atomic<bool> m_inside = false;
    };
    LogConfig config(false);
    std::atomic<bool> entered = false;
    std::atomic<bool> deletedInside = false;
    config.AddLogHandler(new BusyHandler(config, entered, deletedInside));
    std::jthread const thread([&config] { config.Dispatch(MakeRecord(LogLevel::Info, "")); });
    while (!entered) {
        std::this_thread::yield();
    }
    config.Reset(false);
    EXPECT_FALSE(deletedInside);
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
