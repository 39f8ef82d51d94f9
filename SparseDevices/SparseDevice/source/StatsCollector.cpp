#include "SparseDevice/StatsCollector.h"

#include <algorithm>
#include <limits>
#include <type_traits>

#include "Stats.pb.h"

namespace VirtualDeviceStats {

namespace {

/// Sums run for the life of a device; they wrap rather than overflow.
template <class Number>
Number WrappingAdd(Number a, Number b) {
    using Unsigned = std::make_unsigned_t<Number>;
    return static_cast<Number>(static_cast<Unsigned>(a) + static_cast<Unsigned>(b));
}

template <class Data, class Number>
void RecordSample(Data& data, Number sample) {
    data.minimum = data.samples == 0 ? sample : std::min(data.minimum, sample);
    data.maximum = data.samples == 0 ? sample : std::max(data.maximum, sample);
    data.samples = WrappingAdd(data.samples, 1);
    data.last = sample;
}

template <class Data>
Data& Ensure(std::map<std::uint32_t, Data>& records, StatsEntry const& entry) {
    auto const [place, isNew] = records.try_emplace(entry.id);
    if (isNew) {
        place->second.id = entry.id;
        place->second.name = entry.name;
    }
    return place->second;
}

}  // namespace

void StatsCollector::UpdateCounterData(CounterData& data, std::int32_t n) {
    RecordSample(data, n);
}

void StatsCollector::IncrementCounterBy(StatsEntry const& entry, std::int32_t n) {
    CounterData& data = GetCounterData(entry);
    data.value = WrappingAdd<std::int64_t>(data.value, n);
    UpdateCounterData(data, n);
}

void StatsCollector::DecrementCounterBy(StatsEntry const& entry, std::int32_t n) {
    CounterData& data = GetCounterData(entry);
    data.value = WrappingAdd(data.value, -static_cast<std::int64_t>(n));
    // The smallest number has no opposite in 32 bits.
    UpdateCounterData(data, n == std::numeric_limits<std::int32_t>::min() ? n : -n);
}

void StatsCollector::SetCounter(StatsEntry const& entry, std::int32_t n) {
    CounterData& data = GetCounterData(entry);
    data.value = n;
    UpdateCounterData(data, n);
}

void StatsCollector::ResetCounter(StatsEntry const& entry) {
    CounterData& data = GetCounterData(entry);
    data.value = 0;
    data.samples = data.minimum = data.maximum = data.last = 0;
}

void StatsCollector::AddTimer(StatsEntry const& entry, std::int64_t nanoseconds) {
    TimerData& data = GetTimerData(entry);
    data.total = WrappingAdd(data.total, nanoseconds);
    RecordSample(data, nanoseconds);
}

void StatsCollector::ResetTimer(StatsEntry const& entry) {
    TimerData& data = GetTimerData(entry);
    data.samples = 0;
    data.total = data.minimum = data.maximum = data.last = 0;
}

CounterData& StatsCollector::GetCounterData(StatsEntry const& entry) {
    return Ensure(m_counters, entry);
}

TimerData& StatsCollector::GetTimerData(StatsEntry const& entry) {
    return Ensure(m_timers, entry);
}

void StatsCollector::Serialize(vq::st::StatsCollection& message) const {
    message.Clear();
    for (auto const& [id, data] : m_counters) {
        vq::st::CounterData& record = *message.add_counters();
        record.set_name(data.name);
        record.set_id(id);
        record.set_value(data.value);
        record.set_samples(data.samples);
        record.set_minimum(data.minimum);
        record.set_maximum(data.maximum);
        record.set_last(data.last);
    }
    for (auto const& [id, data] : m_timers) {
        vq::st::TimerData& record = *message.add_timers();
        record.set_name(data.name);
        record.set_id(id);
        record.set_total(data.total);
        record.set_samples(data.samples);
        record.set_minimum(data.minimum);
        record.set_maximum(data.maximum);
        record.set_last(data.last);
    }
}

void StatsCollector::Deserialize(vq::st::StatsCollection const& message) {
    m_counters.clear();
    m_timers.clear();
    for (vq::st::CounterData const& record : message.counters()) {
        m_counters[record.id()] = {record.id(),      record.name(),    record.value(), record.samples(),
                                   record.minimum(), record.maximum(), record.last()};
    }
    for (vq::st::TimerData const& record : message.timers()) {
        m_timers[record.id()] = {record.id(),      record.name(),    record.total(), record.samples(),
                                 record.minimum(), record.maximum(), record.last()};
    }
}

}  // namespace VirtualDeviceStats
