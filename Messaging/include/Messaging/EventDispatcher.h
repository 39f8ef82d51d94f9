#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Messaging/AMessage.h"

class AMessageContext;
class EventQueue;

/// Handles one event, which it does not own; false reports that the event could not be handled.
using EventHandler = std::function<bool(AMessage*)>;

/// What EventDispatcher::RegisterEventHandler gives back and UnregisterEventHandler wants.
struct EventHandlerRegistration {
    std::string type;
    std::shared_ptr<EventHandler> handler;
};

/// Hands events to the handlers registered for their type.
///
/// Threads: one at a time. A handler may register and unregister others meanwhile; where it takes itself or
/// an earlier one of its type away, the next one misses the event. It must not delete the dispatcher.
class EventDispatcher {
public:
    /// @param context  not owned; kept for handlers that decode the event
    explicit EventDispatcher(AMessageContext* context) : m_context(context) {}

    /// Adds a handler behind those of its type. Registered twice it is called twice.
    /// @param type     full protobuf type name
    /// @param handler  never null; shared with the registration
    EventHandlerRegistration RegisterEventHandler(std::string const& type,
                                                  std::shared_ptr<EventHandler> handler);

    /// Takes back the first registration of this very handler; nothing happens when there is none.
    void UnregisterEventHandler(std::string const& type, std::shared_ptr<EventHandler> const& handler);

    /// Calls every handler of the event's type in registration order. From then on ProcessEvents knows the
    /// type, so that events given here and through a queue should not be mixed on one dispatcher.
    /// @return false when one of them returned false; true when there are none
    bool ProcessEvent(AMessage* event);

    /// Takes all events of the known types from the queue, types in sorted order, and processes each. Events
    /// of types without a handler stay queued.
    /// @return false when one of them failed (logged); the others are processed all the same
    bool ProcessEvents(EventQueue& queue);

    /// The handlers of a type in registration order.
    std::vector<std::shared_ptr<EventHandler>>& GetDispatchList(std::string const& type);

    AMessageContext* GetContext() const { return m_context; }

private:
    AMessageContext* const m_context;
    std::map<std::string, std::vector<std::shared_ptr<EventHandler>>> m_handlers;
};
