#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "DeviceEvents.pb.h"
#include "Stats.pb.h"

namespace vq::server {

/// The server's clock. Every operation that needs the time is told it, so that tests can make it pass.
using TimePoint = std::chrono::steady_clock::time_point;

/// One registered device. A plain value.
struct Device {
    std::int32_t id = 0;
    std::string name;
    std::string label;
    /// Text form of its type, such as "Identity".
    std::string type;
    /// Text form of the physical address of its command pipe.
    std::string address;
    std::uint32_t processId = 0;
    std::uint32_t secondProcessId = 0;
    /// It has said that its initialisation is done.
    bool initialized = false;
    /// When the device last gave a sign of life.
    TimePoint lastHeard{};
    TimePoint registered{};
    /// When its registration was last published.
    TimePoint announced{};
    /// Its latest statistics, when it sent any.
    std::optional<vq::st::StatsCollection> stats;
    /// It is to be asked for its settings no more.
    bool askedForProperties = false;
    /// What it has said of its settings; empty when it has not answered.
    std::optional<vq::sd::ConfigurationPropertyInfo> properties;
};

/// The registered devices, in the order of their registration. Ids count up and are never used twice.
///
/// A name belongs to the newest device that has it. Two living processes may well run devices of one name
/// (every application with the same shim does), so the table also says when an older namesake is to go:
/// see TakeOverName.
///
/// Threads: one.
class DeviceTable {
public:
    /// Two changes of hands of a name within this time are taken for two living namesakes.
    static constexpr std::chrono::seconds kNameQuarrelTime{10};

    /// @param firstId  id of the first device
    explicit DeviceTable(std::int32_t firstId = 1) : m_nextId(firstId) {}

    /// Enters a device under the next id, whatever its id field says.
    /// @return the entry, valid until it is removed; null when the ids are used up
    Device* Add(Device device);
    bool Remove(std::int32_t id);

    /// Null when there is none.
    Device* Find(std::int32_t id);
    Device const* Find(std::int32_t id) const;
    /// The newest device of that name, or null.
    Device const* FindByName(std::string const& name) const;
    std::vector<std::int32_t> FindNamesakes(std::string const& name) const;

    /// To be asked before a device of this name is added: the devices that are to be removed because it takes
    /// their place. None when the name has just changed hands: then its holders live, each would register
    /// anew as soon as it is removed, and they would unseat each other for ever.
    std::vector<std::int32_t> TakeOverName(std::string const& name, TimePoint now);

    /// Devices that gave no sign of life after `since`.
    std::vector<std::int32_t> FindSilent(TimePoint since) const;
    /// Devices that registered after `since`.
    std::vector<std::int32_t> FindFresh(TimePoint since) const;
    /// Counts every device as heard now: for a server that could not listen itself.
    void MarkAllHeard(TimePoint now);

    std::map<std::int32_t, Device> const& All() const { return m_devices; }
    std::int32_t NextId() const { return m_nextId; }

private:
    std::map<std::int32_t, Device> m_devices;
    /// When a name last changed hands.
    std::unordered_map<std::string, TimePoint> m_takeovers;
    std::int32_t m_nextId;
};

}  // namespace vq::server
