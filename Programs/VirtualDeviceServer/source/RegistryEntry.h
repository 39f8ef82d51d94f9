#pragma once

#include "Utils/ServerDescriptor.h"

namespace vq::server {

/// The server's line in the table of the machine's servers: entered by Enter, removed at the end.
///
/// Threads: one.
class RegistryEntry {
public:
    RegistryEntry() = default;
    RegistryEntry(RegistryEntry const&) = delete;
    RegistryEntry& operator=(RegistryEntry const&) = delete;
    ~RegistryEntry() { Remove(); }

    /// Enters the line, in the place of one that a dead server left under the same name or address. A table
    /// whose mutex was left locked by a dead process is freed first. Takes some seconds in that case.
    /// @return false, with an error line, when a living server has the name, or the table cannot be written
    bool Enter(ServerDescriptor const& descriptor);

    /// Removes the line, unless another server has taken its place by now.
    void Remove();

private:
    static bool IsNameFree(ServerDescriptor const& descriptor);

    ServerDescriptor m_descriptor;
    bool m_entered = false;
};

}  // namespace vq::server
