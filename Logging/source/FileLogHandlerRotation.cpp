#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

#include "FileLogHandlerGuard.h"
#include "Logging/Log.h"
#include "Utils/OSUtils.h"

// Moving the log out of the way. It is copied and cut to nothing, since other processes have it open.

namespace {

constexpr std::size_t kCopyBlock = 16384;
constexpr std::size_t kCopyBuffer = std::size_t{1} << 20;
constexpr std::chrono::seconds kRotationPatience{60};

/// Local midnight of today.
bool GetMidnightTime(std::time_t& out) {
    std::time_t const now = std::time(nullptr);
    std::tm local{};
    if (::localtime_r(&now, &local) == nullptr) {
        LOG_PLAIN_E("The clock is broken.  I have no idea what today is.");
        return false;
    }
    local.tm_hour = 0;
    local.tm_min = 0;
    local.tm_sec = 0;
    local.tm_isdst = -1;
    out = std::mktime(&local);
    return true;
}

std::string LastError() {
    return GetOSErrorText(errno);
}

std::uint64_t LengthOf(int descriptor) {
    struct stat file {};
    return ::fstat(descriptor, &file) == 0 ? static_cast<std::uint64_t>(file.st_size) : 0;
}

/// Copies a file from `offset` to its end and moves the offset there.
/// @return false, with errno, when reading or writing failed.
bool CopyRest(int from, std::uint64_t& offset, std::FILE* to) {
    std::array<char, kCopyBlock> block;
    for (;;) {
        ssize_t const count = ::pread(from, block.data(), block.size(), static_cast<off_t>(offset));
        if (count == 0) {
            return std::fflush(to) == 0;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 || std::fwrite(block.data(), 1, static_cast<std::size_t>(count), to) !=
                             static_cast<std::size_t>(count)) {
            return false;
        }
        offset += static_cast<std::uint64_t>(count);
    }
}

/// Whether an open file begins with all that another holds.
bool BeginsWith(int descriptor, std::string const& path) {
    std::ifstream other(path, std::ios::binary);
    std::array<char, kCopyBlock> expected;
    std::array<char, kCopyBlock> block;
    off_t offset = 0;
    while (other.read(expected.data(), expected.size()), other.gcount() > 0) {
        auto const wanted = static_cast<std::size_t>(other.gcount());
        if (::pread(descriptor, block.data(), wanted, offset) != other.gcount() ||
            std::memcmp(block.data(), expected.data(), wanted) != 0) {
            return false;
        }
        offset += other.gcount();
    }
    return other.eof();
}

}  // namespace

void FileLogHandler::SetMaxFileSize(unsigned long size) {
    Guard const guard(*this);
    m_maxFileSize = size;
    std::FILE* const file = m_stream;
    if (file != nullptr && LockFile(file, m_rotateLockTimeout)) {
        CheckLogFileSize(0);
        UnlockFile(file);
    }
}

std::vector<DatedLog> FileLogHandler::GetLogsAtLocation() {
    Guard const guard(*this);
    return DoGetLogsAtLocation();
}

std::vector<DatedLog> FileLogHandler::GetOldLogsAtLocation() {
    Guard const guard(*this);
    return DoGetOldLogsAtLocation();
}

std::vector<DatedLog> FileLogHandler::DoGetLogsAtLocation() {
    std::vector<DatedLog> logs;
    RunUnderLogRotateLockFile([&] { logs = m_names.List(); });
    return logs;
}

std::vector<DatedLog> FileLogHandler::DoGetOldLogsAtLocation() {
    std::vector<DatedLog> logs = DoGetLogsAtLocation();
    std::time_t midnight = 0;
    if (!GetMidnightTime(midnight)) {
        return {};
    }
    std::erase_if(logs, [midnight](DatedLog const& log) { return log.time >= midnight; });
    return logs;
}

bool FileLogHandler::RunUnderLogRotateLockFile(std::function<void()> const& action) {
    FileLogBusy const busy;
    if (!m_lockFile || m_rotating) {
        action();
        return true;
    }
    auto const start = std::chrono::steady_clock::now();
    while (!LockFile(m_lockFile.get(), m_rotateLockTimeout)) {
        if (std::chrono::steady_clock::now() - start >= kRotationPatience) {
            LOG_PLAIN_E("Timed out waiting for logfile directory lock... forging ahead...");
            return false;
        }
        LOG_PLAIN_V("Waiting for logfile directory lock...");
    }
    struct Unlock {
        FileLogHandler& handler;
        ~Unlock() {
            handler.m_rotating = false;
            UnlockFile(handler.m_lockFile.get());
        }
    };
    m_rotating = true;
    Unlock const unlock{*this};
    action();
    return true;
}

void FileLogHandler::CheckLogFileSize(std::size_t extra) {
    if (m_stream == nullptr || !m_lockFile) {
        return;
    }
    std::uint64_t const size = GetCurrentFileSize();
    if (size != 0 && size + extra >= m_maxFileSize) {
        LOG_PLAIN_V("Log file is %llu bytes, rotating...", static_cast<unsigned long long>(size));
        RunUnderLogRotateLockFile([this] { RotateOpenLog(); });
        LOG_PLAIN_V("... done!");
    }
}

void FileLogHandler::CheckLogFileDate() {
    if (!m_lockFile) {
        return;
    }
    std::vector<DatedLog> const logs = DoGetOldLogsAtLocation();
    bool const isOld =
        std::any_of(logs.begin(), logs.end(), [this](DatedLog const& log) { return log.path == m_fullPath; });
    if (isOld) {
        LOG_PLAIN_V("Moving old log file out of the way...");
        RunUnderLogRotateLockFile([this] { RotateExistingLog(); });
        LOG_PLAIN_V("... done!");
    }
}

std::uint64_t FileLogHandler::GetCurrentFileSize() {
    std::FILE* const file = m_stream;
    off_t const position = file != nullptr ? ::lseek(::fileno(file), 0, SEEK_CUR) : -1;
    if (position < 0) {
        return 0;
    }
    struct stat entry {};
    if (::fstat(::fileno(file), &entry) != 0) {
        LOG_PLAIN_E("Failed to query log file %s size: %s", m_fullPath.c_str(), LastError().c_str());
        return static_cast<std::uint64_t>(position);
    }
    return static_cast<std::uint64_t>(entry.st_size);
}

void FileLogHandler::RotateExistingLog() {
    if (!m_lockFile) {
        return;
    }
    std::FILE* const file = OpenSharedFile(m_fullPath, "r+t");
    if (file == nullptr) {
        LOG_PLAIN_E("Failed to open log file %s (%s)", m_fullPath.c_str(), LastError().c_str());
        return;
    }
    // What is written below must not land on lines that another process adds meanwhile.
    ::fcntl(::fileno(file), F_SETFL, ::fcntl(::fileno(file), F_GETFL) | O_APPEND);
    m_stream = file;
    if (LockFile(file, m_lockTimeout)) {
        RotateOpenLog();
        UnlockFile(file);
    } else {
        LOG_PLAIN_E("Failed to open log file %s (%s)", m_fullPath.c_str(), LastError().c_str());
    }
    DoFlush();
    std::fclose(m_stream.exchange(nullptr));
}

// The copy is made under one hidden name and gets another when it is complete, then the log is emptied, then
// the copy gets its dated name. Whoever dies in between leaves what the next one can finish or undo.

void FileLogHandler::RotateOpenLog() {
    int const log = ::fileno(m_stream);
    // Another process may have seen the same old log and moved it while we waited for the lock.
    std::string target;
    if (LengthOf(log) == 0 || !FinishRotation() ||
        !m_names.MakeUniqueDatedLogFile(m_fullPath, m_maxDatedFiles, target)) {
        return;
    }
    LOG_PLAIN_V("Rotating log into %s...", target.c_str());
    std::string const unfinished = m_names.InDirectory("." + m_names.baseName + ".rotating");
    if (!CopyLog(unfinished, target)) {
        RemoveFile(unfinished);
        return;
    }
    if (!ResizeFile(m_stream, 0)) {
        LOG_PLAIN_E("Failed to empty log file %s: %s", m_fullPath.c_str(), LastError().c_str());
    }
    ::lseek(log, 0, SEEK_SET);
    FinishRotation();
}

/// Deals with a complete copy of the log that has no dated name yet: gives it one when the log was emptied,
/// else removes it.
/// @return false, with a line logged, when it is still there.
bool FileLogHandler::FinishRotation() {
    std::string const copy = m_names.InDirectory("." + m_names.baseName + ".rotated");
    if (!FileExists(copy)) {
        return true;
    }
    if (BeginsWith(::fileno(m_stream), copy)) {
        RemoveFile(copy);
        return true;
    }
    std::string target;
    if (!m_names.MakeUniqueDatedLogFile(copy, m_maxDatedFiles, target)) {
        return false;
    }
    if (!RenameFile(copy, target)) {
        LOG_PLAIN_E("Failed to open backup log file %s: %s", target.c_str(), LastError().c_str());
        return false;
    }
    return true;
}

/// Copies the open log, times included, into the file `unfinished` and gives that the name of a complete
/// copy.
/// @param target  the name it will get in the end, for what is logged.
bool FileLogHandler::CopyLog(std::string const& unfinished, std::string const& target) {
    int const log = ::fileno(m_stream);
    struct stat times {};
    ::fstat(log, &times);
    RemoveFile(unfinished);
    std::vector<char> buffer(kCopyBuffer);  // outlives the stream
    std::unique_ptr<std::FILE, ClosedFile> const copy(OpenSharedFile(unfinished, "at"));
    if (!copy) {
        LOG_PLAIN_E("Failed to open backup log file %s: %s", target.c_str(), LastError().c_str());
        return false;
    }
    std::setvbuf(copy.get(), buffer.data(), _IOFBF, buffer.size());
    std::uint64_t copied = 0;
    if (!CopyRest(log, copied, copy.get())) {
        LOG_PLAIN_E("Log file backup to %s failed: %s", target.c_str(), LastError().c_str());
        return false;
    }
    utimbuf const both{times.st_atime, times.st_mtime};
    if (times.st_mtime != 0 && ::utime(unfinished.c_str(), &both) != 0) {
        LOG_PLAIN_W("Failed to restore timestamps on %s: %s", m_fullPath.c_str(), LastError().c_str());
    }
    // A writer that did not wait for the lock may have added to the log meanwhile.
    if ((LengthOf(log) > copied && !CopyRest(log, copied, copy.get())) ||
        !RenameFile(unfinished, m_names.InDirectory("." + m_names.baseName + ".rotated"))) {
        LOG_PLAIN_E("Log file backup to %s failed: %s", target.c_str(), LastError().c_str());
        return false;
    }
    return true;
}
