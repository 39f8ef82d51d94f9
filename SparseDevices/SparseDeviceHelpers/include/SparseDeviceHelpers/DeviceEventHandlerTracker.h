#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Messaging/EventDispatcher.h"

class SparseDevice;

/// While it lives, notes which of some event types arrive at some devices. On the thread that steps them.
class DeviceEventHandlerTracker {
public:
    /// Registers one handler on the dispatcher of each device (one without a dispatcher is skipped) for each
    /// type.
    /// @param devices     not owned; the list and the devices outlive the tracker.
    /// @param eventTypes  full type names; outlives the tracker.
    /// @param seenTypes   receives the types that arrive; outlives the tracker.
    DeviceEventHandlerTracker(std::vector<SparseDevice*> const& devices,
                              std::vector<std::string> const& eventTypes, std::set<std::string>& seenTypes);
    /// Takes the handler back from the dispatchers that there are now.
    virtual ~DeviceEventHandlerTracker();
    DeviceEventHandlerTracker(DeviceEventHandlerTracker const&) = delete;
    DeviceEventHandlerTracker& operator=(DeviceEventHandlerTracker const&) = delete;

    /// An event has arrived since the last ClearSeenInThisPass.
    bool SeenInThisPass() const { return m_seenInThisPass; }
    void ClearSeenInThisPass() { m_seenInThisPass = false; }

private:
    bool m_seenInThisPass = false;
    std::vector<SparseDevice*> const& m_devices;
    std::vector<std::string> const& m_eventTypes;
    std::set<std::string>& m_seenTypes;
    std::shared_ptr<EventHandler> m_handler;
};
