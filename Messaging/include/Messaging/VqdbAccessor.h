#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <unordered_map>
#include <vector>

#include "Messaging/VqdbOutput.h"
#include "Utils/Process.h"

/// Drives the device bridge, the command-line tool `vqdb`, which reaches a headset over its cable or the
/// network: each call runs the tool and reads what it prints. Remembers the ports that it has connected, and
/// disconnects them at its end. Failures are logged.
///
/// Threads: any; commands of several threads run side by side.
class VqdbAccessor {
public:
    /// For how long a tool may run; it is killed then. None: 30 s where there is a stop token, and for good
    /// where there is none, so that a tool that hangs holds its caller.
    using Limit = std::optional<std::chrono::milliseconds>;

    /// @param serial  the device to talk to; empty for the bridge's default
    /// @param stop    for callers that must not be held up: a tool is killed that runs for 1 s once this is
    ///                requested
    /// @param limit   of each command
    explicit VqdbAccessor(std::string serial, std::stop_token stop = {}, Limit limit = {});
    VqdbAccessor(VqdbAccessor const&) = delete;
    VqdbAccessor& operator=(VqdbAccessor const&) = delete;
    /// Disconnects the ports.
    ~VqdbAccessor();

    /// Was the tool found?
    bool IsConfigured() const;

    /// @param serials  of all devices that the bridge knows
    bool GetConnectedDevices(std::vector<std::string>& serials) const;

    /// The device to use when the user names none: that of VQ_SERIAL, or the only one.
    /// @param serial  the value of VQ_SERIAL also when there is no such device
    /// @param error   for the user, on failure
    /// @param limit   of the tool's run
    static bool GetDefaultDevice(std::string& serial, std::string& error, Limit limit = {});

    /// Does this device answer?
    bool IsConnected() const;

    /// Connects a port of this machine to one of the device: who connects here arrives there.
    bool ForwardPort(int local, int remote);
    /// Connects a port of the device to one of this machine: who connects there arrives here.
    bool ReversePort(int local, int remote);
    bool UnforwardPort(int local, int remote);
    bool UnreversePort(int local, int remote);

    /// What an application on the device is doing. Once the tool has printed a list that is not understood,
    /// a package that is not listed is taken to be running, in the whole process and for good.
    bool GetPackageState(VqdbPackageState& state, std::string const& package,
                         std::string const& component) const;

    /// Disconnects all ports that this object has connected, several at a time, and forgets them.
    /// @param stopOnError  leave the reversed ones as they are when a forwarded one cannot be removed
    bool CleanupPorts(bool stopOnError);

private:
    using Ports = std::unordered_map<int, int>;

    std::vector<std::string> CompleteArguments(std::vector<std::string> arguments) const;
    /// Throws ProcessException.
    ProcessResult Run(std::vector<std::string> const& commandLine) const;
    /// Runs one command and hands its result on; false, logged, when the tool cannot be run.
    bool RunAndThen(std::vector<std::string> arguments,
                    std::function<bool(ProcessResult const&)> const& then) const;
    /// Removes each port on a thread of its own. Throws what these threads throw.
    bool RemovePorts(Ports const& ports, bool forwarded) const;

    std::string const m_serial;
    std::string const m_toolPath;
    std::stop_token const m_stop;
    Limit const m_limit;
    std::recursive_mutex m_mutex;  // guards the maps
    Ports m_forwardedPorts;        ///< local to remote
    Ports m_reversedPorts;         ///< remote to local
};
