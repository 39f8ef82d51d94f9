#include "VirtualDeviceServer/DeviceTable.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace vq::server {

Device* DeviceTable::Add(Device device) {
    if (m_nextId == std::numeric_limits<std::int32_t>::max()) {
        return nullptr;
    }
    device.id = m_nextId++;
    return &m_devices.insert_or_assign(device.id, std::move(device)).first->second;
}

bool DeviceTable::Remove(std::int32_t id) {
    return m_devices.erase(id) != 0;
}

Device* DeviceTable::Find(std::int32_t id) {
    auto const found = m_devices.find(id);
    return found == m_devices.end() ? nullptr : &found->second;
}

Device const* DeviceTable::Find(std::int32_t id) const {
    auto const found = m_devices.find(id);
    return found == m_devices.end() ? nullptr : &found->second;
}

Device const* DeviceTable::FindByName(std::string const& name) const {
    auto const found = std::find_if(m_devices.rbegin(), m_devices.rend(),
                                    [&name](auto const& each) { return each.second.name == name; });
    return found == m_devices.rend() ? nullptr : &found->second;
}

std::vector<std::int32_t> DeviceTable::FindNamesakes(std::string const& name) const {
    std::vector<std::int32_t> ids;
    for (auto const& [id, device] : m_devices) {
        if (device.name == name) {
            ids.push_back(id);
        }
    }
    return ids;
}

std::vector<std::int32_t> DeviceTable::TakeOverName(std::string const& name, TimePoint now) {
    std::erase_if(m_takeovers, [now](auto const& entry) { return now - entry.second >= kNameQuarrelTime; });
    std::vector<std::int32_t> holders = FindNamesakes(name);
    if (!holders.empty() && !m_takeovers.try_emplace(name, now).second) {
        holders.clear();
    }
    return holders;
}

std::vector<std::int32_t> DeviceTable::FindSilent(TimePoint since) const {
    std::vector<std::int32_t> ids;
    for (auto const& [id, device] : m_devices) {
        if (device.lastHeard <= since) {
            ids.push_back(id);
        }
    }
    return ids;
}

std::vector<std::int32_t> DeviceTable::FindFresh(TimePoint since) const {
    std::vector<std::int32_t> ids;
    for (auto const& [id, device] : m_devices) {
        if (device.registered > since) {
            ids.push_back(id);
        }
    }
    return ids;
}

void DeviceTable::MarkAllHeard(TimePoint now) {
    for (auto& [id, device] : m_devices) {
        device.lastHeard = now;
    }
}

}  // namespace vq::server
