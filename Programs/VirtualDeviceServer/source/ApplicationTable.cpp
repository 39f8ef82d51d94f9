#include "VirtualDeviceServer/ApplicationTable.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace vq::server {

namespace {

/// Removes the first entry for which the test holds; its id, or 0.
template <class Map, class Test>
std::uint32_t RemoveFirst(Map& map, Test test) {
    auto const found = std::find_if(map.begin(), map.end(), test);
    if (found == map.end()) {
        return 0;
    }
    std::uint32_t const id = found->first;
    map.erase(found);
    return id;
}

}  // namespace

ApplicationTable::Registered ApplicationTable::AddDeviceApplication(std::string const& name,
                                                                    std::string const& label,
                                                                    std::int64_t processId) {
    DeviceApplication application;
    auto& description = application.description;
    description.set_field_1(name);
    description.set_field_2(label);
    description.set_field_4(false);
    description.set_field_5(false);
    description.set_field_6(false);
    description.set_field_7(processId);
    description.set_field_8(false);
    description.set_field_9("");

    Registered registered;
    registered.replaced = RemoveFirst(m_deviceApplications, [&](auto const& entry) {
        return entry.second.description.field_1() == name && entry.second.description.field_7() == processId;
    });
    registered.id = TakeId();
    m_deviceApplications.emplace(registered.id, std::move(application));
    return registered;
}

ApplicationTable::Registered ApplicationTable::AddSdkApplication(std::string const& name,
                                                                 std::uint64_t processId) {
    vq::descriptors::data::VQSDKApplicationDescription description;
    description.set_name(name);
    description.set_process_id(static_cast<std::int64_t>(processId));

    Registered registered;
    registered.replaced = RemoveFirst(m_sdkApplications, [&](auto const& entry) {
        return entry.second.name() == name && entry.second.process_id() == description.process_id();
    });
    registered.id = TakeId();
    m_sdkApplications.emplace(registered.id, std::move(description));
    return registered;
}

DeviceApplication* ApplicationTable::FindDeviceApplication(std::uint32_t id) {
    auto const found = m_deviceApplications.find(id);
    return found == m_deviceApplications.end() ? nullptr : &found->second;
}

std::uint32_t ApplicationTable::TakeId() {
    std::uint32_t id = 0;
    do {
        id = m_nextId;
        m_nextId = id == std::numeric_limits<std::uint32_t>::max() ? 1 : id + 1;
    } while (m_deviceApplications.contains(id) || m_sdkApplications.contains(id));
    return id;
}

}  // namespace vq::server
