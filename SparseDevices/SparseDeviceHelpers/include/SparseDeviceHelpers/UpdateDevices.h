#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Messaging/MessageTypeName.h"

class SparseDevice;

/// UpdateDevicesAndDetectEvents for types that are known by name only.
/// @param eventTypes  full type names.
bool UpdateDevicesAndDetectEventTypes(std::vector<SparseDevice*> const& devices,
                                      std::vector<std::string> const& eventTypes,
                                      std::chrono::milliseconds timeout, std::chrono::milliseconds settle);

/// Steps devices until every one of the event types has reached one of them and the events have died down, so
/// that a device which has just registered can be used. On the thread that steps the devices.
/// @tparam Events  message classes of the events.
/// @param devices  not owned, none null. None at all is true, with a warning.
/// @param timeout  how long to wait for the events.
/// @param settle   how long no further event may come before they count as settled; the quiet starts anew
///                 with each event. milliseconds::max() stands for a quarter of the timeout.
/// @return false when not all events came in time (a warning), and at once when a step of a device failed.
template <class... Events>
bool UpdateDevicesAndDetectEvents(std::vector<SparseDevice*> const& devices,
                                  std::chrono::milliseconds timeout, std::chrono::milliseconds settle) {
    return UpdateDevicesAndDetectEventTypes(devices, {MessageTypeName(Events::default_instance())...},
                                            timeout, settle);
}
