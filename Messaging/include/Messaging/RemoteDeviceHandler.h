#pragma once

/// The link to headsets behind the device bridge, as far as the pipe provider knows it: it owns one and tells
/// it when to let go of its clients.
class RemoteDeviceHandler {
public:
    RemoteDeviceHandler() = default;
    RemoteDeviceHandler(RemoteDeviceHandler const&) = delete;
    RemoteDeviceHandler& operator=(RemoteDeviceHandler const&) = delete;
    virtual ~RemoteDeviceHandler() = default;

    /// Closes every connection to a device; the handler can be used again afterwards.
    virtual void Cleanup() = 0;
};
