#pragma once

#include <cstdint>
#include <string>

/// What kind of device a sparse device is. The texts are the names of the enumerators; they stand in
/// manifests and messages.
enum class SparseDeviceType : std::int32_t {
    Generic = 0,
    Shim = 1,
    VirtualRoomServer = 2,
    Audio = 3,
    EyeTracking = 4,
    Gestures = 5,
    GraphicsView = 6,
    HandTracking = 7,
    Headpose = 8,
    Meshing = 9,
    Peripheral = 10,
    Planes = 11,
    Playback = 12,
    Raycast = 13,
    Recorder = 14,
    Input = 15,
    LifecycleManager = 16,
    Identity = 17,
    ImageTracking = 18,
    PersistentCoordFrame = 19,
    VirtualRoomPeripheral = 20,
};

/// The type's text; "Generic" for a number outside the enumeration. Any thread.
std::string DeviceTypeToString(SparseDeviceType type);

/// The type of exactly that text; Generic for any other. Any thread.
SparseDeviceType DeviceTypeFromString(std::string const& text);
