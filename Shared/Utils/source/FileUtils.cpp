// Paths that need the file system, files, directories and file locks.

#include <dirent.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string_view>
#include <utility>

#include "Utils/OSUtils.h"

namespace {

// The longest path that peers can hold in their buffers, with its terminator.
constexpr std::size_t kPathBufferSize = 1024;

struct FreedText {
    void operator()(char* text) const { std::free(text); }
};
using SystemText = std::unique_ptr<char, FreedText>;

struct ClosedDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

/// realpath or getcwd into memory of its own size; a fixed buffer would overflow. Empty on failure, with
/// errno.
std::string Bounded(SystemText text) {
    if (!text) {
        return {};
    }
    std::string result = text.get();
    if (result.size() >= kPathBufferSize) {
        errno = ENAMETOOLONG;
        return {};
    }
    return result;
}

std::string ResolvePath(std::string const& path) {
    std::string const resolved = Bounded(SystemText(::realpath(path.c_str(), nullptr)));
    if (!resolved.empty() || errno != ENOENT || IsFullPath(path)) {
        return resolved.empty() ? path : resolved;
    }
    std::string const working = GetCurrentWorkingDirectory();
    return working.empty() ? path : working + "/" + path;
}

std::string WithoutTrailingSlash(std::string const& path) {
    return path.size() > 1 && EndsInSlash(path, '/') ? path.substr(0, path.size() - 1) : path;
}

bool RemoveEntry(std::string const& path, std::vector<std::string>& subdirectories, std::ostream& errors) {
    if (IsSoftLink(path) || FileExists(path)) {
        if (RemoveFile(path)) {
            return true;
        }
        errors << path << " (failed to remove)\n";
        return false;
    }
    if (DirectoryExists(path)) {
        subdirectories.push_back(path);
        return true;
    }
    errors << path << " (unknown file)\n";
    return false;
}

}  // namespace

std::string GetFullPath(std::string const& path) {
    std::string const resolved = ResolvePath(path);
    return EndsInSlash(path, '/') ? EnsureDirectoryPath(resolved) : resolved;
}

std::string GetRelativePathTo(std::string const& path, std::string const& base) {
    std::string full = GetFullPath(path);
    std::string root = EnsureDirectoryPath(GetFullPath(base));
    std::string rise;
    std::size_t found = full.find(root);
    while (found == std::string::npos) {
        std::string parent = EnsureDirectoryPath(GetFullPath(root + "../"));
        // The parent of what exists is shorter. The root is its own parent, and a directory that does not
        // exist cannot be resolved: its text only grows.
        if (parent.size() >= root.size()) {
            return full;
        }
        root = std::move(parent);
        rise += "../";
        found = full.find(root);
    }
    return rise + full.substr(found + root.size());
}

bool FileExists(std::string const& path) {
    struct stat entry {};
    return ::stat(path.c_str(), &entry) == 0 && S_ISREG(entry.st_mode);
}

bool DirectoryExists(std::string const& path) {
    struct stat entry {};
    return ::stat(path.c_str(), &entry) == 0 && S_ISDIR(entry.st_mode);
}

bool IsSoftLink(std::string const& path) {
    struct stat entry {};
    return ::lstat(path.c_str(), &entry) == 0 && S_ISLNK(entry.st_mode);
}

bool CreateDirectoryPath(std::string const& path) {
    std::string const name = WithoutTrailingSlash(path);
    struct stat entry {};
    if (::stat(name.c_str(), &entry) == 0 || ::mkdir(name.c_str(), 0777) == 0) {
        return true;
    }
    // Another process may have made it between the two calls. A link that leads nowhere exists as well, and
    // is of no use.
    int const error = errno;
    bool const exists = error == EEXIST && ::stat(name.c_str(), &entry) == 0;
    errno = error;
    return exists;
}

std::vector<std::string> GetDirectoryEntries(std::string const& directory) {
    std::vector<std::string> names;
    std::unique_ptr<DIR, ClosedDirectory> const stream(::opendir(WithoutTrailingSlash(directory).c_str()));
    while (stream) {
        dirent const* const entry = ::readdir(stream.get());
        if (entry == nullptr) {
            break;
        }
        std::string_view const name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    return names;
}

bool RenameFile(std::string const& from, std::string const& to) {
    return ::rename(from.c_str(), to.c_str()) == 0;
}

bool RemoveFile(std::string const& path) {
    return ::unlink(path.c_str()) == 0;
}

bool RemoveDirectoryPath(std::string const& path) {
    return ::rmdir(path.c_str()) == 0;
}

bool RemoveDirectoryTree(std::string const& path, std::ostream& errors) {
    std::string const directory = EnsureDirectoryPath(path);
    // No path at all is not the root.
    if (path.empty() || !DirectoryExists(directory)) {
        return true;
    }
    bool removed = true;
    std::vector<std::string> subdirectories;
    for (std::string const& name : GetDirectoryEntries(directory)) {
        removed = RemoveEntry(directory + name, subdirectories, errors) && removed;
    }
    for (std::string const& subdirectory : subdirectories) {
        removed = RemoveDirectoryTree(subdirectory, errors) && removed;
    }
    if (!RemoveDirectoryPath(directory)) {
        errors << directory << " (failed to remove)\n";
        removed = false;
    }
    return removed;
}

bool ResizeFile(std::FILE* file, std::int64_t size) {
    std::fflush(file);
    return ::ftruncate(::fileno(file), size) == 0;
}

std::FILE* OpenSharedFile(std::string const& path, char const* mode) {
    // Not for children: the lock on a file lives as long as anybody has it open.
    return std::fopen(path.c_str(), (std::string(mode) + "e").c_str());
}

bool GetDiskFreeSpaceFile(std::string const& path, std::uint64_t& out) {
    out = 0;
    struct statvfs system {};
    if (::statvfs(GetDirectoryOf(path).c_str(), &system) != 0) {
        return false;
    }
    out = static_cast<std::uint64_t>(system.f_bavail) * system.f_frsize;
    return true;
}

bool LockFile(std::FILE* file, std::chrono::seconds limit, bool* timedOut) {
    using Clock = std::chrono::steady_clock;
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    int const descriptor = ::fileno(file);
    if (limit == std::chrono::seconds::max()) {
        int result = 0;
        do {
            result = ::flock(descriptor, LOCK_EX);
        } while (result != 0 && errno == EINTR);
        return result == 0;
    }
    auto const start = Clock::now();
    auto const longest = std::chrono::duration_cast<std::chrono::seconds>(Clock::time_point::max() - start);
    auto const end = start + std::min(limit, longest);
    while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (Clock::now() > end) {
            if (timedOut != nullptr) {
                *timedOut = true;
            }
            return false;
        }
    }
    return true;
}

bool UnlockFile(std::FILE* file) {
    return ::flock(::fileno(file), LOCK_UN) == 0;
}

std::string GetCurrentWorkingDirectory() {
    return Bounded(SystemText(::getcwd(nullptr, 0)));
}
