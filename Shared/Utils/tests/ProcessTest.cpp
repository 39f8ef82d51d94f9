#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <ctime>

#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"
#include "Utils/ProcessFactory.h"
#include "Utils/ThreadUtils.h"

namespace {

using std::chrono::milliseconds;
constexpr milliseconds kLong{60000};
constexpr std::int32_t kUnknown = ProcessResult::kUnknownCode;

MATCHER_P2(Is, state, code, "") {
    *result_listener << "state " << arg.state << ", code " << arg.code;
    return arg.state == state && arg.code == code;
}

ProcessFactory Shell(std::string const& script) {
    return ProcessFactory({"sh", "-c", script});
}

std::string ErrorOf(ProcessFactory const& factory) {
    try {
        factory.Spawn();
    } catch (ProcessException const& error) {
        return error.what();
    }
    return "none";
}

std::size_t EntriesOf(char const* directory) {
    return GetDirectoryEntries(directory).size();
}

/// Is there any child left, running or not?
bool HasChildren() {
    return ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

void WriteFile(std::string const& path, std::string const& text, std::filesystem::perms mode) {
    std::ofstream(path) << text;
    std::filesystem::permissions(path, mode);
}

TEST(ProcessTest, TellsHowAChildEndedAndAllThatItWrote) {
    EXPECT_THAT(Shell("exit 7").Run(), Is(ProcessResult::kExited, 7));
    {
        BlockedSignals const blocked;  // for this thread, not for the child
        ::signal(SIGPIPE, SIG_IGN);    // likewise
        EXPECT_THAT(Shell("kill -PIPE $$").Run(), Is(ProcessResult::kSignalled, SIGPIPE));
    }
    // Each stream alone fills a pipe: a reader that took one after the other would hang.
    ProcessFactory both =
        Shell("head -c 300000 /dev/zero | tr '\\0' e >&2; head -c 300000 /dev/zero | tr '\\0' o; exit 3");
    Process child = both.ReadingStdoutStderr().Spawn();
    for (int time = 0; time < 2; ++time) {
        ProcessResult const result = child.WaitForExit(milliseconds::max());
        EXPECT_THAT(result, Is(ProcessResult::kExited, 3));
        EXPECT_EQ(result.standardOutput, std::string(300000, 'o'));
        EXPECT_EQ(result.standardError, std::string(300000, 'e'));
    }
}

TEST(ProcessTest, ReadsNothingOfAGrandchildThatKeepsThePipe) {
    // One is silent for a minute, one never stops writing; neither is waited for.
    for (char const* background : {"sleep 61", "while :; do echo more; done"}) {
        Process child =
            Shell(std::string("echo first; ") + background + " & echo $! >&2").ReadingStdoutStderr().Spawn();
        auto const start = std::chrono::steady_clock::now();
        ProcessResult const result = child.WaitForExit(kLong);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
        EXPECT_THAT(result, Is(ProcessResult::kExited, 0));
        EXPECT_EQ(result.standardOutput.substr(0, 6), "first\n");
        EXPECT_TRUE(Process(std::stoi(result.standardError)).Kill().state != ProcessResult::kNoProcess);
    }
}

TEST(ProcessTest, WaitingForOutputCostsNoProcessorTime) {
    std::clock_t const before = std::clock();  // of all threads
    // One pipe closes at once, the other stays silent, and the child lives on.
    Shell("exec sleep 2 >&-").ReadingStdoutStderr().Run();
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 5);
}

TEST(ProcessTest, GivesTheInputPipeAwayOnce) {
    Process child = ProcessFactory({"cat"}).ReadingStdoutStderr().WritingStdin().Spawn();
    std::FILE* const input = child.GetInputFileDescriptor();
    ASSERT_NE(input, nullptr);
    vq::test::LogCapture log;
    EXPECT_EQ(child.GetInputFileDescriptor(), nullptr);
    EXPECT_EQ(log.Lines(), (Lines{"E Failed to map input to file: Bad file descriptor"}));
    std::fputs("through the cat", input);
    EXPECT_THAT(child.WaitForExit(milliseconds(0)), Is(ProcessResult::kNone, 0));
    std::fclose(input);
    EXPECT_EQ(child.WaitForExit(kLong).standardOutput, "through the cat");
    EXPECT_EQ(child.GetInputFileDescriptor(), nullptr);
}

TEST(ProcessTest, KnowsNothingOfTheStatusThatSomebodyElseHasTaken) {
    Process reaped = ProcessFactory({"true"}).Spawn();
    ::waitpid(reaped.GetPid(), nullptr, 0);
    EXPECT_THAT(reaped.WaitForExit(kLong), Is(ProcessResult::kExited, kUnknown));

    ::signal(SIGCHLD, SIG_IGN);
    EXPECT_THAT(ProcessFactory({"sleep", "0.2"}).Run(), Is(ProcessResult::kExited, kUnknown));
    EXPECT_THAT(ProcessFactory({"sleep", "0.2"}).Spawn().WaitForExit(kLong),
                Is(ProcessResult::kExited, kUnknown));
    ::signal(SIGCHLD, SIG_DFL);

    // No child of ours, and its own parent never reaps it: it can be watched and ended all the same.
    std::FILE* const shell = ::popen("sleep 61 & echo $$ $!; exec sleep 61", "r");
    int parent = 0;
    int child = 0;
    ASSERT_EQ(std::fscanf(shell, "%d %d", &parent, &child), 2);
    Process stranger(child);
    EXPECT_TRUE(stranger.IsRunning());
    EXPECT_THAT(stranger.WaitForExit(milliseconds(60)), Is(ProcessResult::kNone, 0));
    EXPECT_THAT(stranger.Kill(), Is(ProcessResult::kExited, kUnknown));
    EXPECT_EQ(Process(parent).Kill().state, ProcessResult::kSignalled);
    ::pclose(shell);
}

TEST(ProcessTest, KillsOnceAndNeverAGroup) {
    Process child = Shell("trap '' TERM; while :; do sleep 1; done").Spawn();
    EXPECT_TRUE(child.IsRunning());
    ProcessResult const result = child.Kill();
    EXPECT_EQ(result.state, ProcessResult::kSignalled);
    EXPECT_THAT(child.Kill(), Is(result.state, result.code));
    EXPECT_FALSE(child.IsRunning());
    EXPECT_THAT(Process(child.GetPid()).Kill(), Is(ProcessResult::kExited, kUnknown));

    // Either would end this test.
    for (std::int32_t const pid : {0, -1}) {
        EXPECT_THAT(Process(pid).Kill(), Is(ProcessResult::kNoProcess, kUnknown));
        EXPECT_THAT(Process(pid).WaitForExit(kLong), Is(ProcessResult::kNoProcess, kUnknown));
        EXPECT_FALSE(Process(pid).IsRunning());
    }
    EXPECT_TRUE(Process(Process::GetCurrent()).IsRunning());
}

TEST(ProcessTest, SaysWhyItCannotStart) {
    std::string const text = vq::test::HomeDirectory() + "text";
    WriteFile(text, "no program\n", std::filesystem::perms::owner_all);
    EXPECT_EQ(ErrorOf(ProcessFactory({"no-such-program"})), "Failed to spawn: No such file or directory");
    EXPECT_EQ(ErrorOf(ProcessFactory({"/etc/passwd"})), "Failed to spawn: Permission denied");
    EXPECT_EQ(ErrorOf(ProcessFactory({"true"}).WithCurrentWorkingDirectory("/no/where")),
              "current working directory '/no/where' not found: No such file or directory");
    EXPECT_THAT(ProcessFactory({text}).ReadingStdoutStderr().Run(), Is(ProcessResult::kNoProcess, kUnknown));
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    rlimit const none{.rlim_cur = 3, .rlim_max = before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(ErrorOf(ProcessFactory({"true"}).ReadingStdoutStderr()),
              "Failed to pipe2: Too many open files");
    ::setrlimit(RLIMIT_NOFILE, &before);
}

TEST(ProcessTest, GivesAChildItsEnvironmentDirectoryAndGroup) {
    ::setenv("VQ_PROCESS_TEST", "inherited", 1);
    std::string const here = GetCurrentWorkingDirectory();
    vq::test::LogCapture log(LogLevel::Verbose);
    ProcessFactory factory =
        Shell("test $(ps -o pgid= $$) = $$ && echo $VQ_PROCESS_TEST $HOME $(pwd) $(wc -c)");
    factory.AddEnvironment({"VQ_PROCESS_TEST=extra"}).WithCurrentWorkingDirectory("/usr").RunDetached();
    Process child = factory.ReadingStdoutStderr().Spawn();
    EXPECT_EQ(child.WaitForExit(kLong).standardOutput,
              "extra " + std::string(::getenv("HOME")) + " /usr 0\n");
    EXPECT_EQ(GetCurrentWorkingDirectory(), here);
    EXPECT_TRUE(log.Has(LogLevel::Verbose, "Spawning process: /usr$ VQ_PROCESS_TEST=extra sh -c test"));
    EXPECT_TRUE(log.Has(LogLevel::Verbose,
                        "The result of finalizing pid " + std::to_string(child.GetPid()) + " is 1 / 0x0"));
    EXPECT_EQ(ProcessFactory({"/bin/pwd"})
                  .WithExecutableWorkingDirectory()
                  .ReadingStdoutStderr()
                  .Run()
                  .standardOutput.substr(0, 5),
              "/usr/");
}

TEST(ProcessTest, FindsProgramsByTheirWholeName) {
    std::filesystem::create_directory(vq::test::HomeDirectory() + "programs");
    std::filesystem::current_path(vq::test::HomeDirectory() + "programs");
    // The list cuts names at 15 characters; one name here begins like the other.
    std::string const id = std::to_string(::getpid());
    Lines const names = {"two words" + id, "vqlong" + id + "abcdefghijk", "vqlong" + id + "abcdefghijkl"};
    std::vector<Process> children;
    for (std::string const& name : names) {
        std::filesystem::copy_file("/bin/sleep", name);
        children.push_back(ProcessFactory({GetFullPath(name), "61"}).Spawn());
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_THAT(Process::FindRunningProcesses(("/any/" + names[i]).c_str()),
                    ElementsAre(children[i].GetPid()));
    }
    EXPECT_FALSE(Process::IsRunning(names[1].substr(0, 15)));
    EXPECT_THAT(Process::FindRunningProcesses(nullptr), testing::IsSupersetOf({0, Process::GetCurrent()}));
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_TRUE(Process::KillRunningProcesses(names[i]));
        EXPECT_THAT(children[i].WaitForExit(kLong), Is(ProcessResult::kExited, kUnknown));
        EXPECT_FALSE(Process::KillRunningProcesses(names[i]));
    }
    EXPECT_EQ(EntriesOf("."), names.size());

    // The list is made in a file of the working directory.
    std::filesystem::remove_all(std::filesystem::current_path());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Process::KillRunningProcesses("sleep"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to make temp file: No such file or directory\n");
}

TEST(ProcessTest, LeavesNothingBehindAfterAThousandRuns) {
    ProcessFactory({"true"}).ReadingStdoutStderr().WritingStdin().Run();
    std::size_t const descriptors = EntriesOf("/proc/self/fd");
    std::ptrdiff_t const threads = vq::test::CountThreads(::getpid());
    std::array kinds = {ProcessFactory({"true"}), Shell("kill -9 $$"), Shell("sleep 0.3 & exit 1"),
                        ProcessFactory({"no-such-program"})};
    for (std::size_t i = 0; i < 1000; ++i) {
        try {
            kinds.at(i % kinds.size()).ReadingStdoutStderr().WritingStdin().Run();
        } catch (ProcessException const&) {
        }
        if (i % 100 == 0) {  // hangs
            Process child = ProcessFactory({"cat"}).ReadingStdoutStderr().WritingStdin().Spawn();
            EXPECT_EQ(child.WaitForExit(milliseconds(1)).state, ProcessResult::kNone);
            child.Kill();
            // Forgotten while it runs, and still a child of ours.
            std::int32_t const forgotten =
                ProcessFactory({"sleep", "61"}).ReadingStdoutStderr().Spawn().GetPid();
            EXPECT_THAT(Process(forgotten).Kill(),
                        testing::Field(&ProcessResult::state, ProcessResult::kSignalled));
        }
    }
    EXPECT_EQ(EntriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(vq::test::CountThreads(::getpid()), threads);
    EXPECT_FALSE(HasChildren());
}

}  // namespace
