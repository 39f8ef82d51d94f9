#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace vq::st {
class StatsCollection;
}

/// Named counters and timers of one device or one update thread.
namespace VirtualDeviceStats {

/// CRC-32 (reflected polynomial 0xEDB88320, as in zip files) of the first N characters.
template <std::size_t N>
constexpr std::uint32_t internal_CRC32(char const* text) {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t index = 0; index < table.size(); ++index) {
        std::uint32_t value = index;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1) != 0 ? (value >> 1) ^ 0xEDB88320u : value >> 1;
        }
        table[index] = value;
    }
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t index = 0; index < N; ++index) {
        crc = (crc >> 8) ^ table[(crc ^ static_cast<unsigned char>(text[index])) & 0xFF];
    }
    return ~crc;
}

/// Names one statistic: two entries of one name are one statistic. A literal type, so that the global entries
/// outlive every thread that still counts while the process ends.
struct StatsEntry {
    /// @param text  a literal.
    template <std::size_t N>
    consteval explicit StatsEntry(char const (&text)[N]) : id(internal_CRC32<N - 1>(text)), name(text) {}

    /// CRC-32 of the name; the only key.
    std::uint32_t id;
    char const* name;
};

struct CounterData {
    std::uint32_t id = 0;
    std::string name;
    std::int64_t value = 0;
    std::int32_t samples = 0;
    std::int32_t minimum = 0;
    std::int32_t maximum = 0;
    std::int32_t last = 0;

    friend bool operator==(CounterData const& a, CounterData const& b) = default;
};

/// All durations in nanoseconds.
struct TimerData {
    std::uint32_t id = 0;
    std::string name;
    std::int64_t total = 0;
    std::int32_t samples = 0;
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    std::int64_t last = 0;

    friend bool operator==(TimerData const& a, TimerData const& b) = default;
};

/// Counters and timers by entry; a record comes into being, all zero, at its first use. Sums and sample
/// counts wrap around. Belongs to one thread.
class StatsCollector {
public:
    void IncrementCounter(StatsEntry const& entry) { IncrementCounterBy(entry, 1); }
    /// Adds n to the value and records a sample of n.
    void IncrementCounterBy(StatsEntry const& entry, std::int32_t n);
    void DecrementCounter(StatsEntry const& entry) { DecrementCounterBy(entry, 1); }
    /// Takes n from the value and records a sample of -n.
    void DecrementCounterBy(StatsEntry const& entry, std::int32_t n);
    /// Makes the value n and records a sample of n.
    void SetCounter(StatsEntry const& entry, std::int32_t n);
    /// Makes the record zero again; it keeps its place.
    void ResetCounter(StatsEntry const& entry);

    /// Adds to the total and records a sample.
    void AddTimer(StatsEntry const& entry, std::int64_t nanoseconds);
    void ResetTimer(StatsEntry const& entry);

    /// The record, made if need be; valid as long as the collector and until the next Deserialize.
    CounterData& GetCounterData(StatsEntry const& entry);
    TimerData& GetTimerData(StatsEntry const& entry);

    /// @param message  replaced by all records, in the order of their ids.
    void Serialize(vq::st::StatsCollection& message) const;
    /// Replaces everything by what the message holds; of two records with one id the later one counts.
    void Deserialize(vq::st::StatsCollection const& message);

private:
    static void UpdateCounterData(CounterData& data, std::int32_t n);

    std::map<std::uint32_t, CounterData> m_counters;
    std::map<std::uint32_t, TimerData> m_timers;
};

/// Adds the time from its construction to its destruction to a timer. Scopes nest freely.
class ScopedTimerStat {
public:
    /// @param collector  must outlive the object.
    ScopedTimerStat(StatsEntry const& entry, StatsCollector& collector)
        : m_entry(entry), m_collector(collector), m_start(std::chrono::steady_clock::now()) {}
    ScopedTimerStat(ScopedTimerStat const&) = delete;
    ScopedTimerStat& operator=(ScopedTimerStat const&) = delete;
    ~ScopedTimerStat() {
        auto const elapsed = std::chrono::steady_clock::now() - m_start;
        m_collector.AddTimer(m_entry, std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count());
    }

private:
    StatsEntry const m_entry;
    StatsCollector& m_collector;
    std::chrono::steady_clock::time_point const m_start;
};

}  // namespace VirtualDeviceStats

// What a sparse device counts and times.
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_UpdateCalls{"SparseDevice_UpdateCalls"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_UpdateTime{"SparseDevice_UpdateTime"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_UpdateFrequency_CallsPerSec{
    "SparseDevice_UpdateFrequency_CallsPerSec"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_UpdateSleepTime{
    "SparseDevice_UpdateSleepTime"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_UpdateWorkTime{
    "SparseDevice_UpdateWorkTime"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_AutoReinit{"SparseDevice_AutoReinit"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_SendStatsUpdate{
    "SparseDevice_SendStatsUpdate"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_OnUpdateTime{
    "SparseDevice_OnUpdateTime"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_ProcessMessages{
    "SparseDevice_ProcessMessages"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_ProcessEvents{
    "SparseDevice_ProcessEvents"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_SendHelloEvents{
    "SparseDevice_SendHelloEvents"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_DistributeEvents{
    "SparseDevice_DistributeEvents"};
inline constexpr VirtualDeviceStats::StatsEntry vdtlStat_SparseDevice_UpdateProducers{
    "SparseDevice_UpdateProducers"};
