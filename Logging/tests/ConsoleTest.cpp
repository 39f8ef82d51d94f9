// What a record looks like on the console.

#include "MakeRecord.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"

namespace {

struct Output {
    std::string standardOutput;
    std::string standardError;
};

Output Print(LogConfig& config, LogRecord const& record) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    config.Dispatch(record);
    return {testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

TEST(ConsoleTest, NamesTheCallByWhatTellsMost) {
    LogRecord record;
    record.line = 7;
    for (auto const& [function, file, location] : Rows<3>("Console", "locations")) {
        record.function = function == kNone ? nullptr : function.c_str();
        record.file = file == kNone ? nullptr : file.c_str();
        EXPECT_EQ(LogHandler::GetShortLocation(record, 16), location);
    }
}

TEST(ConsoleTest, FormatsMediumAndLongLocations) {
    LogRecord record = MakeRecord(LogLevel::Error, "", "Send");
    std::string text;
    LogHandler::FormatMediumLocation(text, record);
    LogHandler::FormatLongLocation(text, record);
    record.file = nullptr;
    LogHandler::FormatMediumLocation(text, record);
    LogHandler::FormatLongLocation(text, record);
    record.function = nullptr;
    LogHandler::FormatMediumLocation(text, record);
    EXPECT_EQ(text, "[Channel.cpp:120] [Channel.cpp:120 Send] [Send] [:120 Send] [???] ");
}

TEST(ConsoleTest, SendsEachLevelToItsStream) {
    LogConfig config(true);
    for (auto const& [level, plain, output, error] : Rows<4>("Console", "streams")) {
        LogRecord record = MakeRecord(static_cast<LogLevel>(std::stoi(level)), "hello", "Channel::Send");
        record.plain = plain == "true";
        Output const printed = Print(config, record);
        EXPECT_EQ(printed.standardOutput, output);
        EXPECT_EQ(printed.standardError, error);
    }
}

TEST(ConsoleTest, PrintsTagAndProcessWhenTheGlobalLevelIsVerbose) {
    LogConfig config(true);
    LogRecord record = MakeRecord(LogLevel::Info);
    record.tag = "tag";
    EXPECT_EQ(Print(config, record).standardOutput, "tag I [Run] hello\n");
    LogLevel const before = LogConfig::Instance().SetLevel(LogLevel::Verbose);
    EXPECT_EQ(Print(config, record).standardOutput, "tag " + std::to_string(::getpid()) + " I [Run] hello\n");
    LogConfig::Instance().SetLevel(before);
}

TEST(ConsoleTest, ColoursEachPartAndResetsBehindTheLineFeed) {
    LogConfig config(true);
    for (LogHandler* handler : config.GetLogHandlers()) {
        handler->SetUsesColor(true);
    }
    for (auto const& [level, begin] : {std::pair{LogLevel::Info, "I [Run] \033[m\033[m"},
                                       {LogLevel::Verbose, "V [Run] \033[m\033[1;34m"},
                                       {LogLevel::Trace, "T [Run] \033[m\033[2;30m"},
                                       {LogLevel::Warning, "W [Run] \033[m\033[1;33m"}}) {
        Output const printed = Print(config, MakeRecord(level));
        EXPECT_EQ(printed.standardOutput + printed.standardError,
                  "\033[35m" + std::string(begin) + "hello\n\033[m");
    }
    LogRecord plain = MakeRecord(LogLevel::Error);
    plain.plain = true;
    EXPECT_EQ(Print(config, plain).standardError, "\033[1;31merror: hello\n\033[m");
    for (LogHandler* handler : config.GetLogHandlers()) {
        handler->SetSilenced(true);
    }
    EXPECT_EQ(Print(config, MakeRecord(LogLevel::Error)).standardError, "");
    EXPECT_NE(Print(config, plain).standardError, "") << "a silenced console still prints plain records";
}

TEST(ConsoleTest, TakesColourFromTheEnvironment) {
    for (auto const& [value, color] : {std::pair{"0", false},
                                       {"off", false},
                                       {"no", false},
                                       {"false", false},
                                       {"", true},
                                       {"OFF", true},
                                       {"1", true},
                                       {static_cast<char const*>(nullptr), false}}) {
        value != nullptr ? ::setenv("VQLOG_COLOR", value, 1) : ::unsetenv("VQLOG_COLOR");
        testing::internal::CaptureStdout();  // not a terminal
        LogConfig const config(true);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(config.FindLogHandler(LogTarget::Stdout)->UsesColor(), color);
    }
}

TEST(ConsoleTest, FormatsLocalTimeWithMilliseconds) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    LogTimePoint const time{std::chrono::microseconds(1'600'000'000'007'999)};
    std::ostringstream text;
    LogHandler::FormatTime(text, time, false);
    LogHandler::FormatTime(text << " ", time, true);
    EXPECT_EQ(text.str(), "122640.007 Sun Sep 13 12:26:40 2020");
}

}  // namespace
