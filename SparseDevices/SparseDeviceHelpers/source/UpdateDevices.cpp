#include "SparseDeviceHelpers/UpdateDevices.h"

#include <set>

#include "Logging/Log.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDeviceHelpers/DeviceEventHandlerTracker.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// In whole milliseconds, so that it can be compared with a duration of any size.
milliseconds Since(Clock::time_point start, Clock::time_point now) {
    return std::chrono::duration_cast<milliseconds>(now - start);
}

bool UpdateAll(std::vector<SparseDevice*> const& devices) {
    for (SparseDevice* device : devices) {
        if (!device->Update()) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool UpdateDevicesAndDetectEventTypes(std::vector<SparseDevice*> const& devices,
                                      std::vector<std::string> const& eventTypes, milliseconds timeout,
                                      milliseconds settle) {
    if (devices.empty()) {
        LOG_W("No devices in list");
        return true;
    }
    LOG_V("Waiting to see events before considering the device initialized");
    std::set<std::string> const expected(eventTypes.begin(), eventTypes.end());
    std::set<std::string> seen;
    DeviceEventHandlerTracker tracker(devices, eventTypes, seen);
    if (settle == milliseconds::max()) {
        settle = timeout / 4;
    }

    Clock::time_point const start = Clock::now();
    Clock::time_point quietSince = start;
    while (true) {
        Clock::time_point const now = Clock::now();
        if (seen.size() < expected.size()) {
            if (Since(start, now) >= timeout) {
                break;
            }
        } else if (Since(quietSince, now) >= settle) {
            return true;
        }
        tracker.ClearSeenInThisPass();
        if (!UpdateAll(devices)) {
            return false;
        }
        if (tracker.SeenInThisPass()) {
            quietSince = now;
        }
    }
    if (seen.empty()) {
        LOG_W("Failed to see any expected events");
    } else {
        LOG_W("Failed to see all the expected events");
    }
    return false;
}
