#include "Messaging/EventQueue.h"

#include <algorithm>
#include <utility>

#include "Logging/Log.h"

void EventQueue::QueueEvent(AMessage* message) {
    std::shared_ptr<AMessage> event(message);
    LOG_T("Queueing %s event", event->Type().c_str());
    std::lock_guard const lock(m_mutex);
    m_events[event->Type()].push_back(std::move(event));
}

EventQueue::EventMap::iterator EventQueue::FindEvents(std::string const& type) {
    if (type.empty()) {
        return std::find_if(m_events.begin(), m_events.end(),
                            [](EventMap::value_type const& entry) { return !entry.second.empty(); });
    }
    auto const found = m_events.find(type);
    return found != m_events.end() && found->second.empty() ? m_events.end() : found;
}

std::shared_ptr<AMessage> EventQueue::TakeNextEvent(std::string const& type) {
    std::lock_guard const lock(m_mutex);
    auto const found = FindEvents(type);
    if (found == m_events.end()) {
        return nullptr;
    }
    std::shared_ptr<AMessage> event = std::move(found->second.front());
    found->second.pop_front();
    LOG_V("Taking %s event", found->first.c_str());
    return event;
}

std::list<std::shared_ptr<AMessage>> EventQueue::TakeAllEvents(std::string const& type) {
    std::lock_guard const lock(m_mutex);
    auto const found = FindEvents(type);
    if (found == m_events.end()) {
        return {};
    }
    Events events;
    events.swap(found->second);
    LOG_V("Taking %zu %s events", events.size(), found->first.c_str());
    return events;
}

void EventQueue::Clear() {
    std::lock_guard const lock(m_mutex);
    m_events.clear();
}
