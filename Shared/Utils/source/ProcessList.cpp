// Which processes the machine runs.

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "ProcessHost.h"
#include "Utils/FileDescriptor.h"
#include "Utils/PathText.h"
#include "Utils/Process.h"

namespace {

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// In the child, between fork and exec: nothing but what is allowed in a signal handler.
[[noreturn]] void ExecuteList(int output) {
    char program[] = "ps";
    char columns[] = "axc";
    char* const arguments[] = {program, columns, nullptr};
    ::dup2(output, STDOUT_FILENO);
    ::fcntl(STDOUT_FILENO, F_SETFD, 0);  // the file has this number where the program's own output is closed
    ::dup2(output, STDERR_FILENO);
    ::execvp(program, arguments);
    char const* const reason = ::strerrordesc_np(errno);
    for (char const* const piece : {"Failed to execute: ", reason != nullptr ? reason : "?", "\n"}) {
        static_cast<void>(!::write(STDERR_FILENO, piece, std::strlen(piece)));
    }
    ::_exit(EXIT_FAILURE);
}

/// Lets the lister write its list to the file.
bool WriteProcessList(int output) {
    pid_t const child = ::fork();
    if (child < 0) {
        std::perror("Failed to fork");
        return false;
    }
    if (child == 0) {
        ExecuteList(output);
    }
    while (::waitpid(child, nullptr, 0) < 0) {
        if (errno == ECHILD) {
            return false;
        }
        if (errno != EINTR) {
            std::perror("Child process failed");
            return false;
        }
    }
    return true;
}

/// A file that has no name any more; not open on failure.
FileDescriptor MakeTemporaryFile() {
    char path[] = "osuXXXXXX";
    FileDescriptor file(::mkostemp(path, O_CLOEXEC));
    if (!file) {
        std::perror("Failed to make temp file");
    } else {
        ::unlink(path);
    }
    return file;
}

}  // namespace

std::vector<std::int32_t> Process::FindRunningProcesses(char const* name) {
    FileDescriptor file = MakeTemporaryFile();
    if (!file || !WriteProcessList(file.Get())) {
        return {};
    }
    Stream const stream(::fdopen(file.Get(), "r+"), std::fclose);
    if (stream == nullptr) {
        std::perror("Failed to open temp file");
        return {};
    }
    file.Release();
    std::rewind(stream.get());
    std::string_view wanted(name != nullptr ? name : "");
    wanted.remove_prefix(wanted.rfind('/') + 1);
    std::vector<std::int32_t> found;
    std::array<char, 1024> buffer;
    while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), stream.get()) != nullptr) {
        std::string_view line(buffer.data());
        for (char const end : {'\n', '\r'}) {
            line.remove_suffix(line.ends_with(end) ? 1 : 0);
        }
        ProcessLine const process = ParseProcessLine(line);
        if (name == nullptr || IsCommandOf(process, wanted)) {
            found.push_back(process.pid);
        }
    }
    return found;
}

bool Process::IsRunning(std::string const& name) {
    return !FindRunningProcesses(name.c_str()).empty();
}

bool Process::KillRunningProcesses(std::string const& name) {
    std::vector<std::int32_t> const found = FindRunningProcesses(name.c_str());
    std::ranges::for_each(found, [](std::int32_t pid) { Process(pid).Kill(); });
    return !found.empty();
}
