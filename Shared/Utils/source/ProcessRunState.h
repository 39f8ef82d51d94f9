#pragma once

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

#include "ProcessHost.h"
#include "Utils/FileDescriptor.h"
#include "Utils/Process.h"

/// Collects a child's output, each stream on a thread of its own, and holds the pipe to its input.
///
/// The threads touch only their own stream and pipe until they are joined. They end only when told: other
/// processes may hold the child's end of the pipe open long after the child is gone. Until then a silent or
/// closed pipe costs nothing.
class ProcessRunState {
public:
    /// Parents' ends of the pipes; not open where there is none.
    struct Pipes {
        FileDescriptor input;
        FileDescriptor output;
        FileDescriptor error;
    };

    /// Throws std::system_error when the system gives no thread or descriptor.
    explicit ProcessRunState(Pipes pipes);
    ProcessRunState(ProcessRunState const&) = delete;
    ProcessRunState& operator=(ProcessRunState const&) = delete;
    ~ProcessRunState();

    /// Ends the capture once all that is in the pipes now has been read, and moves it to the result.
    void Complete(ProcessResult& result);

    /// A stream on the input pipe, which the caller owns; null with errno when there is none (any more).
    std::FILE* TakeInput();

private:
    void Start(std::thread& thread, int descriptor, std::string& text);
    void MonitorStandardStream(int descriptor, std::string& text) const;
    /// Until the pipe can be read, if it is open, or the capture is to end.
    void WaitForMore(int descriptor) const;
    void Stop();

    std::atomic<bool> m_stop = false;
    WakeUp m_wakeUp;
    Pipes m_pipes;
    std::string m_outputText;
    std::string m_errorText;
    std::thread m_outputThread;
    std::thread m_errorThread;
};
