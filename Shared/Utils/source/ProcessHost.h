#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>

#include "Utils/FileDescriptor.h"

// What the process runner needs of this operating system and has no portable form.

/// Waits for the end of a process, a child or not, without reaping it.
class ProcessWatch {
public:
    explicit ProcessWatch(pid_t pid);
    /// Returns when the process has ended or the time is over, maybe sooner.
    /// @return true when it has surely ended; a process that its parent does not reap has.
    bool Wait(std::chrono::milliseconds atMost) const;

private:
    FileDescriptor m_descriptor;
};

/// A descriptor that becomes readable for good once Signal was called.
class WakeUp {
public:
    /// Not open when the system has none left.
    WakeUp();
    bool IsOpen() const { return m_descriptor.IsOpen(); }
    int Get() const { return m_descriptor.Get(); }
    void Signal() const;

private:
    FileDescriptor m_descriptor;
};

/// Bytes that can be read from the pipe now.
std::size_t BytesInPipe(int descriptor);

/// Splits a line of the process list into process id (0 when it has none) and command.
struct ProcessLine {
    pid_t pid = 0;
    std::string_view command;
};
ProcessLine ParseProcessLine(std::string_view line);

/// Is the command, as the process list has it, that of the program `name`? The list may cut names.
bool IsCommandOf(ProcessLine const& process, std::string_view name);
