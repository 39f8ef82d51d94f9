#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "Messaging/AMessage.h"

/// Received events, kept apart by type. Any thread.
class EventQueue {
public:
    /// Appends an event to those of its type; takes ownership.
    void QueueEvent(AMessage* message);

    /// Takes the oldest event of a type, or with an empty type the oldest event of any one type (not the
    /// oldest of all).
    /// @return null when there is none
    std::shared_ptr<AMessage> TakeNextEvent(std::string const& type);

    /// Takes all events of a type, oldest first, or with an empty type all those of any one type.
    std::list<std::shared_ptr<AMessage>> TakeAllEvents(std::string const& type);

    /// Drops every event.
    void Clear();

private:
    using Events = std::list<std::shared_ptr<AMessage>>;
    using EventMap = std::unordered_map<std::string, Events>;

    /// The entry that a take of this type is about, never one without events; end() when there is none. Needs
    /// m_mutex.
    EventMap::iterator FindEvents(std::string const& type);

    std::mutex m_mutex;
    EventMap m_events;  // guarded by m_mutex
};
