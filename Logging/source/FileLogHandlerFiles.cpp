#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "FileLogHandlerGuard.h"
#include "Logging/Log.h"
#include "Utils/OSUtils.h"

// Opening and closing the log and its lock file.

bool FileLogHandler::EnsureFile() {
    Guard const guard(*this);
    return m_stream != nullptr || OpenOrFallBack();
}

/// A log that does not open gives way to one of the standard name in the same directory.
bool FileLogHandler::OpenOrFallBack() {
    m_fullPath = m_names.FullPath();
    int error = TryEnsureFile();
    if (error == 0) {
        return true;
    }
    LOG_PLAIN_E("*** failed to open log stream: %s (%s)", m_fullPath.c_str(), GetOSErrorText(error).c_str());
    std::string const fallback = "logfile";
    if (m_names.baseName == fallback && m_names.directory == GetUserTempDirectory()) {
        return false;
    }
    m_names.baseName = fallback;
    m_fullPath = m_names.FullPath();
    error = TryEnsureFile();
    if (error != 0) {
        LOG_PLAIN_E("failed to open fallback %s (%s)", m_fullPath.c_str(), GetOSErrorText(error).c_str());
        m_fullPath.clear();
    }
    return error == 0;
}

/// @return 0, or the errno value that tells why the log is not open.
int FileLogHandler::TryEnsureFile() {
    if (TryEnsureLogRotateLockFile()) {
        CheckLogFileDate();
    }
    errno = 0;
    std::unique_ptr<std::FILE, ClosedFile> file(OpenSharedFile(m_fullPath, "a+t"));
    if (!file || !LockFile(file.get(), m_lockTimeout)) {
        int const error = file ? EAGAIN : errno;
        m_lockFile.reset();
        return error != 0 ? error : EIO;
    }
    m_stream = file.release();
    if (m_lockFile) {
        FinishRotation();
    }
    bool const wasEmpty = GetCurrentFileSize() == 0;
    WriteBanner();
    if (wasEmpty) {
        LOG_PLAIN_I("Logging to %s", m_fullPath.c_str());
    }
    UnlockFile(m_stream);
    return 0;
}

void FileLogHandler::WriteBanner() {
    std::ostringstream banner;
    banner << "*** " << m_programName << " pid " << ::getpid() << " started logging at ";
    FormatTime(banner, std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now()), true);
    banner << '\n';
    Write(banner.str(), true);
}

bool FileLogHandler::TryEnsureLogRotateLockFile() {
    if (m_lockFile) {
        return true;
    }
    std::string const path = m_names.InDirectory("." + m_names.baseName + ".lock");
    m_lockFile.reset(OpenSharedFile(path, "w+"));
    if (!m_lockFile) {
        LOG_PLAIN_E("failed to create lockfile %s, cannot rotate logs (%s)", path.c_str(),
                    GetOSErrorText(errno).c_str());
    }
    return m_lockFile != nullptr;
}

/// A log that was removed, or whose path now names another file, would be written to for nobody: opens what
/// the path stands for.
void FileLogHandler::ReopenReplacedFile() {
    std::FILE* const file = m_stream;
    struct stat open {};
    if (m_rotating || file == nullptr || ::fstat(::fileno(file), &open) != 0) {
        return;
    }
    struct stat named {};
    bool const replaced = ::stat(m_fullPath.c_str(), &named) == 0 &&
                          (named.st_dev != open.st_dev || named.st_ino != open.st_ino);
    if (replaced || open.st_nlink == 0) {
        CloseFiles();
        OpenOrFallBack();
    }
}

void FileLogHandler::CloseFiles() {
    m_lockFile.reset();
    if (std::FILE* const file = m_stream.exchange(nullptr)) {
        std::fclose(file);
    }
}
