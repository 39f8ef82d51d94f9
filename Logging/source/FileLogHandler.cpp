#include "Logging/FileLogHandler.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>

#include "FileLogHandlerGuard.h"
#include "LogLine.h"
#include "Logging/LogConfig.h"
#include "Utils/OSUtils.h"
#include "Utils/ThreadUtils.h"

// Records, the buffer and its writing.

namespace {

/// What lines of one second have in common, a thread: its local time of day, and the system's name for a
/// thread that was given none.
struct SecondText {
    std::time_t second = -1;
    char time[6] = {};
    char threadName[24] = {};
};
constinit thread_local SecondText t_secondText;

void SetTwoDigits(char* out, int number) {
    out[0] = static_cast<char>('0' + number / 10);
    out[1] = static_cast<char>('0' + number % 10);
}

/// "HHMMSS.mmm", as LogHandler::FormatTime writes it.
void AddTime(LogLine& line, LogTimePoint time) {
    auto const seconds = std::chrono::floor<std::chrono::seconds>(time);
    std::time_t const second = std::chrono::system_clock::to_time_t(seconds);
    if (second != t_secondText.second) {
        std::tm local{};
        ::localtime_r(&second, &local);
        SetTwoDigits(t_secondText.time, local.tm_hour);
        SetTwoDigits(t_secondText.time + 2, local.tm_min);
        SetTwoDigits(t_secondText.time + 4, local.tm_sec);
        *t_secondText.threadName = '\0';
        t_secondText.second = second;
    }
    auto const milliseconds =
        static_cast<int>(std::chrono::floor<std::chrono::milliseconds>(time - seconds).count());
    char fraction[4] = {'.', static_cast<char>('0' + milliseconds / 100)};
    SetTwoDigits(fraction + 2, milliseconds % 100);
    line.Add(std::string_view(t_secondText.time, sizeof t_secondText.time));
    line.Add(std::string_view(fraction, sizeof fraction));
}

/// As GetThreadName, which asks the system each time about a thread that was given no name. Call it behind
/// AddTime.
void AddThreadName(LogLine& line) {
    std::string_view const given = GetGivenThreadName();
    if (!given.empty()) {
        line.Add(given);
        return;
    }
    char* const kept = t_secondText.threadName;
    if (*kept == '\0') {
        kept[GetThreadName().copy(kept, sizeof t_secondText.threadName - 1)] = '\0';
    }
    line.Add(std::string_view(kept));
}

/// A clock for intervals of many milliseconds, which is cheaper to read than an exact one.
std::chrono::nanoseconds CoarseNow() {
    std::timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

/// Whether the last line of a file was left unfinished, by a process that was killed as it wrote.
bool EndsInsideALine(int descriptor) {
    off_t const end = ::lseek(descriptor, 0, SEEK_END);
    char last = '\n';
    return end > 0 && ::pread(descriptor, &last, 1, end - 1) == 1 && last != '\n';
}

/// Forks between the process that made the first handler and this one.
constinit std::atomic<std::uint32_t> g_forks{0};

std::uint32_t CountForks() {
    static int const registered = ::pthread_atfork(nullptr, nullptr, [] { ++g_forks; });
    static_cast<void>(registered);
    return g_forks;
}

}  // namespace

FileLogHandler::FileLogHandler(LogConfig& config)
    : BaseStdioLogHandler(config, LogTarget::File),
      m_programName(GetExecutableName()),
      m_names(LogFileNames::FromPath(GetDefaultLocation())),
      m_fullPath(m_names.FullPath()),
      m_lastFlush(CoarseNow()),
      m_forks(CountForks()) {}

FileLogHandler::~FileLogHandler() {
    Close();
}

/// In a forked child: its parent writes what is buffered, and the open files have their locks in common with
/// the parent's.
void FileLogHandler::ForgetParent() {
    std::uint32_t const forks = g_forks.load(std::memory_order_relaxed);
    if (forks != m_forks) {
        m_forks = forks;
        m_buffer.clear();
        m_repeatCount = 0;
        m_lastRecord = LogRecord();
        CloseFiles();
    }
}

std::string FileLogHandler::GetDefaultLocation() {
    return GetUserTempDirectory() + "logfile.txt";
}

void FileLogHandler::SetLocation(std::string const& path) {
    Guard const guard(*this);
    CloseFiles();
    m_names = LogFileNames::FromPath(path);
    m_fullPath = m_names.FullPath();
}

std::string FileLogHandler::GetLocation() const {
    Guard const guard(*this);
    return m_fullPath;
}

void FileLogHandler::SetBuffered(bool buffered) {
    Guard const guard(*this);
    if (buffered != m_buffered) {
        FlushStream(m_buffer);
        m_buffered = buffered;
    }
}

bool FileLogHandler::IsBuffered() const {
    Guard const guard(*this);
    return m_buffered;
}

unsigned long FileLogHandler::GetMaxFileSize() const {
    Guard const guard(*this);
    return m_maxFileSize;
}

void FileLogHandler::Flush() {
    Guard const guard(*this);
    DoFlush();
}

void FileLogHandler::FlushWithin(std::chrono::seconds limit) {
    FileLogBusy const busy;
    if (m_mutex.try_lock_for(limit)) {
        std::lock_guard const lock(m_mutex, std::adopt_lock);
        ForgetParent();
        DoFlush();
    }
}

void FileLogHandler::Close() {
    Guard const guard(*this);
    DoFlush();
    CloseFiles();
}

void FileLogHandler::FormatHeader(LogLine& line, LogRecord const& record, std::string_view tag,
                                  LogPlace const& place) const {
    line.Add(ColorText(LogColor::Header));
    AddTime(line, record.time);
    line.Add(std::string_view(" <"));
    line.Add(m_programName);
    line.Add('~');
    AddThreadName(line);
    line.Add(std::string_view("> "));
    line.Add(ColorText(LogColor::Location));
    line.Add(tag);
    line.Add(*ShortLevelName(record.level));
    line.Add(' ');
    line.Add(place, record);
}

void FileLogHandler::Log(LogRecord const& record) {
    if (FileLogBusy::IsSet()) {
        return;
    }
    FileLogBusy const busy;
    if ((m_stream.load(std::memory_order_relaxed) == nullptr && !EnsureFile()) || record.IsEmpty()) {
        return;
    }
    LogPlace const place = LogPlace::FindMedium(record);
    std::string_view const tag = record.tag != nullptr ? record.tag : "";
    // Beside these texts: colours, the time, the thread's name, the line's number.
    LogLine line(m_programName.size() + tag.size() + place.name.size() + record.message.size() + 128);
    FormatHeader(line, record, tag, place);
    line.Add(ColorText(GetLevelColor(record.level)));
    line.Add(record.message);
    line.Add(ColorText(LogColor::Reset));
    std::size_t const length = line.View().size();
    line.Add('\n');
    std::chrono::nanoseconds const now = CoarseNow();

    std::lock_guard const lock(m_mutex);
    ForgetParent();
    if (m_stream == nullptr && !OpenOrFallBack()) {
        return;  // closed since we looked
    }
    if (m_buffered && record.IsRepeatOf(m_lastRecord)) {
        KeepRepeat(line.View().substr(0, length));
        return;
    }
    if (m_repeatCount != 0) {
        DoFlush();
    } else {
        m_lastRecord = record;
    }
    Append(line.View(), now);
}

void FileLogHandler::KeepRepeat(std::string_view line) {
    ++m_repeatCount;
    m_repeatText = line;
    m_repeatText += " (repeated ";
    m_repeatText += std::to_string(m_repeatCount);
    m_repeatText += m_repeatCount < 2 ? " time)\n" : " times)\n";
}

void FileLogHandler::Append(std::string_view line, std::chrono::nanoseconds now) {
    if (!m_buffered) {
        ReopenReplacedFile();
        FlushStream(line);
        return;
    }
    m_buffer += line;
    if (m_buffer.size() >= m_flushBytes || now >= m_lastFlush + m_flushInterval) {
        ReopenReplacedFile();
        FlushBuffer();
    }
}

void FileLogHandler::FlushBuffer() {
    // Without an open file it waits for the next one.
    if (m_stream != nullptr) {
        FlushStream(m_buffer);
        m_buffer.clear();
    }
}

void FileLogHandler::DoFlush() {
    if (m_stream == nullptr) {
        return;
    }
    ReopenReplacedFile();
    if (m_buffered) {
        FlushBuffer();
    }
    if (m_repeatCount != 0 && m_stream != nullptr) {
        m_repeatCount = 0;
        m_lastRecord = LogRecord();
        FlushStream(m_repeatText);
    }
}

void FileLogHandler::FlushStream(std::string_view text) {
    std::FILE* const file = m_stream;
    if (file == nullptr) {
        return;
    }
    if (!text.empty()) {
        FileLogBusy const busy;
        bool timedOut = false;
        bool locked = LockFile(file, m_lockTimeout, &timedOut);
        if (timedOut) {
            locked = LockBesideRotation();
        } else {
            CheckLogFileSize(text.size());
        }
        Write(text, locked);
        if (locked) {
            UnlockFile(file);
        }
    }
    m_lastFlush = CoarseNow();
}

/// Another process has held the log for long, perhaps to rotate it: waits for the end of that and tries
/// again.
bool FileLogHandler::LockBesideRotation() {
    if (m_lockFile && !m_rotating) {
        bool locked = LockFile(m_lockFile.get(), std::chrono::seconds(1));
        if (!locked) {
            LOG_PLAIN_E("waiting for log rotation on %s", m_fullPath.c_str());
            locked = LockFile(m_lockFile.get(), m_rotateLockTimeout);
        }
        if (locked) {
            UnlockFile(m_lockFile.get());
        }
    }
    bool timedOut = false;
    bool const locked = LockFile(m_stream, m_lockTimeout, &timedOut);
    if (timedOut) {
        LOG_PLAIN_E("log stream %s is stuck, writing anyway", m_fullPath.c_str());
    }
    return locked;
}

/// One write, past the stream: the file is open for appending, so that even without the lock lines stay
/// whole.
void FileLogHandler::Write(std::string_view text, bool locked) {
    int const descriptor = ::fileno(m_stream);
    std::size_t done = 0;
    int error = 0;
    if (locked && EndsInsideALine(descriptor)) {
        static_cast<void>(::write(descriptor, "\n", 1) < 0);  // what fails here fails below
    }
    while (done < text.size() && error == 0) {
        ssize_t const count = ::write(descriptor, text.data() + done, text.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            error = count == 0 ? EIO : errno;
        }
    }
    if (error == 0) {
        m_writeFailed = false;
        return;
    }
    off_t const end = ::lseek(descriptor, 0, SEEK_CUR);
    std::size_t const torn = done - (text.substr(0, done).rfind('\n') + 1);
    if (locked && torn != 0 && end >= 0) {
        // Others go on behind us once there is room again: leave them no half line.
        static_cast<void>(!::ftruncate(descriptor, end - static_cast<off_t>(torn)));
    }
    if (!std::exchange(m_writeFailed, true)) {
        LOG_PLAIN_E("failed to write log %s (%s)", m_fullPath.c_str(), GetOSErrorText(error).c_str());
    }
}

/// What the log core finds of this library, see LogFactory.
extern "C" LogHandler* vq_create_file_log_handler(LogConfig& config) {
    return new FileLogHandler(config);
}
