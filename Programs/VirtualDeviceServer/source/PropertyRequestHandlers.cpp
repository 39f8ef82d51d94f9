#include <chrono>
#include <set>

#include "DeviceRequests.pb.h"
#include "Logging/Log.h"
#include "RequestTable.h"

// What the devices say of their settings, all of them together. A device is asked when somebody wants to
// know; the server cannot wait for it, so who asks first is told to ask again.

namespace vq::server {

namespace {

/// A device that has not told its settings by then has none.
constexpr std::chrono::seconds kFetchLimit{2};

/// Adds the entries whose key is not there yet: several devices declare the same types.
template <class Entries, class Key>
void Merge(Entries const& from, Entries& into, std::set<std::string>& known, Key key) {
    for (auto const& entry : from) {
        if (known.insert(key(entry)).second) {
            *into.Add() = entry;
        }
    }
}

class TypeMerger {
public:
    explicit TypeMerger(vq::cfg::CommonPropertyInfo& into) : m_into(into) {}

    void Add(vq::cfg::CommonPropertyInfo const& from) {
        auto const name = [](auto const& entry) { return entry.name(); };
        Merge(from.categories(), *m_into.mutable_categories(), m_categories,
              [](auto const& entry) { return entry.path(); });
        Merge(from.constants(), *m_into.mutable_constants(), m_constants, name);
        Merge(from.simple_types(), *m_into.mutable_simple_types(), m_simpleTypes, name);
        Merge(from.enumerations(), *m_into.mutable_enumerations(), m_enumerations, name);
        Merge(from.array_types(), *m_into.mutable_array_types(), m_arrayTypes, name);
    }

private:
    vq::cfg::CommonPropertyInfo& m_into;
    std::set<std::string> m_categories;
    std::set<std::string> m_constants;
    std::set<std::string> m_simpleTypes;
    std::set<std::string> m_enumerations;
    std::set<std::string> m_arrayTypes;
};

void AddGroup(Device const& device, vq::vds::DevicePropertyInfo& info) {
    vq::cfg::DevicePropertyGroup& group = *info.add_groups();
    group.set_name(device.name);
    group.set_label(device.label);
    for (vq::cfg::ConfigurationProperty const& property : device.properties->properties()) {
        vq::cfg::DevicePropertyEntry& entry = *group.add_properties();
        entry.set_name(property.common().name());
        *entry.mutable_property()->mutable_common() = property.common();
    }
}

/// Asks the devices that have not been asked yet.
/// @return the devices whose answer is still to come
std::size_t FetchProperties(ServerState& state, ServerControl& control) {
    std::size_t missing = 0;
    for (std::int32_t const id : state.TakeDevicesToAsk()) {
        control.Commands().Send(
            *state.Devices().Find(id), vq::sd::GetConfigurationPropertyInfo(), kFetchLimit,
            [&state, id](DeviceCommands::Decoder const& decode) {
                vq::sd::GetConfigurationPropertyInfo::Reply reply;
                bool const told = decode(reply);
                if (auto const refusal = state.StoreProperties(
                        id, told ? reply.info() : vq::sd::ConfigurationPropertyInfo::default_instance())) {
                    LOG_V("%s", refusal->c_str());
                }
            });
    }
    for (auto const& [id, device] : state.Devices().All()) {
        missing += !device.properties.has_value();
    }
    return missing;
}

}  // namespace

void ServePropertyRequests(RequestTable& table, ServerState& state, ServerControl& control) {
    table.Serve<vq::vds::GetDevicePropertyInfo>(
        [&state, &control](vq::vds::GetDevicePropertyInfo const&) -> Answer {
            if (std::size_t const missing = FetchProperties(state, control); missing != 0) {
                return OwnError<vq::vds::GetDevicePropertyInfo>(
                    std::to_string(missing) + " devices have been asked for their settings: ask again");
            }
            auto reply = std::make_unique<vq::vds::GetDevicePropertyInfo::Reply>();
            vq::vds::DevicePropertyInfo& info = *reply->mutable_info();
            info.set_generation(state.PropertyGeneration());
            TypeMerger types(*info.mutable_common());
            for (auto const& [id, device] : state.Devices().All()) {
                if (device.properties) {
                    types.Add(device.properties->common());
                    AddGroup(device, info);
                }
            }
            return reply;
        });
}

}  // namespace vq::server
