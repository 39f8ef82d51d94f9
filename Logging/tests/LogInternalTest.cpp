
#include <climits>

#include "Logging/Log.h"
#include "Logging/LogConfig.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"

namespace {

using vq::test::LogCapture;

class FlushReportingHandler : public LogHandler {
public:
    explicit FlushReportingHandler(LogConfig& config) : LogHandler(config, LogTarget::File) {}
    ~FlushReportingHandler() override {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));  // a slow disk
        std::fputs("handler flushed\n", stderr);
    }
    void Log(LogRecord const& record) override {
        std::fprintf(stderr, "handler got %s\n", record.message.c_str());
    }
};

TEST(LogInternalTest, FormatsAsTheLibraryDoesAtAnyLength) {
    LogCapture const capture;
    char expected[16384];
#define EXPECT_SAME(...)                                   \
    std::snprintf(expected, sizeof expected, __VA_ARGS__); \
    LOG_I(__VA_ARGS__);                                    \
    EXPECT_EQ(capture.Records().back().message, expected)
    EXPECT_SAME("%d %i %u %x %c%%%s", INT_MIN, 7, UINT_MAX, 0xbeefU, 'c', "text");
    EXPECT_SAME("%ld %lu %lx|%lld %llu %llx", LONG_MIN, ULONG_MAX, 255UL, LLONG_MAX, ULLONG_MAX, 10ULL);
    EXPECT_SAME("%zu %zd %zx", SIZE_MAX, static_cast<ssize_t>(-1), std::size_t{16});
    EXPECT_SAME("%s then %5d|%-4s|%.2f|%hhd|%p|%lc", "quick", 3, "x", 2.5, static_cast<signed char>(7),
                static_cast<void*>(&expected), L'w');
    for (std::size_t const size : {4094U, 4095U, 4096U, 4097U, 10000U}) {  // around the thread's buffer
        EXPECT_SAME("%s%d", std::string(size - 1, 'x').c_str(), 7);
        EXPECT_SAME("%s%3d", std::string(size - 3, 'x').c_str(), 7);
    }
#undef EXPECT_SAME
}

TEST(LogInternalTest, PassesASingleTextThroughUnformatted) {
    LogCapture const capture;
    char const* volatile const none = nullptr;  // volatile: the compiler would warn of it
    LogInternal(false, "", nullptr, 3, nullptr, LogLevel::Info, "%s", none);
    VQ_LOG_STREAM(LogLevel::Info) << "100%s" << ' ' << std::string("%n") << 5;
    EXPECT_THAT(capture.Lines(), ElementsAre("I (null)", "I 100%s %n5"));
    LogRecord const first = capture.Records().front();
    EXPECT_EQ(first.tag, nullptr);
    EXPECT_STREQ(first.file, "");
    EXPECT_STREQ(first.function, "");
}

TEST(LogInternalTest, StatementsBelowTheLevelEvaluateNothing) {
    LogCapture const capture(LogLevel::Warning);
    int evaluated = 0;
    LOG_I("%d", ++evaluated);
    VQ_LOG_STREAM(LogLevel::Verbose) << ++evaluated;
    LOG_W("%d", ++evaluated);
    EXPECT_THAT(capture.Lines(), ElementsAre("W 1"));
}

TEST(LogInternalDeathTest, AFatalRecordFlushesTheHandlersAndAbortsWhateverTheCallbackSays) {
    auto const die = [] {
        LogConfig::Instance().AddLogHandler(new FlushReportingHandler(LogConfig::Instance()));
        LogConfig::Instance().SetLogCallback([](LogRecord const&) { return false; });
        std::jthread const another([] { LOG_F("the end"); });  // whose abort must not cut the flush short
        LOG_F("the end");
    };
    EXPECT_EXIT(die(), testing::KilledBySignal(SIGABRT), "^handler flushed\n$");
}

TEST(LogInternalDeathTest, AFailedCheckSaysItsConditionAndAborts) {
    EXPECT_EXIT(VQ_CHECK(1 + 1 == 3), testing::KilledBySignal(SIGABRT),
                "F \\[LogInternalTest.cpp:[0-9]+\\] \\*\\*\\*\\* CHECK FAILED \\(aborting\\) \\*\\*\\*\\* 1 "
                "\\+ 1 == 3\n");
}

TEST(LogInternalTest, ANullFormatAndANegativeLevelSilenceAFatalStatement) {
    LogCapture const capture(static_cast<LogLevel>(-1));
    LogInternal(false, nullptr, __FILE__, __LINE__, __func__, LogLevel::Fatal, nullptr);
    LOG_F("unheard");
    EXPECT_THAT(capture.Lines(), IsEmpty());
}

}  // namespace
