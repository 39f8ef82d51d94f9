#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "Utils/Process.h"

/// Why a process could not be started.
class ProcessException : public std::exception {
public:
    explicit ProcessException(std::string text) : m_text(std::move(text)) {}
    char const* what() const noexcept override { return m_text.c_str(); }

private:
    std::string m_text;
};

/// Describes a child process and starts it, any number of times. No shell reads any of it. In the child no
/// signals are blocked, and SIGPIPE has its usual effect.
///
/// Threads: an object is used by one at a time. Starting with a working directory changes that of the whole
/// process for a moment: nothing that depends on it may run meanwhile.
class ProcessFactory {
public:
    /// @param arguments  the program first: a path, or a name that is searched beside this program and on
    ///                   PATH
    explicit ProcessFactory(std::vector<std::string> arguments);

    /// Adds "NAME=value" entries; they replace what this process has under the same name.
    ProcessFactory& AddEnvironment(std::vector<std::string> const& entries);
    ProcessFactory& WithCurrentWorkingDirectory(std::string path);
    /// Starts the program in its own directory.
    ProcessFactory& WithExecutableWorkingDirectory();
    /// Without effect on this platform.
    ProcessFactory& RunInConsole();
    /// Captures both output streams.
    ProcessFactory& ReadingStdoutStderr();
    /// Gives the child a pipe for input; see Process::GetInputFileDescriptor.
    ProcessFactory& WritingStdin();
    /// A process group of its own, and no input unless WritingStdin.
    ProcessFactory& RunDetached();
    /// Without effect on this platform.
    ProcessFactory& Debuggable();

    /// Starts the child. Throws ProcessException, and leaves nothing behind then. A file that turns out not
    /// to be a program gives a Process in state kNoProcess.
    Process Spawn() const;
    /// Starts the child and waits for its end. With WritingStdin use Spawn: nobody can write here.
    ProcessResult Run() const;

private:
    std::string Describe() const;
    /// The child's, with the extra entries; empty when there are none.
    std::vector<std::string> Environment() const;

    std::vector<std::string> m_arguments;
    std::string m_executable;
    std::vector<std::string> m_extraEnvironment;
    std::string m_workingDirectory;
    bool m_runInConsole = false;
    bool m_readingStdoutStderr = false;
    bool m_writingStdin = false;
    bool m_detached = false;
    bool m_debuggable = false;
};
