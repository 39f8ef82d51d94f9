#include <algorithm>
#include <thread>
#include <utility>

#include "ChannelData.pb.h"
#include "Logging/Log.h"
#include "Messaging/AMessage.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "Messaging/MessageUtils.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/StatsCollector.h"

// One step of the device. An idle one looks once at each socket and allocates nothing.

using std::chrono::steady_clock;
using VirtualDeviceStats::ScopedTimerStat;

namespace {

constexpr std::chrono::milliseconds kHelloInterval{250};
constexpr std::chrono::seconds kStatsInterval{5};
constexpr std::chrono::milliseconds kDataEventWait{1};

/// Of the message types that nobody consumed, these are remembered: peers choose how many there are and how
/// long their names.
constexpr std::size_t kMostUnconsumedTypes = 1000;
constexpr std::size_t kLongestUnconsumedType = 256;

// Exchange only when there is something to take: most steps find nothing.
bool TakeFlag(std::atomic<bool>& flag) {
    return flag.load() && flag.exchange(false);
}

}  // namespace

bool SparseDevice::Update() {
    if (m_requestExit) {
        Uninit();
        return true;
    }
    if (TakeFlag(m_postInitPending) && !OnPostInit()) {
        LOG_E("Failed to execute OnPostInit");
        return false;
    }
    TimePoint const now = Pace();
    if (m_requestExit) {
        Uninit();
        return true;
    }
    m_stats.IncrementCounter(vdtlStat_SparseDevice_UpdateCalls);
    ScopedTimerStat const updateTimer(vdtlStat_SparseDevice_UpdateTime, m_stats);
    ScopedTimerStat const workTimer(vdtlStat_SparseDevice_UpdateWorkTime, m_stats);
    LOG_T("SparseDevice::Update: %s on %s", m_descriptor->name.c_str(), m_serverName.c_str());
    switch (m_state) {
        case State::Uninitialized:
            return Reinitialize();
        case State::Registered:
        case State::Pruned:
            return true;
        case State::Initialized:
            break;
    }
    return UpdateInitialized(now);
}

SparseDevice::TimePoint SparseDevice::Pace() {
    std::chrono::microseconds const period(static_cast<std::int64_t>(1e6f / m_updateHertz));
    TimePoint const next = m_nextUpdate + period;
    TimePoint const now = steady_clock::now();
    // A late step does not make the following ones hurry.
    m_nextUpdate = std::max(next, now);
    if (next > now) {
        ScopedTimerStat const timer(vdtlStat_SparseDevice_UpdateSleepTime, m_stats);
        LOG_T("Sleeping for [ %llu ]", static_cast<unsigned long long>((next - now).count()));
        std::this_thread::sleep_until(next);
    }
    return now;
}

bool SparseDevice::Reinitialize() {
    ScopedTimerStat const timer(vdtlStat_SparseDevice_AutoReinit, m_stats);
    m_reinitializing = true;
    bool const done =
        Init(m_manifest, m_application) && SendRegisterDeviceChannelsMessage(AutomapProducers());
    m_reinitializing = false;
    if (!done) {
        // A half-registered device would stay so for ever: leave, and try again in the next step.
        Uninit();
        return false;
    }
    m_state = State::Initialized;
    SendReportDeviceInitializedMessage();
    return true;
}

bool SparseDevice::UpdateInitialized(TimePoint now) {
    if (TakeFlag(m_postReinitPending) && !OnPostInit()) {
        return false;
    }
    if (now - m_lastHello >= kHelloInterval) {
        m_lastHello = now;
        SendHelloEvents();
    }
    bool result = UpdateProducers();
    result &= DistributeEvents();
    result &= ProcessMessages();
    result &= ProcessEvents();
    result &= SendSparseDeviceEvents();
    if (now - m_lastStats >= kStatsInterval) {
        ScopedTimerStat const timer(vdtlStat_SparseDevice_SendStatsUpdate, m_stats);
        m_lastStats = now;
        ConditionallySendStatsUpdate();
    }
    if (m_state == State::Initialized) {
        ScopedTimerStat const timer(vdtlStat_SparseDevice_OnUpdateTime, m_stats);
        result &= OnUpdate();
        result &= SendSparseDeviceEvents();
    }
    return result;
}

bool SparseDevice::UpdateProducers() {
    ScopedTimerStat const timer(vdtlStat_SparseDevice_UpdateProducers, m_stats);
    bool result = true;
    for (auto const& [name, producer] : m_producers) {
        result &= producer->Update();
    }
    return result;
}

bool SparseDevice::SendHelloEvents() {
    ScopedTimerStat const timer(vdtlStat_SparseDevice_SendHelloEvents, m_stats);
    for (auto const& [name, producer] : m_producers) {
        if (!producer->SendHelloEvent()) {
            return false;
        }
    }
    if (!m_sendHelloDataEvents) {
        return true;
    }
    vq::ch::HelloDataEvent hello;
    hello.set_text("dweeble dorble altogether nonsensical neverending nonsense whoopsie");
    hello.set_number(m_deviceId);
    return MessageUtils::SendEvent(m_dataEventSender, 0, "", hello, std::chrono::milliseconds::max(),
                                   nullptr);
}

bool SparseDevice::DistributeEvents() {
    ScopedTimerStat const timer(vdtlStat_SparseDevice_DistributeEvents, m_stats);
    m_messageContext->PollReaders(m_readers, m_available, kDataEventWait, nullptr);
    bool result = true;
    if (m_available.empty()) {
        for (auto const& [name, observer] : m_observers) {
            result &= observer->UpdateFromEvents({});
        }
        return result;
    }
    LOG_T("Checking %lu event messages from %lu readers (%lu channels)", m_available.size(), m_readers.size(),
          m_observers.size());
    SortArrivals();
    auto next = m_arrivals.cbegin();
    for (auto const& [name, observer] : m_observers) {
        std::list<AvailableReaderMessage> ofChannel;
        for (; next != m_arrivals.cend() && next->channel <= name; ++next) {
            if (next->channel == name) {
                ofChannel.splice(ofChannel.end(), m_available, next->entry);
            }
        }
        std::vector<AChannelMessage*> messages = FilterChannelMessages(observer.get(), ofChannel);
        m_available.splice(m_available.end(), ofChannel);
        result &= observer->UpdateFromEvents(messages);
        for (AChannelMessage* const message : messages) {
            delete message;
        }
        m_takenMessages = std::move(messages);
        if (m_available.empty()) {
            break;
        }
    }
    DropUnconsumed();
    m_available.splice(m_available.end(), m_takenEntries);
    return result;
}

void SparseDevice::SortArrivals() {
    // In the order of the observers, so that each message is looked at for its own channel only: the step
    // costs what its messages cost, however many channels there are.
    m_arrivals.clear();
    for (auto entry = m_available.begin(); entry != m_available.end(); ++entry) {
        auto const* const message = dynamic_cast<AChannelMessage const*>(entry->message);
        m_arrivals.push_back(
            {message != nullptr ? message->GetChannelName() : std::string_view(), m_arrivals.size(), entry});
    }
    std::sort(m_arrivals.begin(), m_arrivals.end(), [](Arrival const& left, Arrival const& right) {
        int const order = left.channel.compare(right.channel);
        return order != 0 ? order < 0 : left.number < right.number;
    });
}

void SparseDevice::DropUnconsumed() {
    bool announced = false;
    for (AvailableReaderMessage& entry : m_available) {
        std::unique_ptr<AMessage> const message(std::exchange(entry.message, nullptr));
        std::string const& type = message->Type();
        if (type.size() > kLongestUnconsumedType || m_unconsumedTypes.size() >= kMostUnconsumedTypes ||
            !m_unconsumedTypes.insert(type).second) {
            continue;
        }
        if (!announced) {
            LOG_V("Some messages were not consumed by observers!");
            announced = true;
        }
        if (IsLogged(LogLevel::Verbose)) {
            LOG_V("--> %s", message->Dump().c_str());
        }
    }
}
