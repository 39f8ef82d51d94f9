#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "Messaging/AMessagePipe.h"
#include "Messaging/EventQueue.h"

/// Drains one listener into a queue, so that whoever waits for one event loses none of the others.
///
/// Threads: the thread of the listener; the queue may be used from any.
class EventMonitor {
public:
    /// @param listener  not owned, outlives the monitor
    explicit EventMonitor(AMessagePipeEventListener* listener) : m_listener(listener) {}

    /// Waits for an event and then queues everything that has arrived; of an endless stream, some thousands.
    /// @return false when the listener is disposed or broken (logged); a quiet listener is no failure
    bool ConsumeEvents(std::chrono::milliseconds timeout);

    /// The next queued event of a type, else the first that arrives in time. Events of other types that
    /// arrive meanwhile stay queued.
    /// @return null when none came, or when the listener is disposed or broken
    std::shared_ptr<AMessage> TakeOrWaitForEvent(std::string const& type, std::chrono::milliseconds timeout);

    EventQueue& GetQueue() { return m_queue; }

private:
    AMessagePipeEventListener* const m_listener;
    EventQueue m_queue;
};
