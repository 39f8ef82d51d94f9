#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "TestSupport/Patience.h"

namespace vq::test {

/// Where one of our programs lies.
inline std::string ProgramPath(std::string const& name) {
    return std::string(VQ_BINARY_DIR) + "/" + name;
}

/// The end of a program: its exit status, as WaitForExit tells it or -1, and all that it wrote.
struct Outcome {
    int status = -1;
    std::string output;
};

/// One child program of a test, spoken to by lines. The destructor kills and reaps it; the kernel kills it
/// when the test itself dies. One thread.
class ChildProcess {
public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    /// Starts `arguments[0]`, a path or the bare name of one of our programs, with both output streams
    /// captured into one and standard input open. A failure to start shows as an exit status of 127.
    /// @param environment  goes over that of the test
    explicit ChildProcess(std::vector<std::string> const& arguments, Environment const& environment = {});
    ~ChildProcess();
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    pid_t Pid() const { return m_pid; }

    /// Writes one line to the child's standard input. False when the child has closed it.
    bool WriteLine(std::string const& line);

    /// The next line of output that begins with `prefix`, without it; other lines are passed over (and kept
    /// in Output). Nothing at the end of the output or after `timeout`.
    std::optional<std::string> ReadLineWith(std::string const& prefix,
                                            std::chrono::milliseconds timeout = kPatience);

    void Signal(int number) const;
    void CloseInput();

    /// Exit status, or 128 plus the number of the signal that ended it; nothing after `timeout`.
    std::optional<int> WaitForExit(std::chrono::milliseconds timeout = kPatience);
    Outcome Finish();

    /// All output read so far, for failure messages and log assertions.
    std::string const& Output() const { return m_output; }
    /// Reads whatever is there now without waiting, and returns all output.
    std::string const& DrainOutput();

private:
    bool ReadSome(std::chrono::milliseconds timeout);

    pid_t m_pid = -1;
    int m_input = -1;
    int m_outputFd = -1;
    int m_pidFd = -1;
    std::string m_output;
    std::size_t m_scanned = 0;  // start of the first line not yet looked at by ReadLineWith
    std::optional<int> m_exit;
};

}  // namespace vq::test
