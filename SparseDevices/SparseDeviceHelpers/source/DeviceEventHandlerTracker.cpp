#include "SparseDeviceHelpers/DeviceEventHandlerTracker.h"

#include "Logging/Log.h"
#include "SparseDevice/SparseDevice.h"

DeviceEventHandlerTracker::DeviceEventHandlerTracker(std::vector<SparseDevice*> const& devices,
                                                     std::vector<std::string> const& eventTypes,
                                                     std::set<std::string>& seenTypes)
    : m_devices(devices), m_eventTypes(eventTypes), m_seenTypes(seenTypes) {
    m_handler = std::make_shared<EventHandler>([this](AMessage* message) {
        LOG_V("Saw event %s", message->Type().c_str());
        m_seenTypes.insert(message->Type());
        m_seenInThisPass = true;
        return true;
    });
    for (SparseDevice* device : m_devices) {
        if (EventDispatcher* dispatcher = device->Dispatcher(); dispatcher != nullptr) {
            for (std::string const& type : m_eventTypes) {
                dispatcher->RegisterEventHandler(type, m_handler);
            }
        }
    }
}

DeviceEventHandlerTracker::~DeviceEventHandlerTracker() {
    for (SparseDevice* device : m_devices) {
        if (EventDispatcher* dispatcher = device->Dispatcher(); dispatcher != nullptr) {
            for (std::string const& type : m_eventTypes) {
                dispatcher->UnregisterEventHandler(type, m_handler);
            }
        }
    }
}
