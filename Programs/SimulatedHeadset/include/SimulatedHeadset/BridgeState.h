#pragma once

#include <string>
#include <utility>
#include <vector>

namespace vq::headset {

/// What the simulated bridge remembers between two of its invocations: files in a directory of the user's.
/// Tests and the simulated headset write what the tool reads.
///
/// Threads and processes: any; each file is replaced as a whole.
class BridgeState {
public:
    /// In the user's directory for such things: programs with one HOME share it.
    BridgeState();

    struct Device {
        std::string serial;
        std::string state;  ///< "device" for one that can be used
    };
    std::vector<Device> Devices() const;
    void SetDevices(std::vector<Device> const& devices) const;
    /// Adds or replaces a device.
    void Attach(Device const& device) const;
    void Detach(std::string const& serial) const;

    /// What `ps -j` prints.
    std::string ProcessList() const;
    void SetProcessList(std::string const& json) const;

    /// Lets commands go wrong.
    /// @param rules  lines of a command ("devices", "get-state", "forward", "unforward", "reverse",
    ///               "unreverse", "ps", or "any") and one of: "exit CODE", "signal NUMBER", "hang",
    ///               "garbage", "slow MILLISECONDS" (between the pieces of output), "big BYTES" (on each
    ///               stream, before the rest)
    void SetMisbehaviour(std::string const& rules) const;
    /// The rule for a command, as its two words; empty for none.
    std::pair<std::string, std::string> MisbehaviourOf(std::string const& command) const;

    /// Every invocation: its arguments, a line each.
    std::vector<std::string> Calls() const;
    void NoteCall(std::string const& arguments) const;

    /// Directory of the tunnels' records, with a slash at the end.
    std::string TunnelDirectory() const { return m_directory + "tunnels/"; }

private:
    std::string Read(char const* file) const;
    void Write(char const* file, std::string const& text) const;

    std::string m_directory;
};

}  // namespace vq::headset
