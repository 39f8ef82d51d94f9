#include "Messaging/EventMonitor.h"

#include "Logging/Log.h"

namespace {

/// More than the sockets of a link hold. Who sends faster than we take is not to keep the caller for ever.
constexpr int kMostAtOnce = 10000;

}  // namespace

bool EventMonitor::ConsumeEvents(std::chrono::milliseconds timeout) {
    if (m_listener->IsDisposed()) {
        return false;
    }
    bool timedOut = false;
    AMessage* message = m_listener->ReceiveNext(timeout, &timedOut);
    if (message == nullptr) {
        if (!timedOut) {
            LOG_E("Error on event listener waiting for events");
        }
        return timedOut;
    }
    for (int taken = 1; message != nullptr; ++taken) {
        m_queue.QueueEvent(message);
        message =
            taken < kMostAtOnce ? m_listener->ReceiveNext(std::chrono::milliseconds(0), nullptr) : nullptr;
    }
    return true;
}

std::shared_ptr<AMessage> EventMonitor::TakeOrWaitForEvent(std::string const& type,
                                                           std::chrono::milliseconds timeout) {
    using Clock = std::chrono::steady_clock;
    using std::chrono::milliseconds;

    if (std::shared_ptr<AMessage> event = m_queue.TakeNextEvent(type)) {
        return event;
    }
    bool const unlimited = timeout == milliseconds::max();
    // A limit beyond the clock's range counts from its end.
    Clock::time_point const start = Clock::now();
    bool const inRange = timeout < std::chrono::duration_cast<milliseconds>(Clock::time_point::max() - start);
    Clock::time_point const deadline = inRange ? start + timeout : Clock::time_point::max();

    milliseconds remaining = timeout;
    while (ConsumeEvents(remaining)) {
        if (std::shared_ptr<AMessage> event = m_queue.TakeNextEvent(type)) {
            return event;
        }
        if (!unlimited) {
            remaining = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
            if (remaining < milliseconds(1)) {
                break;
            }
        }
    }
    return nullptr;
}
