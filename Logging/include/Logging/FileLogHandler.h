#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Logging/LogHandler.h"
#include "Logging/SpinningMutex.h"

class LogLine;
struct LogPlace;

/// A log file and when it was last written to.
struct DatedLog {
    std::time_t time = 0;  ///< modification time, seconds since the epoch
    std::string path;
};

/// The parts of a log file's path, and the names of the files that belong to it.
struct LogFileNames {
    std::string directory;  ///< with its last separator
    std::string baseName;   ///< file name up to its last "."
    std::string extension;  ///< from that "." on; empty without one

    /// Takes a path apart.
    static LogFileNames FromPath(std::string const& path);

    /// Path of an entry of the directory; the working directory is left out.
    std::string InDirectory(std::string const& name) const;
    std::string FullPath() const { return InDirectory(baseName + extension); }

    /// The log and its rotated siblings that exist, oldest first. A log without extension has none.
    std::vector<DatedLog> List() const;

    /// A free name for a log to be rotated into: dated by its modification time, and numbered when that is
    /// taken.
    /// @param log    the log's path.
    /// @param count  numbers to try.
    /// @param out    the name.
    /// @return false, with a warning logged, when all are taken.
    bool MakeUniqueDatedLogFile(std::string const& log, int count, std::string& out) const;
};

/// A sink that writes to a text file which several processes share: buffers in the process, folds repeated
/// records into one line with a count, and rotates the file by size, and by date when it opens it. Nothing is
/// open until the first record. Trouble is told to the other sinks by plain records. Any thread, but none of
/// this from inside a log callback. In a forked child the handler leaves what its parent has logged to the
/// parent, and opens the file again for what the child logs.
class FileLogHandler : public BaseStdioLogHandler {
public:
    /// For GetDefaultLocation, buffered, without colour, at most 128 MiB.
    explicit FileLogHandler(LogConfig& config);
    ~FileLogHandler() override;

    /// "logfile.txt" in the user's directory.
    static std::string GetDefaultLocation();

    /// Closes the log; the next record opens the file of this path. What is still buffered goes there too.
    void SetLocation(std::string const& path);
    /// Full path of the log; empty after neither it nor a fallback beside it could be opened.
    std::string GetLocation() const;

    /// Without the buffer every record is written at once and repeats are not folded.
    void SetBuffered(bool buffered);
    bool IsBuffered() const;

    /// @param size  bytes; a write that would reach it rotates the file first, and so does this call when an
    ///              open log is as long already.
    void SetMaxFileSize(unsigned long size);
    unsigned long GetMaxFileSize() const;

    /// A record that is empty opens the file and writes nothing.
    void Log(LogRecord const& record) override;

    /// Writes what is buffered, and the pending repeat.
    void Flush();
    void FlushWithin(std::chrono::seconds limit) override;
    /// The same, then closes the file; the next record opens it again.
    void Close();

    /// This log and its rotated siblings, oldest first.
    std::vector<DatedLog> GetLogsAtLocation();
    /// Those of them that were last written to before today.
    std::vector<DatedLog> GetOldLogsAtLocation();

private:
    struct ClosedFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    class Guard;

    void FormatHeader(LogLine& line, LogRecord const& record, std::string_view tag,
                      LogPlace const& place) const;

    // From here on all hold the mutex, and the thread is marked as busy.
    void ForgetParent();

    // Buffering.
    void Append(std::string_view line, std::chrono::nanoseconds now);
    void KeepRepeat(std::string_view line);
    void DoFlush();
    void FlushBuffer();
    void FlushStream(std::string_view text);
    bool LockBesideRotation();
    void Write(std::string_view text, bool locked);

    // Files.
    bool EnsureFile();
    bool OpenOrFallBack();
    int TryEnsureFile();
    void WriteBanner();
    bool TryEnsureLogRotateLockFile();
    void ReopenReplacedFile();
    void CloseFiles();

    // Rotation.
    bool RunUnderLogRotateLockFile(std::function<void()> const& action);
    void CheckLogFileSize(std::size_t extra);
    void CheckLogFileDate();
    std::uint64_t GetCurrentFileSize();
    void RotateExistingLog();
    void RotateOpenLog();
    bool CopyLog(std::string const& unfinished, std::string const& target);
    bool FinishRotation();
    std::vector<DatedLog> DoGetLogsAtLocation();
    std::vector<DatedLog> DoGetOldLogsAtLocation();

    std::string const m_programName;
    mutable SpinningMutex m_mutex;  // guards everything below; m_stream is only read without it
    LogFileNames m_names;
    std::string m_fullPath;
    std::string m_buffer;
    std::chrono::seconds m_lockTimeout{1};
    LogRecord m_lastRecord;
    std::uint64_t m_repeatCount = 0;
    std::string m_repeatText;
    bool m_buffered = true;
    std::size_t m_flushBytes = 65536;
    std::chrono::milliseconds m_flushInterval{100};
    std::chrono::nanoseconds m_lastFlush;               // on a monotonic clock
    std::unique_ptr<std::FILE, ClosedFile> m_lockFile;  // open while the log is
    std::chrono::seconds m_rotateLockTimeout{10};
    std::uint64_t m_maxFileSize = 134217728;
    int m_maxDatedFiles = 100;
    bool m_rotating = false;     // the lock file is locked by this handler
    bool m_writeFailed = false;  // and said so
    std::uint32_t m_forks;       // counted in the process that buffer and files belong to
};

/// Makes sure that the process-wide file log exists and is open, for a process that logs to a file by
/// default: at its default location, or in the directory that VDS_TEST_DIR names. Trouble shows on standard
/// error.
void ConfigureFileLogging();
