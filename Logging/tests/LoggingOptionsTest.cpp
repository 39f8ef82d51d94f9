// The logging options as arguments of a command line, and the way back.

#include "Logging/LoggingOptions.h"

#include <getopt.h>

#include "Logging/FileLogHandler.h"
#include "Logging/LogConfig.h"
#include "Logging/LogParameterCLIProcessor.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"

namespace vq::test {

using testing::ElementsAre;
using testing::IsEmpty;

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

/// Applies arguments to the process-wide log, which starts anew.
bool Apply(Arguments arguments) {
    LogConfig::Instance().Reset(true);
    arguments.insert(arguments.begin(), "program");
    std::vector<char*> argv = Pointers(arguments);
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
    struct Case {
        Arguments arguments;
        char const* state;
    };
    Case const cases[] = {
        {{}, "3 . ."},
        {{"-Vinfo-c+Ff"}, "3 s. s. file colour"},
        {{"--verbosity", "3", "--no-console", "--logfile", "--logfile-color"}, "3 s. s. file colour"},
        {{"-V", "ve"}, "4 . ."},
        {{"-Vverbc"}, "4 . ."},
        {{"--verbosity=trace+C"}, "5 c. c."},
        {{"-V03f"}, "3 . . file"},
        {{"-VC-C"}, "3 . ."},
        {{"-VcC", "--no-console", "--no-console-color"}, "3 s. s."},
        {{"-V-c", "--console-c", "--console"}, "3 c. c."},
        {{"-V-cC"}, "3 s. s."},
        {{"-Vf"}, "3 . . file"},
        {{"-Vfatal"}, "0 . ."},
        {{"-Vfaf"}, "0 . . file"},
        {{"-Vf-f"}, "3 . ."},
        {{"-Vf-b+F"}, "3 . . file colour unbuffered"},
        {{"-Vf", "/tmp/a.log", "-V-F"}, "3 . . file=/tmp/a.log"},
        {{"-Vfve", "/tmp/a.log"}, "4 . . file=/tmp/a.log"},
        {{"--logfile", "/tmp/a.log", "-V4"}, "4 . . file=/tmp/a.log"},
        {{"--logfile", "--console"}, "3 . . file"},
        {{"--logfile=/tmp/a.log"}, "3 . . file"},
        {{"--logfile", "--no-logfile"}, "3 . ."},
        {{"other", "--logfile", "/tmp/a.log", "-V2", "more"}, "2 . . file=/tmp/a.log"},
        {{"--logfile-buffer", "--no-logfile-buffer", "--logfile-color", "--no-logfile-color"},
         "3 . . file unbuffered"},
        {{"--logfile-maxsize", "1k"}, "3 . . file 1"},
        {{"--logfile-maxsize=5000"}, "3 . . file 5000"},
    };
    for (Case const& c : cases) {
        EXPECT_TRUE(Apply(c.arguments));
        EXPECT_EQ(State(), c.state) << testing::PrintToString(c.arguments);
    }
}

TEST_F(LoggingOptionsTest, TellWhatIsWrong) {
    struct Case {
        Arguments arguments;
        bool handled;
        char const* line;
        char const* state;
    };
    Case const cases[] = {
        {{"-V9"}, true, "W Log level clamped to 5 (trace) in -V9", "5 . ."},
        {{"-V", " -3"}, true, "W Log level clamped to 5 (trace) in  -3", "5 . ."},
        {{"-V-3"}, false, "E Using '-' with log level makes no sense in -V-3", "3 . ."},
        {{"-V-fatal"}, false, "E Using '-' with log level makes no sense in -V-fatal", "3 . ."},
        {{"-V-77"}, false, "E Using '-' with log level makes no sense in -V-77", "3 . ."},
        {{"-Vq"}, false, "E Unexpected option at q in -Vq", "3 . ."},
        {{"-Vcve3x"}, false, "E Unexpected option at x in -Vcve3x", "3 . ."},
        {{"--verbosity", "q"}, false, "E Unexpected option at q in q", "3 . ."},
        {{"-V", "4v"}, false, "E Unexpected option at v in 4v", "4 . ."},
        {{"-Vf", "/tmp/a.log", "-Vfq"}, false, "E Unexpected option at q in -Vfq", "3 . . file=/tmp/a.log"},
        {{"-Vfq", "/tmp/a.log"}, false, "E Unexpected option at q in -Vfq", "3 . . file=/tmp/a.log"},
        {{"-V--c"}, false, "E Multiple '-' in -V at -c", "3 . ."},
        {{"-V-c-b"}, false, "E Multiple '-' in -V at -b", "3 s. s."},
        {{"--logfile-maxsize", "0"}, false, "E Expected positive size, got 0 for --logfile-maxsize", "3 . ."},
        {{"--logfile-maxsize=-5"}, false, "E Expected positive size, got -5 for --logfile-maxsize", "3 . ."},
        {{"--logfile-max", "big"}, false, "E Expected integral size, got big for --logfile-max", "3 . ."},
        {{"--logfile-maxsize=99999999999999999999"},
         false,
         "E Expected integral size, got 99999999999999999999 for --logfile-maxsize",
         "3 . ."},
    };
    for (Case const& c : cases) {
        LogConfig::Instance().Reset(true);
        Arguments arguments = c.arguments;
        arguments.insert(arguments.begin(), "program");
        std::vector<char*> argv = Pointers(arguments);
        LogCapture const capture;
        EXPECT_EQ(LogParameterCLIProcessor::ProcessParams(static_cast<int>(arguments.size()), argv.data()),
                  c.handled);
        EXPECT_THAT(capture.Lines(), ElementsAre(c.line));
        EXPECT_EQ(State(), c.state) << testing::PrintToString(c.arguments);
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
    EXPECT_THAT(one, testing::StartsWith("Verbosity/logging help:\n\nVirtual device"));
    EXPECT_THAT(
        one, testing::EndsWith("   '--verbosity 3 --no-console --logfile --logfile-color' is equivalent\n"));
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
