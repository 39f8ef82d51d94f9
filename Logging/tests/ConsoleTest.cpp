// What a record looks like on the console.

#include <gmock/gmock.h>
#include <stdlib.h>
#include <unistd.h>

#include <optional>
#include <sstream>
#include <string>

#include "Logging/LogConfig.h"

namespace {

LogRecord MakeRecord(LogLevel level, char const* function, std::string text = "hello") {
    LogRecord record;
    record.file = "/a/Channel.cpp";
    record.line = 120;
    record.function = function;
    record.level = level;
    record.toStderr = level < LogLevel::Info;
    record.message = std::move(text);
    return record;
}

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
    struct Case {
        char const* function;
        char const* file;
        char const* location;
    };
    Case const cases[] = {
        {"Foo::Bar::baz", "/a/b.cpp", "Bar"},
        {"Foo::baz", "/a/b.cpp", "Foo"},
        {"baz", "/a/b.cpp", "baz"},
        {"::baz", "/a/b.cpp", ""},
        {"::Foo::baz", "/a/b.cpp", "Foo"},
        {"Foo::operator()", "/a/b.cpp", "Foo"},
        {"AVeryLongClassNameIndeed::Run", "/a/b.cpp", "AVeryLongClassNa"},
        {"AVeryLongFunctionName", "/a/b.cpp", "AVeryLongFunctio"},
        {"TestBody", "/a/b.cpp", "b.cpp:7"},
        {"operator()", "/a/AVeryLongFileName.cpp", "AVeryLongFileNam:7"},
        {"<lambda()>", nullptr, "7"},
        {nullptr, "/a/b.cpp", ""},
    };
    for (Case const& c : cases) {
        LogRecord record;
        record.function = c.function;
        record.file = c.file;
        record.line = 7;
        EXPECT_EQ(LogHandler::GetShortLocation(record, 16), c.location) << (c.function ? c.function : "null");
    }
}

TEST(ConsoleTest, FormatsMediumAndLongLocations) {
    LogRecord record = MakeRecord(LogLevel::Error, "Send");
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
    struct Case {
        LogLevel level;
        bool plain;
        char const* output;
        char const* error;
    };
    Case const cases[] = {
        {LogLevel::Error, false, "", "E [Channel.cpp:120] hello\n"},
        {LogLevel::Warning, false, "", "W [Channel] hello\n"},
        {LogLevel::Info, false, "I [Channel] hello\n", ""},
        {LogLevel::Verbose, false, "V [Channel] hello\n", ""},
        {LogLevel::Trace, false, "T [Channel] hello\n", ""},
        {LogLevel::Error, true, "", "error: hello\n"},
        {LogLevel::Warning, true, "", "warning: hello\n"},
        {LogLevel::Info, true, "hello\n", ""},
    };
    for (Case const& c : cases) {
        LogRecord record = MakeRecord(c.level, "Channel::Send");
        record.plain = c.plain;
        Output const printed = Print(config, record);
        EXPECT_EQ(printed.standardOutput, c.output);
        EXPECT_EQ(printed.standardError, c.error);
    }
}

TEST(ConsoleTest, PrintsTagAndProcessWhenTheGlobalLevelIsVerbose) {
    LogConfig config(true);
    LogRecord record = MakeRecord(LogLevel::Info, "Run");
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
    EXPECT_EQ(Print(config, MakeRecord(LogLevel::Info, "Run")).standardOutput,
              "\033[35mI [Run] \033[m\033[mhello\n\033[m");
    EXPECT_EQ(Print(config, MakeRecord(LogLevel::Verbose, "Run")).standardOutput,
              "\033[35mV [Run] \033[m\033[1;34mhello\n\033[m");
    EXPECT_EQ(Print(config, MakeRecord(LogLevel::Trace, "Run")).standardOutput,
              "\033[35mT [Run] \033[m\033[2;30mhello\n\033[m");
    EXPECT_EQ(Print(config, MakeRecord(LogLevel::Warning, "Run")).standardError,
              "\033[35mW [Run] \033[m\033[1;33mhello\n\033[m");
    LogRecord plain = MakeRecord(LogLevel::Error, "Run");
    plain.plain = true;
    EXPECT_EQ(Print(config, plain).standardError, "\033[1;31merror: hello\n\033[m");
}

TEST(ConsoleTest, TakesColourFromTheEnvironment) {
    struct Case {
        std::optional<char const*> value;
        bool color;
    };
    Case const cases[] = {{"0", false}, {"off", false}, {"no", false}, {"false", false},
                          {"", true},   {"OFF", true},  {"1", true},   {std::nullopt, false}};
    for (Case const& c : cases) {
        if (c.value) {
            ::setenv("VQLOG_COLOR", *c.value, 1);
        } else {
            ::unsetenv("VQLOG_COLOR");
        }
        testing::internal::CaptureStdout();  // not a terminal
        LogConfig const config(true);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(config.FindLogHandler(LogTarget::Stdout)->UsesColor(), c.color)
            << c.value.value_or("unset");
    }
}

TEST(ConsoleTest, ASilencedConsoleStillPrintsPlainRecords) {
    LogConfig config(true);
    for (LogHandler* handler : config.GetLogHandlers()) {
        handler->SetSilenced(true);
    }
    LogRecord record = MakeRecord(LogLevel::Error, "Run");
    EXPECT_EQ(Print(config, record).standardError, "");
    record.plain = true;
    EXPECT_EQ(Print(config, record).standardError, "error: hello\n");
}

TEST(ConsoleTest, AnEmptyRecordPrintsNothingAndAnEmptyMessageALine) {
    LogConfig config(true);
    LogRecord empty;
    empty.level = LogLevel::Info;
    empty.file = "";
    EXPECT_EQ(Print(config, empty).standardOutput, "");
    EXPECT_EQ(Print(config, MakeRecord(LogLevel::Info, "Run", "")).standardOutput, "I [Run] \n");
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

TEST(ConsoleTest, NamesLevelsOutsideTheRange) {
    for (int level : {-1, 6}) {
        EXPECT_STREQ(LogHandler::ShortLevelName(static_cast<LogLevel>(level)), "?");
        EXPECT_STREQ(LogHandler::LongLevelName(static_cast<LogLevel>(level)), "???");
        EXPECT_EQ(LogHandler::GetLevelColor(static_cast<LogLevel>(level)), LogColor::Error);
    }
}

}  // namespace
