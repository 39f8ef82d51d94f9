#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "DescriptorPoll.h"
#include "Utils/FileDescriptor.h"
#include "VirtualDeviceServer/DeviceTable.h"

namespace vq::server {

/// The processes behind device applications: launches programs where that is allowed, ends those that it has
/// launched, and notices the end of any.
///
/// Threads: one.
class ApplicationProcesses {
public:
    /// @param how  what is known of the end, such as "ended with exit status 3"
    using OnEnded = std::function<void(std::int64_t processId, std::string const& how)>;
    using Refusal = std::optional<std::string>;

    /// @param directory  programs in it may be launched; empty: none may
    /// @param address    where the programs find the server
    /// @param poll       outlives this object
    ApplicationProcesses(std::string directory, std::string address, DescriptorPoll& poll, OnEnded onEnded);
    ApplicationProcesses(ApplicationProcesses const&) = delete;
    ApplicationProcesses& operator=(ApplicationProcesses const&) = delete;
    ~ApplicationProcesses();

    /// File names of the programs that may be launched, sorted.
    std::vector<std::string> Available() const;

    /// Starts a program of the directory.
    /// @param manifest    given to it by its option --manifest, unless empty
    /// @param keepOutput  its output goes where the server's goes, else nowhere
    /// @param processId   of the new process
    Refusal Launch(std::string const& name, std::string const& manifest, bool keepOutput,
                   std::int64_t& processId);

    /// Has this object launched a process that has not ended yet?
    bool IsOwn(std::int64_t processId) const { return m_own.contains(static_cast<pid_t>(processId)); }
    /// Asks one of its own to end; kills it when it has not done so after 5 s.
    void Terminate(std::int64_t processId, TimePoint now);

    /// Reports the end of that process too, once. One that cannot be watched, because it is not of this
    /// machine or not known to the system, is not.
    void Watch(std::int64_t processId);

    /// To be called often: takes leave of its own that have ended, and kills what was asked to end long ago.
    void Tick(TimePoint now);

private:
    static constexpr std::chrono::seconds kTerminateTime{5};
    /// Descriptors for foreign processes; what is above is not watched.
    static constexpr std::size_t kMaximumWatched = 1024;

    std::string PathOf(std::string const& name) const;

    std::string const m_directory;
    std::string const m_address;
    DescriptorPoll& m_poll;
    OnEnded const m_onEnded;
    /// Own processes, and when each is to be killed.
    std::map<pid_t, std::optional<TimePoint>> m_own;
    std::map<std::int64_t, FileDescriptor> m_watched;
};

}  // namespace vq::server
