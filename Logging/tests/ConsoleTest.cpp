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
    for (auto const& [function, file, brief, medium, full] : Rows<5>("Console", "locations")) {
        record.function = function == kNone ? nullptr : function.c_str();
        record.file = file == kNone ? nullptr : file.c_str();
        EXPECT_EQ(LogHandler::GetShortLocation(record, 16), brief);
        std::string text;
        LogHandler::FormatMediumLocation(text, record);
        LogHandler::FormatLongLocation(text, record);
        EXPECT_EQ(text, std::string("[").append(medium).append("] [").append(full).append("] "));
    }
}

TEST(ConsoleTest, SendsEachLevelToItsStreamAndColoursItsParts) {
    LogConfig config(true);
    auto const set = [&config](bool color, bool silenced) {
        for (LogHandler* const handler : config.GetLogHandlers()) {
            handler->SetUsesColor(color);
            handler->SetSilenced(silenced);
        }
    };
    for (auto const& [level, plain, output, error, coloured] : Rows<5>("Console", "streams")) {
        LogRecord record = MakeRecord(static_cast<LogLevel>(std::stoi(level)), "hello", "Channel::Send");
        record.plain = plain == "true";
        set(false, false);
        Output printed = Print(config, record);
        EXPECT_EQ(printed.standardOutput, output);
        EXPECT_EQ(printed.standardError, error);
        set(true, false);
        printed = Print(config, record);
        EXPECT_EQ(printed.standardOutput + printed.standardError, coloured);
        set(true, true);
        printed = Print(config, record);
        EXPECT_EQ(printed.standardOutput + printed.standardError, record.plain ? coloured : "");
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

TEST(ConsoleTest, TakesColourFromTheEnvironment) {
    std::set<std::string> const on = {"", "OFF", "1"};
    for (std::string const value : {"0", "off", "no", "false", kNone, "", "OFF", "1"}) {
        value != kNone ? ::setenv("VQLOG_COLOR", value.c_str(), 1) : ::unsetenv("VQLOG_COLOR");
        testing::internal::CaptureStdout();  // not a terminal
        LogConfig const config(true);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(config.FindLogHandler(LogTarget::Stdout)->UsesColor(), on.count(value) == 1) << value;
    }
}

}  // namespace
