#include <chrono>
#include <memory>
#include <optional>

#include "Logging/Log.h"
#include "Messaging/EventDispatcher.h"
#include "Messaging/MessageUtils.h"
#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "SparseDevice/ASparseDeviceCommandHandler.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/SparseDeviceApplication.h"
#include "SparseDevice/StatsCollector.h"

// What reaches the device: requests on its own pipe and the server's events.

using std::chrono::steady_clock;
using VirtualDeviceStats::ScopedTimerStat;

namespace {

constexpr std::chrono::milliseconds kNoWait{0};

/// How long a step serves what has queued up at one of its pipes. A request or an event can cost an exchange
/// that fails at its limit, and more may come meanwhile: the rest of the step is not to wait for the sum of
/// it. A step that finds nothing looks at no clock.
class StepBudget {
public:
    void Begin() {
        if (!m_start) {
            m_start = steady_clock::now();
        }
    }
    bool IsUsedUp() const { return m_start && steady_clock::now() - *m_start > std::chrono::seconds(1); }

private:
    std::optional<steady_clock::time_point> m_start;
};

}  // namespace

bool SparseDevice::ProcessMessages() {
    ScopedTimerStat const timer(vdtlStat_SparseDevice_ProcessMessages, m_stats);
    if (m_devicePipe == nullptr) {
        LOG_E("Failed to process messages, need to run Init() first");
        return false;
    }
    for (StepBudget budget; !budget.IsUsedUp();) {
        std::unique_ptr<AMessage> const message(m_devicePipe->ReceiveNext(kNoWait, nullptr));
        if (message == nullptr && !m_devicePipe->OwesAnswerToMalformed()) {
            break;
        }
        budget.Begin();
        if (message == nullptr) {
            // Without an answer the pipe would be stuck for every other peer.
            RefuseRequest("malformed request: too few frames");
        } else if (m_devicePipe->DrainExtraFrames()) {
            RefuseRequest("malformed request: too many frames: command type: " + message->Type());
        } else if (!ServeRequest(message.get())) {
            break;
        }
    }
    return true;
}

bool SparseDevice::RefuseRequest(std::string const& text) {
    return MessageUtils::SendErrorAndLog<vq::vds::Error>(m_devicePipe, text);
}

bool SparseDevice::ServeRequest(AMessage* message) {
    std::string const& type = message->Type();
    auto const command = m_commandMap.find(type);
    if (command == m_commandMap.end()) {
        RefuseRequest("unhandled request: unknown command type: " + type);
        return false;
    }
    if (m_requestExit) {
        RefuseRequest("unhandled request: sparse device '" + m_descriptor->label +
                      "'is shutting down, command type: " + type);
        return false;
    }
    SparseDeviceApplication const* const application = m_application;
    if (application != nullptr && application->IsExitRequested()) {
        RefuseRequest("unhandled request: sparse device application '" + m_applicationData.applicationLabel +
                      "' is shutting down, command type: " + type);
        return false;
    }
    auto const handler = m_commandHandlers.find(command->second);
    if (handler == m_commandHandlers.end()) {
        RefuseRequest("unhandled request: command type: " + type);
    } else if (!handler->second->ProcessCommand(message)) {
        RefuseRequest("failed to process message: command type: " + type);
    }
    return true;
}

bool SparseDevice::ProcessEvents() {
    ScopedTimerStat const timer(vdtlStat_SparseDevice_ProcessEvents, m_stats);
    if (m_serverEventListener == nullptr) {
        LOG_E("Failed to process events, need to run Init() first");
        return false;
    }
    bool const result = DispatchEvents();
    // Also when an event failed: nothing else brings a pruned device back.
    if (m_state == State::Pruned) {
        m_postReinitPending = true;
        LOG_V("My sparse device was PRUNED: %s", m_descriptor->name.c_str());
        Uninit();
    }
    return result;
}

bool SparseDevice::DispatchEvents() {
    for (StepBudget budget; !budget.IsUsedUp();) {
        std::unique_ptr<AMessage> const event(m_serverEventListener->ReceiveNext(kNoWait, nullptr));
        if (event == nullptr) {
            break;
        }
        budget.Begin();
        if (m_eventDispatcher != nullptr && !m_eventDispatcher->ProcessEvent(event.get())) {
            LOG_E("Failed to process event message %s", event->Type().c_str());
            return false;
        }
        ++m_eventsProcessed;
    }
    return true;
}

bool SparseDevice::OnDeviceUnregistered(AMessage* message) {
    vq::vds::DeviceUnregisteredEvent event;
    if (!m_messageContext->DecodeMessage(message, event)) {
        LOG_E("Failed to decode device unregistered message.");
        return false;
    }
    if (event.name() != m_descriptor->name) {
        OnDeviceUnregisteredEvent(event.name());
    } else if (static_cast<std::int32_t>(event.device_id()) == m_deviceId) {
        m_state = State::Pruned;
    }
    return true;
}
