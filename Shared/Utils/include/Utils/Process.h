#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <vector>

/// What remains of a process when it ends. A plain value.
struct ProcessResult {
    /// The code where nothing better is known.
    static constexpr std::int32_t kUnknownCode = std::numeric_limits<std::int32_t>::min();

    // Values of `state`.
    static constexpr std::int32_t kNone = 0;       ///< still running, or a system call failed
    static constexpr std::int32_t kExited = 1;     ///< by itself; or gone with its status unknown
    static constexpr std::int32_t kSignalled = 2;  ///< killed by a signal
    static constexpr std::int32_t kNoProcess = 3;  ///< there is no such process

    /// By state: exit status or kUnknownCode; signal number; errno of a failed Kill, or the signal that
    /// stopped the process; kUnknownCode or the system's wait status.
    std::int32_t code = 0;
    std::int32_t state = kNone;
    /// All that the child wrote, if it was captured.
    std::string standardOutput;
    std::string standardError;
};

class ProcessRunState;

/// A running or finished process: one that ProcessFactory has started, or any by its id. Destroying it ends
/// the capture of output and leaves the process alone.
///
/// Threads: an object is used by one at a time. Two objects for one child compete for its exit status.
class Process {
public:
    /// Wraps a process id; below 1 stands for no process.
    explicit Process(std::int32_t pid);
    /// A child with what its parent keeps of it.
    Process(std::int32_t pid, std::unique_ptr<ProcessRunState> runState);
    Process(Process&& other) noexcept;
    Process& operator=(Process&& other) noexcept;
    ~Process();

    /// Id of the calling process.
    static std::int32_t GetCurrent();
    std::int32_t GetPid() const { return m_pid; }

    /// A process of another user counts as running. Takes leave of a child that has ended.
    bool IsRunning();

    /// @param timeout  milliseconds::max() waits without limit; 0 looks once
    /// @return state kNone when it still runs; else the stored result, the same at every call
    ProcessResult WaitForExit(std::chrono::milliseconds timeout);

    /// SIGTERM, then at once SIGKILL, then waits for the end. Signals nobody when the end is known already,
    /// and nobody but a single process ever.
    ProcessResult Kill();

    /// A stream to the child's standard input, which the caller closes; a second call fails with an error
    /// line. Null for a process without input of ours.
    std::FILE* GetInputFileDescriptor() const;

    /// Stores the result, with the captured output, and ends the capture. All queries answer from it then.
    ProcessResult const& Finalize(ProcessResult const& result);

    /// Processes of the machine that run a program of that name.
    /// @param name  without directories, or with any; null lists all, and 0 for the head line of the list
    /// @return empty when they cannot be listed: that needs a working directory where files can be made
    static std::vector<std::int32_t> FindRunningProcesses(char const* name);
    static bool IsRunning(std::string const& name);
    /// Kills every process of that name. False when there was none.
    static bool KillRunningProcesses(std::string const& name);

private:
    ProcessResult DecodeAndFinalize(int status);

    std::int32_t m_pid;
    std::unique_ptr<ProcessRunState> m_runState;
    std::unique_ptr<ProcessResult> m_result;
};
