#include "Messaging/EventDispatcher.h"

#include <algorithm>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/EventQueue.h"

EventHandlerRegistration EventDispatcher::RegisterEventHandler(std::string const& type,
                                                               std::shared_ptr<EventHandler> handler) {
    GetDispatchList(type).push_back(handler);
    return {type, std::move(handler)};
}

void EventDispatcher::UnregisterEventHandler(std::string const& type,
                                             std::shared_ptr<EventHandler> const& handler) {
    auto const entry = m_handlers.find(type);
    if (entry == m_handlers.end()) {
        return;
    }
    auto const found = std::find(entry->second.begin(), entry->second.end(), handler);
    if (found != entry->second.end()) {
        entry->second.erase(found);
    }
}

bool EventDispatcher::ProcessEvent(AMessage* event) {
    std::vector<std::shared_ptr<EventHandler>> const& handlers = GetDispatchList(event->Type());
    bool handled = true;
    // A handler may register another for this type, which moves the vector's content.
    for (std::size_t i = 0; i < handlers.size(); ++i) {
        std::shared_ptr<EventHandler> const handler = handlers[i];
        handled = (*handler)(event) && handled;
    }
    return handled;
}

bool EventDispatcher::ProcessEvents(EventQueue& queue) {
    bool handled = true;
    for (auto const& entry : m_handlers) {
        for (std::shared_ptr<AMessage> const& event : queue.TakeAllEvents(entry.first)) {
            if (!ProcessEvent(event.get())) {
                LOG_E("Failed to process event message %s", event->Type().c_str());
                handled = false;
            }
        }
    }
    return handled;
}

std::vector<std::shared_ptr<EventHandler>>& EventDispatcher::GetDispatchList(std::string const& type) {
    return m_handlers[type];
}
