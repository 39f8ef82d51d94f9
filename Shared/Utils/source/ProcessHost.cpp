#include "ProcessHost.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>

#include <array>
#include <charconv>
#include <cstdint>

#include "Utils/PathText.h"
#include "Utils/TextUtils.h"

namespace {

/// The process list cuts names at this length.
constexpr std::size_t kListedNameLength = 15;
/// Fields before the command: process id, terminal, state, time.
constexpr int kFieldsBeforeCommand = 4;

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
}

/// File name of the program that the process runs, whole; empty when the system does not tell.
std::string ProgramOf(pid_t pid) {
    constexpr std::string_view kDeleted = " (deleted)";
    std::array<char, 4096> target;
    std::string const link = "/proc/" + std::to_string(pid) + "/exe";
    ssize_t const length = ::readlink(link.c_str(), target.data(), target.size());
    std::string_view path(target.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    if (path.ends_with(kDeleted)) {
        path.remove_suffix(kDeleted.size());
    }
    return GetFileNameOf(std::string(path));
}

}  // namespace

ProcessWatch::ProcessWatch(pid_t pid) : m_descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))) {}

bool ProcessWatch::Wait(std::chrono::milliseconds atMost) const {
    // Without a descriptor this is a sleep.
    pollfd ended{.fd = m_descriptor.Get(), .events = POLLIN, .revents = 0};
    return ::poll(&ended, 1, static_cast<int>(atMost.count())) == 1 && (ended.revents & POLLIN) != 0;
}

WakeUp::WakeUp() : m_descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void WakeUp::Signal() const {
    std::uint64_t const one = 1;
    static_cast<void>(!::write(m_descriptor.Get(), &one, sizeof one));
}

std::size_t BytesInPipe(int descriptor) {
    int count = 0;
    return ::ioctl(descriptor, FIONREAD, &count) == 0 && count > 0 ? static_cast<std::size_t>(count) : 0;
}

ProcessLine ParseProcessLine(std::string_view line) {
    ProcessLine process;
    SkipBlanks(line);
    std::from_chars(line.data(), line.data() + line.size(), process.pid);
    for (int field = 0; field < kFieldsBeforeCommand && line.find(' ') != std::string_view::npos; ++field) {
        line.remove_prefix(line.find(' '));
        SkipBlanks(line);
    }
    process.command = line;
    return process;
}

bool IsCommandOf(ProcessLine const& process, std::string_view name) {
    if (process.command != name.substr(0, kListedNameLength)) {
        return false;
    }
    if (name.size() < kListedNameLength) {
        return true;
    }
    std::string const program = ProgramOf(process.pid);
    // A script's name is listed too, and its program is the interpreter.
    bool const listedWhole = name.size() == kListedNameLength && !ContainsPrefix(program, name);
    return listedWhole || program == name;
}
