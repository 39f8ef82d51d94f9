// The logging options as arguments of a command line, and the way back.

#include "Logging/LoggingOptions.h"

#include <getopt.h>

#include "Logging/FileLogHandler.h"
#include "Logging/LogConfig.h"
#include "Logging/LogParameterCLIProcessor.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"

namespace vq::test {

namespace {

using Arguments = std::vector<std::string>;

/// Pointers to the texts of a command line, for as long as those live.
std::vector<char*> Pointers(Arguments& arguments) {
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    return argv;
}

Arguments SplitAtTabs(std::string const& text) {
    Arguments arguments;
    std::istringstream words(text == kNone ? "" : text);
    for (std::string word; std::getline(words, word, '\t');) {
        arguments.push_back(word);
    }
    return arguments;
}

/// Applies arguments to the process-wide log.
bool Process(Arguments arguments) {
    arguments.insert(arguments.begin(), "program");
    std::vector<char*> argv = Pointers(arguments);
    return LogParameterCLIProcessor::ProcessParams(static_cast<int>(arguments.size()), argv.data());
}

/// The same, and the log starts anew.
bool Apply(Arguments const& arguments) {
    LogConfig::Instance().Reset(true);
    return Process(arguments);
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
        EXPECT_TRUE(Apply(SplitAtTabs(arguments)));
        EXPECT_EQ(State(), state) << arguments;
    }
}

TEST_F(LoggingOptionsTest, TellWhatIsWrong) {
    for (auto const& [arguments, handled, line, state] : Rows<4>("LoggingOptions", "refused")) {
        LogConfig::Instance().Reset(true);
        LogCapture const capture;
        EXPECT_EQ(Process(SplitAtTabs(arguments)), handled == "true");
        EXPECT_THAT(capture.Lines(), ElementsAre(line));
        EXPECT_EQ(State(), state) << arguments;
    }
}

TEST_F(LoggingOptionsTest, PassOverWhatGetoptRefuses) {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(Apply({"--bogus", "-V4"}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "program: unrecognized option '--bogus'\nhuh?  63");
    EXPECT_EQ(State(), "4 . .");
    LogCapture const capture;
    char const* const argv[] = {"program", "--strange", nullptr};
    optind = 2;
    EXPECT_TRUE(HandleLoggingOption(77, nullptr, 2, argv, nullptr, LogConfig::Instance()));
    EXPECT_THAT(capture.Lines(), ElementsAre("E Unhandled argument value 77 for --strange"));
}

TEST_F(LoggingOptionsTest, PrintTheHelpText) {
    LogConfig config(false);
    char const* const argv[] = {"program", "-Vh", nullptr};
    optind = 2;
    bool shown = false;
    testing::internal::CaptureStdout();
    EXPECT_TRUE(HandleLoggingOption('V', "hh", 2, argv, nullptr, config));
    EXPECT_TRUE(HandleLoggingOption('V', "h5", 2, argv, &shown, config));
    std::string const text = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(shown);
    EXPECT_EQ(config.GetLevel(), LogLevel::Trace);
    std::string const one = text.substr(0, text.size() / 3);
    EXPECT_EQ(text, one + one + one);
    EXPECT_THAT(one, StartsWith("Verbosity/logging help:\n\nVirtual device"));
    EXPECT_THAT(one, EndsWith("   '--verbosity 3 --no-console --logfile --logfile-color' is equivalent\n"));
}

TEST_F(LoggingOptionsTest, ExportTheStateAsTheFewestArguments) {
    EXPECT_THAT(ExportLoggingOptions(LogConfig::Instance()), IsEmpty());
    ASSERT_TRUE(Apply({"-V4f", "/tmp/x.log", "-VF"}));
    LogConfig& config = LogConfig::Instance();
    EXPECT_THAT(ExportLoggingOptions(config), ElementsAre("-V4f", "/tmp/x.log", "-VF"));
    config.DeleteLogHandler(config.FindLogHandler(LogTarget::Stdout));
    EXPECT_THAT(ExportLoggingOptions(config), ElementsAre("-V4f", "/tmp/x.log", "-VF"));
    config.DeleteLogHandler(config.FindLogHandler(LogTarget::Stderr));
    EXPECT_THAT(ExportLoggingOptions(config), ElementsAre("-V4-cf", "/tmp/x.log", "-VF"));
    ASSERT_TRUE(Apply({"-VCf-Fb", "--logfile-maxsize", "7"}));
    EXPECT_THAT(ExportLoggingOptions(config), ElementsAre("-VCf-b", "--logfile-maxsize", "7"));
}

TEST_F(LoggingOptionsTest, ExportedAndAppliedAgainGiveTheSameState) {
    char const* const choices[] = {"-V0", "-V2",   "-V5",       "-VC",        "-Vf",
                                   "-VF", "-Vb-b", "--logfile", "/tmp/x.log", "--logfile-maxsize=70"};
    std::minstd_rand random(1);
    for (int round = 0; round < 500; ++round) {
        Arguments arguments;
        for (auto count = random() % 5; count != 0; --count) {
            arguments.emplace_back(choices[random() % std::size(choices)]);
        }
        ASSERT_TRUE(Apply(arguments));
        std::string const state = State();
        ASSERT_TRUE(Apply(ExportLoggingOptions(LogConfig::Instance())));
        ASSERT_EQ(State(), state) << testing::PrintToString(arguments);
    }
}

TEST_F(LoggingOptionsTest, AProgramTakesThemOutOfItsCommandLine) {
    LogConfig::Instance().Reset(true);
    Arguments arguments = {"program", "--name",     "x",
                           "-V",      "4-c",        "--verbose",
                           "-Vf",     "/tmp/a.log", "--logfile-maxsize",
                           "70",      "rest",       "--logfile-color",
                           "--",      "-V9"};
    std::vector<char*> argv = Pointers(arguments);
    int argc = static_cast<int>(arguments.size());
    bool helpShown = false;
    ASSERT_TRUE(LogParameterCLIProcessor::TakeParams(argc, argv.data(), helpShown));
    EXPECT_EQ(State(), "4 s. s. file=/tmp/a.log colour 70");
    EXPECT_THAT(Arguments(argv.begin(), argv.begin() + argc),
                ElementsAre("program", "--name", "x", "--verbose", "rest", "--", "-V9"));
    EXPECT_EQ(argv[static_cast<std::size_t>(argc)], nullptr);
    EXPECT_FALSE(helpShown);

    LogConfig::Instance().Reset(true);
    for (char const* const bad : {"-V", "--logfile-maxsize=x", "--console=1", "--verbosity"}) {
        Arguments line = {"program", bad};
        std::vector<char*> pointers = Pointers(line);
        int count = 2;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(LogParameterCLIProcessor::TakeParams(count, pointers.data(), helpShown)) << bad;
        EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    }
}

}  // namespace

}  // namespace vq::test
