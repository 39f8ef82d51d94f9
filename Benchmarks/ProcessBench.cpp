// Running a child and capturing what it writes, beside the system calls that this needs and beside popen.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <thread>

#include "Twin.h"
#include "Utils/ProcessFactory.h"

namespace {

constexpr char const* kProgram = "/bin/true";
/// A run takes far longer than a block must.
constexpr std::size_t kBatch = 1;

std::string ReadAll(int descriptor) {
    std::string text;
    std::array<char, 16384> buffer;
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    ::close(descriptor);
    return text;
}

/// By hand: two pipes, a thread to read each, the child, and its end.
int SpawnBare() {
    std::array<int, 2> output{};
    std::array<int, 2> error{};
    if (::pipe2(output.data(), O_CLOEXEC) != 0 || ::pipe2(error.data(), O_CLOEXEC) != 0) {
        return -1;
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, error[1], STDERR_FILENO);
    std::string program = kProgram;
    std::array<char*, 2> const arguments = {program.data(), nullptr};
    pid_t pid = -1;
    int const failed = ::posix_spawn(&pid, kProgram, &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(output[1]);
    ::close(error[1]);
    std::string outputText;
    std::string errorText;
    std::thread outputReader([&] { outputText = ReadAll(output[0]); });
    std::thread errorReader([&] { errorText = ReadAll(error[0]); });
    int status = -1;
    if (failed == 0) {
        ::waitpid(pid, &status, 0);
    }
    outputReader.join();
    errorReader.join();
    return status;
}

int RunPopen() {
    std::FILE* const stream = ::popen(kProgram, "re");
    if (stream == nullptr) {
        return -1;
    }
    std::array<char, 16384> buffer;
    while (std::fread(buffer.data(), 1, buffer.size(), stream) > 0) {
    }
    return ::pclose(stream);
}

int RunOurs() {
    return ProcessFactory({kProgram}).ReadingStdoutStderr().Run().code;
}

void Captured(benchmark::State& state) {
    if (SpawnBare() != 0 || RunOurs() != 0) {
        state.SkipWithError("the program does not run");
        return;
    }
    bench::RunTwin(state, kBatch, &SpawnBare, &RunOurs);
}

void CapturedAgainstPopen(benchmark::State& state) {
    bench::RunTwin(state, kBatch, &RunPopen, &RunOurs);
}

void Quiet(benchmark::State& state) {
    bench::RunQuiet(state, kBatch, &SpawnBare);
}

VQ_TWIN("process_captured", Captured);
VQ_TWIN("process_captured_popen", CapturedAgainstPopen);
VQ_TWIN("process_quiet", Quiet);

}  // namespace
