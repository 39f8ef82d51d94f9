#include "SampleObserver.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "Logging/Log.h"
#include "Messaging/ChannelTypeTraits.h"
#include "SampleFormat.h"

namespace vq::sample {

namespace {

using PoseData = ChannelTypeTraits<vq::ch::TransformChannelDataEvent>::Data;
using CounterData = ChannelTypeTraits<vq::ch::IntegerChannelDataEvent>::Data;

/// Nobody holds an image longer, unless he has died over it.
constexpr std::chrono::milliseconds kLockTimeout{100};

template <class T>
double SecondsOf(T duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

SampleObserver::Producer::Producer(std::string const& name)
    : prefix(name), pose(PoseChannel(name)), counter(CounterChannel(name)), image(ImageChannel(name)) {}

SampleObserver::~SampleObserver() {
    for (Producer const& producer : m_producers) {
        producer.pose.ReportTotal();
        producer.counter.ReportTotal();
        producer.image.ReportTotal();
    }
    std::fflush(stdout);
}

bool SampleObserver::OnPostInit() {
    ConfigurationState const& settings = Configuration();
    m_period = std::chrono::milliseconds(settings.GetValue("ReportMs").integer_value());
    m_seconds = static_cast<double>(settings.GetValue("Seconds").float_value());
    m_until = static_cast<std::uint64_t>(settings.GetValue("Until").integer_value());
    m_capacity = static_cast<std::size_t>(settings.GetValue("Queue").integer_value());
    if (m_producers.empty()) {
        std::istringstream prefixes(settings.GetValue("Prefixes").string_value());
        for (std::string prefix; std::getline(prefixes, prefix, ',');) {
            m_producers.emplace_back(prefix);
        }
        m_start = m_lastReport = Clock::now();
    }
    for (Producer& producer : m_producers) {
        if (!MakeChannels(producer)) {
            RequestExit(true);
            return false;
        }
    }
    return true;
}

bool SampleObserver::MakeChannels(Producer& producer) {
    producer.poseChannel = MakeObserverChannel(PoseChannel(producer.prefix), "Transform");
    producer.counterChannel = MakeObserverChannel(CounterChannel(producer.prefix), "Integer");
    producer.imageChannel = dynamic_cast<SharedBufferChannelObserver*>(
        MakeObserverChannel(ImageChannel(producer.prefix), "Shared Buffer Data"));
    if (producer.poseChannel == nullptr || producer.counterChannel == nullptr ||
        producer.imageChannel == nullptr) {
        return false;
    }
    if (m_capacity != kCapacity) {
        producer.poseChannel->ResizeDataQueueCapacity(m_capacity);
        producer.counterChannel->ResizeDataQueueCapacity(m_capacity);
        producer.imageChannel->ResizeDataQueueCapacity(m_capacity);
    }
    return true;
}

bool SampleObserver::OnUpdate() {
    for (Producer& producer : m_producers) {
        Look(producer);
    }
    auto const now = Clock::now();
    if (now - m_lastReport >= m_period) {
        for (Producer& producer : m_producers) {
            for (StreamWatch* const watch : {&producer.pose, &producer.counter, &producer.image}) {
                watch->Report(SecondsOf(now - m_lastReport));
            }
        }
        std::fflush(stdout);
        m_lastReport = now;
    }
    if (IsDone(now)) {
        RequestExit(true);
    }
    return true;
}

void SampleObserver::Look(Producer& producer) {
    m_samples.clear();
    producer.poseChannel->PopAllData(m_samples);
    for (auto const& sample : m_samples) {
        auto const& pose = static_cast<PoseData const&>(*sample).GetMessage();
        if (pose.contributors_size() == 1) {
            producer.pose.See(static_cast<std::uint64_t>(pose.contributors(0).first()));
            producer.pose.SeeAge(AgeOf(pose.contributors(0)));
        }
    }
    m_samples.clear();
    producer.counterChannel->PopAllData(m_samples);
    for (auto const& sample : m_samples) {
        auto const& count = static_cast<CounterData const&>(*sample).GetMessage();
        producer.counter.See(static_cast<std::uint64_t>(count.value()));
    }
    m_samples.clear();
    producer.imageChannel->PopAllData(m_samples);
    for (auto const& sample : m_samples) {
        producer.image.See(static_cast<SharedBufferDataChannelData const&>(*sample).GetGeneration());
    }
    if (!m_samples.empty()) {
        LookAtImage(producer, producer.image.Last());
    }
    m_samples.clear();
}

void SampleObserver::LookAtImage(Producer& producer, std::uint64_t generation) {
    SharedMemoryAccessor& accessor = producer.imageChannel->GetAccessor();
    bool timedOut = false;
    void const* const memory = accessor.Lock(SharedMemory::Access::Read, kLockTimeout, &timedOut);
    if (!accessor.IsLocked()) {
        if (timedOut) {
            // Somebody may have given it a new mutex.
            LOG_W("The buffer of %s stays locked", accessor.GetId().c_str());
            accessor.Reset();
        }
        return;
    }
    // An older buffer than the sample tells of is one that was made anew since.
    bool const stale = accessor.Generation() < generation;
    std::uint64_t const size = accessor.Size();
    if (memory != nullptr && !stale && size > sizeof(ImageHeader)) {
        ImageHeader header;
        std::memcpy(&header, memory, sizeof header);
        producer.image.SeeAge(Microseconds() - header.time);
        auto const* const bytes = static_cast<unsigned char const*>(memory);
        auto const expected = static_cast<unsigned char>(header.number & 0xFF);
        if (header.number != accessor.Generation() || bytes[sizeof header] != expected ||
            bytes[size - 1] != expected) {
            producer.image.SeeTorn();
        }
    }
    accessor.Unlock();
    if (stale) {
        accessor.Reset();
    }
}

bool SampleObserver::IsDone(Clock::time_point now) const {
    if (m_seconds > 0 && SecondsOf(now - m_start) >= m_seconds) {
        return true;
    }
    return m_until > 0 &&
           std::all_of(m_producers.begin(), m_producers.end(), [this](Producer const& producer) {
               return producer.counter.Last() >= m_until && producer.pose.Last() >= m_until;
           });
}

}  // namespace vq::sample
