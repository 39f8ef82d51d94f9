#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ChannelTypes.pb.h"
#include "Descriptors.pb.h"

namespace vq::server {

/// The channels, who produces and observes each, and which of its producers serve it.
///
/// A channel is known by its name; it has one id, however many devices register it, and exists as long as one
/// does. The devices that serve a channel (that are mapped to it) are some of its producers; they rank in the
/// order of their registration as devices, the first one wins. Devices are told apart by id.
///
/// Threads: one.
class ChannelMap {
public:
    /// What is known of a channel: as its first registration described it.
    struct Channel {
        std::int32_t id = 0;
        std::string name;
        std::string dataType;
        std::string defaultProducer;
        bool resizable = false;
        bool userVisible = false;
    };
    /// What a registration did.
    struct Registration {
        std::int32_t id = 0;
        bool added = false;   ///< false: the device had registered the channel in that role before
        bool mapped = false;  ///< the device serves the channel now and did not before
    };
    /// What the end of a registration did.
    struct Removal {
        std::string channel;
        vq::ch::ChannelRole role{};
        bool unmapped = false;  ///< the device served the channel
    };
    enum class Outcome { Refused, Unchanged, Changed };

    /// @param firstId  id of the first channel
    explicit ChannelMap(std::int32_t firstId = 1) : m_nextId(firstId) {}

    /// Enters a device as producer or observer of a channel.
    /// @param automap  a producer also serves the channel from now on
    Registration Register(std::int32_t device, vq::descriptors::data::ChannelDescription const& description,
                          bool automap);
    /// Ends one registration of the device for the channel; where it has both roles, that of the producer.
    std::optional<Removal> Unregister(std::int32_t device, std::int32_t channelId);
    /// Ends every registration of a device.
    std::vector<Removal> UnregisterAll(std::int32_t device);

    /// Makes a producer serve a channel. Refused for a device that does not produce it.
    Outcome Map(std::int32_t device, std::string const& channel);
    /// Refused when the device does not serve the channel.
    Outcome Unmap(std::int32_t device, std::string const& channel);
    /// @return the names of the channels that had been served
    std::vector<std::string> UnmapAll();

    /// The devices that serve the channel, the first one wins.
    std::vector<std::int32_t> Serving(std::string const& channel) const;
    /// Every mapping as (device, channel name), the devices of a channel in their rank.
    std::vector<std::pair<std::int32_t, std::string>> Mappings() const;

    /// Whether a device has registered a channel of that name.
    bool Contains(std::string_view name) const { return m_idByName.find(name) != m_idByName.end(); }
    /// Every channel in the order of the ids.
    std::vector<Channel const*> All() const;
    /// Names of the channels that a device has registered in that role.
    std::vector<std::string> ChannelsOf(std::int32_t device, vq::ch::ChannelRole role) const;
    std::int32_t NextId() const { return m_nextId; }

private:
    struct Entry {
        Channel channel;
        // Ids of devices. Ids count up, so that their order is the order of registration.
        std::set<std::int32_t> producers;
        std::set<std::int32_t> observers;
        std::set<std::int32_t> serving;  // subset of the producers
    };

    Entry* FindEntry(std::string const& name);
    Entry const* FindEntry(std::string const& name) const;
    Entry& EnsureEntry(vq::descriptors::data::ChannelDescription const& description);
    std::int32_t TakeId();
    static Removal RemoveRole(Entry& entry, std::int32_t device, vq::ch::ChannelRole role);
    void DropIfUnused(std::int32_t channelId);

    std::map<std::int32_t, Entry> m_entries;
    struct NameHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
    };
    std::unordered_map<std::string, std::int32_t, NameHash, std::equal_to<>> m_idByName;
    std::int32_t m_nextId;
};

}  // namespace vq::server
