#pragma once

#include <memory>

class SparseDevice;
struct SparseDeviceDescriptor;

/// A thread that builds a device, steps it and ends it, without the device's own type: what an application
/// needs to know of the devices that it runs. Every operation may be called from any thread.
class SparseDeviceMuleBase {
public:
    virtual ~SparseDeviceMuleBase() = default;
    SparseDeviceMuleBase(SparseDeviceMuleBase const&) = delete;
    SparseDeviceMuleBase& operator=(SparseDeviceMuleBase const&) = delete;

    /// Ends the device and joins its thread, which takes as long as the device's present step and its
    /// unregistration. Does nothing when no thread runs. Never call it from the device's own thread.
    virtual void StopDevice() = 0;

    /// The device exists and its thread has not been told to stop.
    virtual bool IsRunning() = 0;

    /// The device's descriptor, owned by the device and valid as long as it lives; null without a device.
    virtual SparseDeviceDescriptor const* GetDeviceDescriptor() const = 0;

    /// The device has asked to be stopped; false without a device.
    virtual bool IsRequestingExit() const = 0;

    /// The device, or null. Whoever keeps it past StopDevice keeps it alive, and then ends it on his own
    /// thread.
    virtual std::shared_ptr<SparseDevice> GetBaseDevice() const = 0;

protected:
    SparseDeviceMuleBase() = default;
};
