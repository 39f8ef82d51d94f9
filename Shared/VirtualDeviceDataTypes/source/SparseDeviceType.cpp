#include "DataTypes/SparseDeviceType.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace {

// In the order of the enumeration.
constexpr std::array<std::string_view, 21> Texts = {
    "Generic",
    "Shim",
    "VirtualRoomServer",
    "Audio",
    "EyeTracking",
    "Gestures",
    "GraphicsView",
    "HandTracking",
    "Headpose",
    "Meshing",
    "Peripheral",
    "Planes",
    "Playback",
    "Raycast",
    "Recorder",
    "Input",
    "LifecycleManager",
    "Identity",
    "ImageTracking",
    "PersistentCoordFrame",
    "VirtualRoomPeripheral",
};

}  // namespace

std::string DeviceTypeToString(SparseDeviceType type) {
    // A negative number becomes a large one.
    std::size_t const index = static_cast<std::size_t>(type);
    return std::string(index < Texts.size() ? Texts[index] : Texts[0]);
}

SparseDeviceType DeviceTypeFromString(std::string const& text) {
    for (std::size_t index = 0; index < Texts.size(); ++index) {
        if (Texts[index] == text) {
            return static_cast<SparseDeviceType>(index);
        }
    }
    return SparseDeviceType::Generic;
}
