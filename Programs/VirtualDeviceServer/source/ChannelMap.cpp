#include "VirtualDeviceServer/ChannelMap.h"

#include <limits>

namespace vq::server {

using vq::ch::ChannelRole;
using vq::ch::ChannelRole_Observer;
using vq::ch::ChannelRole_Producer;

ChannelMap::Registration ChannelMap::Register(std::int32_t device,
                                              vq::descriptors::data::ChannelDescription const& description,
                                              bool automap) {
    Entry& entry = EnsureEntry(description);
    bool const produces = description.role() == ChannelRole_Producer;
    Registration registration{.id = entry.channel.id};
    registration.added = (produces ? entry.producers : entry.observers).insert(device).second;
    registration.mapped = produces && automap && entry.serving.insert(device).second;
    return registration;
}

std::optional<ChannelMap::Removal> ChannelMap::Unregister(std::int32_t device, std::int32_t channelId) {
    auto const found = m_entries.find(channelId);
    if (found == m_entries.end()) {
        return std::nullopt;
    }
    Entry& entry = found->second;
    std::optional<Removal> removal;
    if (entry.producers.contains(device)) {
        removal = RemoveRole(entry, device, ChannelRole_Producer);
    } else if (entry.observers.contains(device)) {
        removal = RemoveRole(entry, device, ChannelRole_Observer);
    }
    DropIfUnused(channelId);
    return removal;
}

std::vector<ChannelMap::Removal> ChannelMap::UnregisterAll(std::int32_t device) {
    std::vector<Removal> removals;
    std::vector<std::int32_t> touched;
    for (auto& [id, entry] : m_entries) {
        for (ChannelRole const role : {ChannelRole_Producer, ChannelRole_Observer}) {
            if ((role == ChannelRole_Producer ? entry.producers : entry.observers).contains(device)) {
                removals.push_back(RemoveRole(entry, device, role));
                touched.push_back(id);
            }
        }
    }
    for (std::int32_t const id : touched) {
        DropIfUnused(id);
    }
    return removals;
}

ChannelMap::Outcome ChannelMap::Map(std::int32_t device, std::string const& channel) {
    Entry* const entry = FindEntry(channel);
    if (entry == nullptr || !entry->producers.contains(device)) {
        return Outcome::Refused;
    }
    return entry->serving.insert(device).second ? Outcome::Changed : Outcome::Unchanged;
}

ChannelMap::Outcome ChannelMap::Unmap(std::int32_t device, std::string const& channel) {
    Entry* const entry = FindEntry(channel);
    return entry != nullptr && entry->serving.erase(device) != 0 ? Outcome::Changed : Outcome::Refused;
}

std::vector<std::string> ChannelMap::UnmapAll() {
    std::vector<std::string> changed;
    for (auto& [id, entry] : m_entries) {
        if (!entry.serving.empty()) {
            entry.serving.clear();
            changed.push_back(entry.channel.name);
        }
    }
    return changed;
}

std::vector<std::int32_t> ChannelMap::Serving(std::string const& channel) const {
    Entry const* const entry = FindEntry(channel);
    return entry == nullptr ? std::vector<std::int32_t>{}
                            : std::vector<std::int32_t>(entry->serving.begin(), entry->serving.end());
}

std::vector<std::pair<std::int32_t, std::string>> ChannelMap::Mappings() const {
    std::vector<std::pair<std::int32_t, std::string>> mappings;
    for (auto const& [id, entry] : m_entries) {
        for (std::int32_t const device : entry.serving) {
            mappings.emplace_back(device, entry.channel.name);
        }
    }
    return mappings;
}

std::vector<ChannelMap::Channel const*> ChannelMap::All() const {
    std::vector<Channel const*> channels;
    channels.reserve(m_entries.size());
    for (auto const& [id, entry] : m_entries) {
        channels.push_back(&entry.channel);
    }
    return channels;
}

std::vector<std::string> ChannelMap::ChannelsOf(std::int32_t device, ChannelRole role) const {
    std::vector<std::string> names;
    for (auto const& [id, entry] : m_entries) {
        if ((role == ChannelRole_Producer ? entry.producers : entry.observers).contains(device)) {
            names.push_back(entry.channel.name);
        }
    }
    return names;
}

ChannelMap::Entry* ChannelMap::FindEntry(std::string const& name) {
    auto const found = m_idByName.find(name);
    return found == m_idByName.end() ? nullptr : &m_entries.at(found->second);
}

ChannelMap::Entry const* ChannelMap::FindEntry(std::string const& name) const {
    auto const found = m_idByName.find(name);
    return found == m_idByName.end() ? nullptr : &m_entries.at(found->second);
}

ChannelMap::Entry& ChannelMap::EnsureEntry(vq::descriptors::data::ChannelDescription const& description) {
    if (Entry* const known = FindEntry(description.name()); known != nullptr) {
        return *known;
    }
    std::int32_t const id = TakeId();
    m_idByName.emplace(description.name(), id);
    Entry& entry = m_entries[id];
    entry.channel = {.id = id,
                     .name = description.name(),
                     .dataType = description.data_type(),
                     .defaultProducer = description.third_text(),
                     .resizable = description.flag_4(),
                     .userVisible = description.flag_5()};
    return entry;
}

std::int32_t ChannelMap::TakeId() {
    // Begins again behind the last number, past the ids in use.
    std::int32_t id = 0;
    do {
        id = m_nextId;
        m_nextId = id == std::numeric_limits<std::int32_t>::max() ? 1 : id + 1;
    } while (m_entries.contains(id));
    return id;
}

ChannelMap::Removal ChannelMap::RemoveRole(Entry& entry, std::int32_t device, ChannelRole role) {
    Removal removal{.channel = entry.channel.name, .role = role};
    if (role == ChannelRole_Producer) {
        entry.producers.erase(device);
        removal.unmapped = entry.serving.erase(device) != 0;
    } else {
        entry.observers.erase(device);
    }
    return removal;
}

void ChannelMap::DropIfUnused(std::int32_t channelId) {
    auto const found = m_entries.find(channelId);
    if (found != m_entries.end() && found->second.producers.empty() && found->second.observers.empty()) {
        m_idByName.erase(found->second.channel.name);
        m_entries.erase(found);
    }
}

}  // namespace vq::server
