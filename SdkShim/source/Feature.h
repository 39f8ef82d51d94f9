#pragma once

#include <cstddef>
#include <cstdint>

namespace vq::SdkShim {

/// What a shim asks for, whichever device provides it.
enum class Feature : std::int32_t {
    Audio = 0,
    Head = 1,
    Eye = 2,
    Gesture = 3,
    Input = 4,
    Lifecycle = 5,
    Meshing = 6,
    Raycast = 7,
    Planes = 8,
    Graphics = 9,
    DataArray = 10,
    Identity = 11,
    ImageTracking = 12,
    HandTracking = 13,
    PersistentCoordFrame = 14,
};

/// A text for each feature, by its number; for log lines.
inline constexpr char const* FeatureLabels[] = {
    "Audio",     "Head",     "Eye",           "Gesture",      "Input",
    "Lifecycle", "Meshing",  "Raycast",       "Planes",       "Graphics",
    "DataArray", "Identity", "ImageTracking", "HandTracking", "PersistentCoordFrame",
};

inline char const* FeatureLabel(Feature feature) {
    return FeatureLabels[static_cast<std::size_t>(feature)];
}

}  // namespace vq::SdkShim
