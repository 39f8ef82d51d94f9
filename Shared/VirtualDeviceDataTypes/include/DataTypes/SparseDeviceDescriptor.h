#pragma once

#include "DataTypes/SparseDeviceType.h"

#include <cstdint>
#include <string>

/// Names a device.
struct SparseDeviceDescriptor {
    std::string name = "unknown device";
    SparseDeviceType type = SparseDeviceType::Generic;
    std::string label;
    std::uint32_t processId = 0;      ///< process that runs the device; 0 for a shim's device
    std::uint32_t shimProcessId = 0;  ///< process that a shim's device works in; 0 for any other

    /// The same device in the same process; type and label don't count.
    friend bool operator==(SparseDeviceDescriptor const& left, SparseDeviceDescriptor const& right) {
        return left.processId == right.processId && left.shimProcessId == right.shimProcessId &&
               left.name == right.name;
    }
};
