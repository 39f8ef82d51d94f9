// The running program, its environment and its host.

#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>

#include "Logging/Log.h"
#include "Utils/OSUtils.h"
#include "Utils/TextUtils.h"

namespace {

/// What is asked once and kept; each value is filled at first use.
struct OSUtilsState {
    std::recursive_mutex mutex;
    std::optional<std::string> executablePath;
    std::optional<std::string> executableName;
    std::optional<std::vector<std::string>> searchPath;
};

OSUtilsState& GetOSUtilsState() {
    // Never destroyed: threads that outlive the static objects still ask for their names and paths.
    static OSUtilsState* const state = new OSUtilsState;
    return *state;
}

/// The only way to the state. Recursive, since the search path needs the executable's path.
class OSUtilsLock {
public:
    OSUtilsState* operator->() const { return &m_state; }

private:
    OSUtilsState& m_state = GetOSUtilsState();
    std::lock_guard<std::recursive_mutex> m_lock{m_state.mutex};
};

std::string ReadExecutableLink() {
    std::string path(256, '\0');
    for (;;) {
        ssize_t const length = ::readlink("/proc/self/exe", path.data(), path.size());
        if (length < 0) {
            return {};
        }
        if (static_cast<std::size_t>(length) < path.size()) {
            path.resize(static_cast<std::size_t>(length));
            return path;
        }
        path.resize(path.size() * 2);  // it may have been cut
    }
}

std::string FindExecutablePath() {
    std::string const link = ReadExecutableLink();
    if (link.empty()) {
        // Not the log: a log line carries the program's name.
        std::fputs("Failed to determine executable name\n", stderr);
        std::fflush(stderr);
        return {};
    }
    return GetFullPath(link);
}

bool IsFileWithMode(std::string const& path, mode_t bit) {
    struct stat entry {};
    return ::stat(path.c_str(), &entry) == 0 && S_ISREG(entry.st_mode) && (entry.st_mode & bit) != 0;
}

bool MakeOrComplain(std::string const& directory) {
    if (CreateDirectoryPath(directory)) {
        return true;
    }
    std::fprintf(stderr, "Failed to create directory '%s' (%s)", directory.c_str(),
                 GetOSErrorText(errno).c_str());
    std::fflush(stderr);
    return false;
}

}  // namespace

std::string GetExecutablePath() {
    OSUtilsLock const state;
    if (!state->executablePath) {
        state->executablePath = FindExecutablePath();
    }
    return *state->executablePath;
}

std::string GetExecutableName() {
    OSUtilsLock const state;
    if (!state->executableName) {
        state->executableName = GetFileNameOf(GetExecutablePath());
    }
    return *state->executableName;
}

std::string GetExecutableDirectory() {
    std::string const path = GetExecutablePath();
    std::size_t const slash = path.find_last_of("/\\");
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

std::vector<std::string> GetExecutableSearchPath() {
    OSUtilsLock const state;
    if (!state->searchPath) {
        char const* path = std::getenv("PATH");
        if (path == nullptr) {
            path = std::getenv("Path");
        }
        std::vector<std::string> directories = Tokenize(path != nullptr ? path : "", ":", true);
        directories.insert(directories.begin(), GetExecutableDirectory());
        state->searchPath = std::move(directories);
    }
    return *state->searchPath;
}

std::string ResolveOnPath(std::string const& name) {
    std::string found;
    if (IsFullPath(name) || !ResolveOnPath(GetExecutableSearchPath(), name, true, found)) {
        return name;
    }
    return found;
}

bool ResolveOnPath(std::vector<std::string> const& directories, std::string const& name, bool executable,
                   std::string& out) {
    mode_t const bit = executable ? S_IXUSR : S_IRUSR;
    if (IsFullPath(name)) {
        if (!IsFileWithMode(name, bit)) {
            return false;
        }
        out = GetFullPath(name);
        return true;
    }
    for (std::string const& directory : directories) {
        std::string candidate = directory;
        candidate.append("/").append(name);
        if (IsFileWithMode(candidate, bit)) {
            out = GetFullPath(candidate);
            return true;
        }
    }
    return false;
}

std::vector<std::string> GetSharedLibrarySearchPath() {
    char const* const path = std::getenv("LD_LIBRARY_PATH");
    return Tokenize(path != nullptr ? path : "", ":", true);
}

std::vector<std::string> GetSharedLibraryExtensions() {
    return {".so", ""};
}

std::string GetUserHomeDirectory() {
    char const* const home = std::getenv("HOME");
    return EnsureDirectoryPath(home != nullptr ? home : GetFullPath("."));
}

std::string GetUserTempDirectory() {
    static std::mutex mutex;
    static std::string* const cached = new std::string;  // never destroyed, as the other cached values
    std::lock_guard lock(mutex);
    if (!cached->empty()) {
        return *cached;
    }
    std::string home = GetUserHomeDirectory();
    std::string const parent = home + ".config";
    if (!MakeOrComplain(parent)) {
        return home;
    }
    std::string const directory = parent + "/vqvds";
    if (!MakeOrComplain(directory)) {
        return parent + "/";
    }
    *cached = directory + "/";
    return *cached;
}

std::string GetDataRootPath() {
    if (char const* const root = std::getenv("VQ_VDS_DATA")) {
        return EnsureDirectoryPath(root);
    }
    for (char const* const relative : {"data", "../data"}) {
        std::string const directory = GetExecutableDirectory() + relative;
        if (DirectoryExists(directory)) {
            return directory + "/";
        }
    }
    return "data/";
}

std::string GetTestDataRootPath() {
    char const* const root = std::getenv("VQ_VDS_TEST");
    return root != nullptr ? EnsureDirectoryPath(root) : "test/";
}

bool IsTestDataRootPathDefined() {
    return std::getenv("VQ_VDS_TEST") != nullptr;
}

std::string GetOSName() {
    return "Mac";
}

bool GetOSVersion(int& major, int& minor) {
    utsname host{};
    if (::uname(&host) != 0) {
        LOG_E("uname failed with error: %s", GetOSErrorText(errno).c_str());
        return false;
    }
    if (std::isdigit(static_cast<unsigned char>(host.release[0])) == 0) {
        return false;
    }
    char const* const dot = std::strchr(host.release, '.');
    major = std::atoi(host.release);
    minor = dot != nullptr ? std::atoi(dot + 1) : 0;
    return true;
}

std::string GetOSErrorText(int code) {
    char buffer[256] = "";
    return ::strerror_r(code, buffer, sizeof buffer);
}

int GetSocketError() {
    return errno;
}

std::size_t GetPageSize() {
    return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::size_t GetNextLargestPageSize(std::size_t size) {
    std::size_t const page = GetPageSize();
    return size == 0 ? page : (size + page - 1) / page * page;
}

bool IsStdinAccessible() {
    struct stat input {};
    if (::fstat(STDIN_FILENO, &input) != 0) {
        return false;
    }
    struct stat null {};
    return ::stat("/dev/null", &null) != 0 || !S_ISCHR(input.st_mode) || input.st_rdev != null.st_rdev;
}
