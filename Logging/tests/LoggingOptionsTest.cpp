// The logging options as arguments of a command line, and the way back.

#include "Logging/LoggingOptions.h"

#include <getopt.h>

#include "Logging/FileLogHandler.h"
#include "Logging/LogConfig.h"
#include "Logging/LogParameterCLIProcessor.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/TextUtils.h"

namespace vq::test {

namespace {

using Arguments = std::vector<std::string>;

Arguments SplitAtTabs(std::string const& text) {
    Arguments arguments;
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, '\t');) {
        arguments.push_back(word);
    }
    return arguments;
}

/// Applies arguments, with tabs between them, to the process-wide log.
bool Apply(std::string const& given) {
    Arguments arguments = SplitAtTabs("program\t" + given);
    std::vector<char*> argv = ArgumentPointers(arguments);
    return LogParameterCLIProcessor::ProcessParams(static_cast<int>(arguments.size()), argv.data());
}

FileLogHandler* FileLog() {
    return dynamic_cast<FileLogHandler*>(LogConfig::Instance().FindFileLogHandler());
}

/// What the options can change, as text: level, consoles (a letter each: s silenced, c coloured), file.
std::string State() {
    LogConfig const& config = LogConfig::Instance();
    std::string state = std::to_string(static_cast<int>(config.GetLevel()));
    for (LogTarget const target : {LogTarget::Stdout, LogTarget::Stderr}) {
        LogHandler const* const console = config.FindLogHandler(target);
        state += console == nullptr ? " none"
                                    : std::string(" ") + (console->IsSilenced() ? "s" : "") +
                                          (console->UsesColor() ? "c" : "") + ".";
    }
    if (FileLogHandler const* const file = FileLog()) {
        bool const standard = file->GetLocation() == FileLogHandler::GetDefaultLocation();
        state += " file" + (standard ? "" : "=" + file->GetLocation()) +
                 (file->UsesColor() ? " colour" : "") + (file->IsBuffered() ? "" : " unbuffered") +
                 (file->GetMaxFileSize() == 134217728 ? "" : " " + std::to_string(file->GetMaxFileSize()));
    }
    return state;
}

class LoggingOptionsTest : public testing::Test {
public:
    ~LoggingOptionsTest() override { LogConfig::Instance().Reset(true); }
};

TEST_F(LoggingOptionsTest, SetTheStateOfTheLog) {
    for (auto const& [arguments, state] : Rows<2>("LoggingOptions", "state")) {
        LogConfig::Instance().Reset(true);
        EXPECT_TRUE(Apply(arguments));
        EXPECT_EQ(State(), state) << arguments;
    }
}

TEST_F(LoggingOptionsTest, TellWhatIsWrong) {
    for (auto const& [arguments, handled, line, state] : Rows<4>("LoggingOptions", "refused")) {
        LogConfig::Instance().Reset(true);
        LogCapture const capture;
        EXPECT_EQ(Apply(arguments), handled == "true");
        EXPECT_THAT(capture.Lines(), ElementsAre(line));
        EXPECT_EQ(State(), state) << arguments;
    }
}

TEST_F(LoggingOptionsTest, PassOverWhatGetoptRefuses) {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(Apply("--bogus\t-V4"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "program: unrecognized option '--bogus'\nhuh?  63");
    EXPECT_EQ(State(), "4 . .");
    LogCapture const capture;
    char const* const argv[] = {"program", "--strange", nullptr};
    optind = 2;
    EXPECT_TRUE(HandleLoggingOption(77, nullptr, 2, argv, nullptr, LogConfig::Instance()));
    EXPECT_THAT(capture.Lines(), ElementsAre("E Unhandled argument value 77 for --strange"));
}

TEST_F(LoggingOptionsTest, PrintTheHelpTextAndGoOn) {
    LogConfig config(false);
    char const* const argv[] = {"program", "-Vh", nullptr};
    optind = 2;
    bool shown = false;
    testing::internal::CaptureStdout();
    EXPECT_TRUE(HandleLoggingOption('V', "h", 2, argv, nullptr, config));
    EXPECT_TRUE(HandleLoggingOption('V', "h5", 2, argv, &shown, config));
    std::string const text = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(shown && config.GetLevel() == LogLevel::Trace);
    EXPECT_THAT(text, StartsWith("Verbosity/logging help:\n\nVirtual device"));
    EXPECT_EQ(text.substr(0, text.size() / 2), text.substr(text.size() / 2));
}

TEST_F(LoggingOptionsTest, ExportTheStateAsTheFewestArguments) {
    EXPECT_THAT(ExportLoggingOptions(LogConfig::Instance()), IsEmpty());
    ASSERT_TRUE(Apply("-V4f\t/tmp/x.log\t-VF"));
    LogConfig& config = LogConfig::Instance();
    EXPECT_THAT(ExportLoggingOptions(config), ElementsAre("-V4f", "/tmp/x.log", "-VF"));
    config.DeleteLogHandler(config.FindLogHandler(LogTarget::Stdout));
    EXPECT_THAT(ExportLoggingOptions(config), ElementsAre("-V4f", "/tmp/x.log", "-VF"));
    config.DeleteLogHandler(config.FindLogHandler(LogTarget::Stderr));
    EXPECT_THAT(ExportLoggingOptions(config), ElementsAre("-V4-cf", "/tmp/x.log", "-VF"));
    config.Reset(true);
    ASSERT_TRUE(Apply("-VCf-Fb\t--logfile-maxsize\t7"));
    EXPECT_THAT(ExportLoggingOptions(config), ElementsAre("-VCf-b", "--logfile-maxsize", "7"));
}

TEST_F(LoggingOptionsTest, AProgramTakesThemOutOfItsCommandLine) {
    for (auto const& [given, left, state] : Rows<3>("LoggingOptions", "taken")) {
        LogConfig::Instance().Reset(true);
        Arguments arguments = SplitAtTabs("program\t" + given);
        std::vector<char*> argv = ArgumentPointers(arguments);
        int argc = static_cast<int>(arguments.size());
        bool helpShown = false;
        testing::internal::CaptureStderr();
        bool const taken = LogParameterCLIProcessor::TakeParams(argc, argv.data(), helpShown);
        EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), taken) << given;
        EXPECT_EQ(taken, left != kNone) << given;
        if (taken) {
            EXPECT_EQ(Arguments(argv.begin(), argv.begin() + argc), SplitAtTabs("program" + left));
            EXPECT_EQ(argv[static_cast<std::size_t>(argc)], nullptr);
        }
        EXPECT_EQ(State(), state);
    }
}

}  // namespace

}  // namespace vq::test
