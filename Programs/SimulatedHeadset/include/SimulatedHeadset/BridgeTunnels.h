#pragma once

#include <optional>
#include <string>
#include <vector>

#include "SimulatedHeadset/BridgeState.h"

namespace vq::headset {

/// Connections between a port where somebody listens for the bridge and another port. The machine and the
/// headset are one here, so their port numbers must differ.
///
/// Each tunnel is a process of its own, which holds a lock on the tunnel's record and ends when the record is
/// gone.
class BridgeTunnels {
public:
    /// What a tunnel begins at: a port of the machine or one of the headset.
    enum class Kind { Forward, Reverse };

    struct Tunnel {
        Kind kind;
        std::string serial;
        int listen = 0;
        int target = 0;
    };

    explicit BridgeTunnels(BridgeState const& state) : m_directory(state.TunnelDirectory()) {}

    /// Living ones.
    std::vector<Tunnel> List() const;
    /// Starts a process for the tunnel; returns once connections are taken.
    /// @param rebind  take the place of a tunnel at the same port
    /// @return why not
    std::optional<std::string> Add(Tunnel const& tunnel, bool rebind) const;
    /// Ends a tunnel and waits for the end of its process.
    /// @return why not
    std::optional<std::string> Remove(Kind kind, int listen) const;

private:
    std::string RecordOf(Kind kind, int listen) const;

    std::string m_directory;
};

}  // namespace vq::headset
