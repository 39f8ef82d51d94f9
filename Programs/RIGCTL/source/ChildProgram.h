#pragma once

#include <signal.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Peer.h"
#include "Utils/FileDescriptor.h"

namespace vq::rigctl {

/// A program that this one has started. One thread.
class ChildProgram {
public:
    enum class Bond {
        None,      ///< it goes on when we end; the destructor leaves it alone
        Lifelong,  ///< the kernel kills it when we die, and the destructor ends it
    };
    struct Options {
        Bond bond = Bond::None;
        bool background = false;         ///< a session of its own, and no standard streams
        int third = -1;                  ///< becomes its descriptor 3; the caller keeps this one
        sigset_t const* mask = nullptr;  ///< signals that it begins with blocked; null: ours
    };

    /// @param arguments  the first one is a path, or the name of a program on PATH
    /// Throws Failure, with kCannotStart, when it cannot be started.
    ChildProgram(std::vector<std::string> const& arguments, Options const& options);
    ChildProgram(ChildProgram const&) = delete;
    ChildProgram& operator=(ChildProgram const&) = delete;
    ~ChildProgram();

    pid_t Id() const { return m_id; }
    /// Readable once it has ended; negative where the system gives no such descriptor.
    int Descriptor() const { return m_descriptor.Get(); }
    /// Its exit status, or 128 and the number of the signal that ended it; nothing while it runs.
    std::optional<int> Status();
    void Signal(int number) const;
    /// SIGTERM, and SIGKILL at the deadline. It has ended then.
    void End(Clock::time_point deadline);

private:
    /// @param options  of waitpid
    void Wait(int options);

    Bond const m_bond;
    pid_t m_id = -1;
    FileDescriptor m_descriptor;
    std::optional<int> m_status;
};

/// Exit status when a program cannot be started, as shells have it.
inline constexpr int kCannotStart = 127;

}  // namespace vq::rigctl
