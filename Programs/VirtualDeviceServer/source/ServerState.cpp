#include "VirtualDeviceServer/ServerState.h"

#include <algorithm>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/MessageAddress.h"
#include "ServerEvents.pb.h"

namespace vq::server {

namespace {

/// Statistics of a device, and the description of its settings, take at most this many bytes: they are kept
/// for as long as the device lives.
constexpr std::size_t kMaximumStatsBytes = 1U << 20U;
constexpr std::size_t kMaximumPropertiesBytes = 1U << 20U;
/// Longest device name, in bytes: it goes into logs, the journal and many events.
constexpr std::size_t kMaximumNameBytes = 1024;

ServerState::Refusal CheckAddress(std::string const& text) {
    MessageAddress const address = MessageAddress::FromString(text);
    if (address.transport == MessageAddress::Transport::NONE || address.location.empty() ||
        !address.logicalName.empty()) {
        return "'" + text + "' is no physical address of a device";
    }
    return std::nullopt;
}

}  // namespace

ServerState::ServerState(EventSink sink, ServerMemory const& memory)
    : m_sink(std::move(sink)),
      m_devices(memory.nextDeviceId),
      m_channels(memory.nextChannelId),
      m_applications(memory.nextApplicationId) {
    for (KnownDevice const& device : memory.devices) {
        m_former[device.name].ids.push_back(device.id);
    }
}

ServerState::Refusal ServerState::RegisterDevice(vq::vds::RegisterSparseDevice const& request, TimePoint now,
                                                 std::int32_t& id) {
    auto const& description = request.description();
    if (description.name().empty() || description.name().size() > kMaximumNameBytes) {
        return "a device needs a name of 1 to " + std::to_string(kMaximumNameBytes) + " bytes";
    }
    if (Refusal refusal = CheckAddress(request.address()); refusal) {
        return refusal;
    }
    // Namesakes that come back from the former life have lived beside each other before.
    if (!NoteReturn(description.name())) {
        for (std::int32_t const old : m_devices.TakeOverName(description.name(), now)) {
            RemoveDevice(old, "replaced by a new registration");
        }
    }
    Device* const device = m_devices.Add({.name = description.name(),
                                          .label = description.display_name(),
                                          .type = description.type(),
                                          .address = request.address(),
                                          .processId = description.process_id(),
                                          .secondProcessId = description.second_process_id(),
                                          .lastHeard = now,
                                          .registered = now,
                                          .stats = std::nullopt,
                                          .properties = std::nullopt});
    if (device == nullptr) {
        return "the server has no device id left";
    }
    id = device->id;
    ++m_memoryRevision;
    LOG_I("Registered device '%s' with id %d at %s", device->name.c_str(), device->id,
          device->address.c_str());
    PublishRegistration(*device, now);
    return std::nullopt;
}

ServerState::Refusal ServerState::RegisterChannels(vq::vds::RegisterSparseDeviceChannels const& request,
                                                   std::vector<std::int32_t>& ids) {
    Device const* const device = m_devices.Find(request.device_id());
    if (device == nullptr) {
        return NoSuchDevice(request.device_id());
    }
    std::vector<std::string> remapped;
    for (auto const& description : request.channels()) {
        auto const registration = m_channels.Register(device->id, description, request.flag());
        ids.push_back(registration.id);
        if (registration.added) {
            vq::vds::ChannelRegisteredEvent event;
            event.set_device(device->name);
            event.set_channel(description.name());
            event.set_role(description.role());
            m_sink(event);
        }
        if (registration.mapped) {
            remapped.push_back(description.name());
        }
    }
    for (std::string const& channel : remapped) {
        PublishMapping(channel);
    }
    ++m_memoryRevision;
    return std::nullopt;
}

ServerState::Refusal ServerState::UnregisterChannels(vq::vds::UnregisterSparseDeviceChannels const& request) {
    Device const* const device = m_devices.Find(request.device_id());
    if (device == nullptr) {
        return NoSuchDevice(request.device_id());
    }
    Refusal refusal;
    for (std::int32_t const id : request.channel_ids()) {
        if (auto const removal = m_channels.Unregister(device->id, id); removal) {
            PublishRemoval(device->name, *removal);
        } else {
            refusal = "device '" + device->name + "' has no channel with id " + std::to_string(id);
        }
    }
    return refusal;
}

ServerState::Refusal ServerState::ReportInitialized(std::int32_t deviceId, TimePoint now) {
    Device* const device = m_devices.Find(deviceId);
    if (device == nullptr) {
        return NoSuchDevice(deviceId);
    }
    device->initialized = true;
    // Once more: the first may have come before the device's own listener was attached, and it waits for it.
    PublishRegistration(*device, now);
    vq::vds::DeviceInitializedEvent event;
    event.set_name(device->name);
    event.set_type(device->type);
    event.set_device_id(static_cast<std::uint32_t>(device->id));
    m_sink(event);
    return std::nullopt;
}

void ServerState::AnnounceToNewListener(TimePoint came, TimePoint now) {
    for (std::int32_t const id : m_devices.FindFresh(now - kFreshTime)) {
        Device& device = *m_devices.Find(id);
        // The older, the rarer: many devices that start together must not drown each other in announcements.
        bool const due = now - device.announced >= device.announced - device.registered;
        if (device.announced < came && due) {
            PublishRegistration(device, now);
        }
    }
}

ServerState::Refusal ServerState::UnregisterDevice(std::int32_t deviceId, std::string const& name) {
    Device const* const device = m_devices.Find(deviceId);
    if (device == nullptr) {
        return NoSuchDevice(deviceId);
    }
    if (device->name != name) {
        return "the device with id " + std::to_string(deviceId) + " is not '" + name + "'";
    }
    RemoveDevice(deviceId, "unregistered");
    return std::nullopt;
}

ServerState::Refusal ServerState::PruneByName(std::string const& name) {
    std::vector<std::int32_t> const ids = m_devices.FindNamesakes(name);
    for (std::int32_t const id : ids) {
        RemoveDevice(id, "pruned on request");
    }
    return ids.empty() ? Refusal("there is no device '" + name + "'") : std::nullopt;
}

ServerState::Refusal ServerState::PassOnEvent(vq::vds::SendSparseDeviceEvent const& request) {
    Device const* const device = m_devices.Find(request.device_id());
    if (device == nullptr) {
        return NoSuchDevice(request.device_id());
    }
    vq::vds::DeviceEvent event;
    event.set_device(device->name);
    event.set_event_type(request.event_type());
    event.set_event_data(request.event_data());
    m_sink(event);
    return std::nullopt;
}

ServerState::Refusal ServerState::StoreStats(vq::vds::SparseDeviceStatsUpdate const& request) {
    Device* const device = m_devices.Find(request.device_id());
    if (device == nullptr) {
        return NoSuchDevice(request.device_id());
    }
    if (request.stats().ByteSizeLong() > kMaximumStatsBytes) {
        return "the statistics of device '" + device->name + "' are too large";
    }
    device->stats = request.stats();
    return std::nullopt;
}

std::vector<std::int32_t> ServerState::TakeDevicesToAsk() {
    std::vector<std::int32_t> ids;
    for (auto const& [id, device] : m_devices.All()) {
        if (!device.askedForProperties) {
            ids.push_back(id);
            m_devices.Find(id)->askedForProperties = true;
        }
    }
    return ids;
}

ServerState::Refusal ServerState::StoreProperties(std::int32_t deviceId,
                                                  vq::sd::ConfigurationPropertyInfo const& properties) {
    Device* const device = m_devices.Find(deviceId);
    if (device == nullptr) {
        return NoSuchDevice(deviceId);
    }
    bool const fits = properties.ByteSizeLong() <= kMaximumPropertiesBytes;
    device->properties = fits ? properties : vq::sd::ConfigurationPropertyInfo();
    ++m_propertyGeneration;
    return fits ? std::nullopt : Refusal("the settings of device '" + device->name + "' are too large");
}

void ServerState::Heard(std::int32_t deviceId, TimePoint now) {
    if (Device* const device = m_devices.Find(deviceId); device != nullptr) {
        device->lastHeard = now;
    }
}

void ServerState::PruneSilent(TimePoint now) {
    if (pruneAfter.count() == 0) {
        return;
    }
    for (std::int32_t const id : m_devices.FindSilent(now - pruneAfter)) {
        Device const device = *m_devices.Find(id);
        RemoveDevice(id, "pruned: it has fallen silent");
        RemoveCrashedApplication(device);
    }
}

ServerState::Mappings ServerState::AddMappings(Mappings const& mappings) {
    Mappings refused;
    for (auto const& mapping : mappings) {
        Device const* const device = m_devices.FindByName(mapping.device());
        auto const outcome =
            device == nullptr ? ChannelMap::Outcome::Refused : m_channels.Map(device->id, mapping.channel());
        if (outcome == ChannelMap::Outcome::Refused) {
            *refused.Add() = mapping;
        } else if (outcome == ChannelMap::Outcome::Changed) {
            PublishMapping(mapping.channel());
        }
    }
    return refused;
}

ServerState::Mappings ServerState::RemoveMappings(Mappings const& mappings) {
    Mappings refused;
    for (auto const& mapping : mappings) {
        bool changed = false;
        // A name stands for all its holders: afterwards none of them serves the channel.
        for (std::int32_t const id : m_devices.FindNamesakes(mapping.device())) {
            changed |= m_channels.Unmap(id, mapping.channel()) == ChannelMap::Outcome::Changed;
        }
        if (changed) {
            PublishMapping(mapping.channel());
        } else {
            *refused.Add() = mapping;
        }
    }
    return refused;
}

void ServerState::ClearMappings() {
    for (std::string const& channel : m_channels.UnmapAll()) {
        PublishMapping(channel);
    }
}

std::uint32_t ServerState::RegisterDeviceApplication(vq::vds::RegisterDeviceApplication const& request) {
    auto const registered =
        m_applications.AddDeviceApplication(request.name(), request.second_name(), request.process_id());
    ++m_memoryRevision;
    if (registered.replaced != 0) {
        vq::vds::DeviceApplicationUnregisteredEvent gone;
        gone.set_application_id(registered.replaced);
        m_sink(gone);
    }
    vq::vds::DeviceApplicationRegisteredEvent event;
    event.set_application_id(registered.id);
    *event.mutable_description() = m_applications.FindDeviceApplication(registered.id)->description;
    m_sink(event);
    return registered.id;
}

ServerState::Refusal ServerState::ReportApplicationInitialized(std::uint32_t id) {
    DeviceApplication* const application = m_applications.FindDeviceApplication(id);
    if (application == nullptr) {
        return "there is no device application with id " + std::to_string(id);
    }
    application->initialized = true;
    vq::vds::DeviceApplicationStartedEvent event;
    event.set_application_id(id);
    *event.mutable_description() = application->description;
    m_sink(event);
    return std::nullopt;
}

ServerState::Refusal ServerState::UnregisterDeviceApplication(std::uint32_t id) {
    if (!m_applications.RemoveDeviceApplication(id)) {
        return "there is no device application with id " + std::to_string(id);
    }
    vq::vds::DeviceApplicationUnregisteredEvent event;
    event.set_application_id(id);
    m_sink(event);
    return std::nullopt;
}

void ServerState::EndApplicationsOf(std::int64_t processId, std::string const& how) {
    std::vector<std::uint32_t> applications;
    for (auto const& [id, application] : m_applications.DeviceApplications()) {
        if (application.description.field_7() == processId) {
            applications.push_back(id);
        }
    }
    for (std::uint32_t const application : applications) {
        std::vector<std::int32_t> devices;
        for (auto const& [id, device] : m_devices.All()) {
            if (device.processId == application) {
                devices.push_back(id);
            }
        }
        for (std::int32_t const id : devices) {
            RemoveDevice(id, "its process has ended");
        }
        AnnounceCrash(application, "its process " + how);
    }
    std::vector<std::uint32_t> users;
    for (auto const& [id, description] : m_applications.SdkApplications()) {
        if (description.process_id() == processId) {
            users.push_back(id);
        }
    }
    for (std::uint32_t const id : users) {
        UnregisterSdkApplication(id);
    }
}

std::uint32_t ServerState::RegisterSdkApplication(vq::vds::RegisterVQSDKApplication const& request) {
    auto const registered = m_applications.AddSdkApplication(request.name(), request.process_id());
    ++m_memoryRevision;
    if (registered.replaced != 0) {
        vq::vds::VQSDKApplicationUnregisteredEvent gone;
        gone.set_application_id(registered.replaced);
        m_sink(gone);
    }
    vq::vds::VQSDKApplicationRegisteredEvent event;
    event.set_application_id(registered.id);
    *event.mutable_description() = m_applications.SdkApplications().at(registered.id);
    m_sink(event);
    return registered.id;
}

ServerState::Refusal ServerState::UnregisterSdkApplication(std::uint32_t id) {
    if (!m_applications.RemoveSdkApplication(id)) {
        return "there is no application with id " + std::to_string(id);
    }
    vq::vds::VQSDKApplicationUnregisteredEvent event;
    event.set_application_id(id);
    m_sink(event);
    return std::nullopt;
}

void ServerState::AnnounceFormerDevices() {
    for (auto const& [name, former] : m_former) {
        for (std::int32_t const id : former.ids) {
            PublishUnregistered(name, id);
        }
    }
}

void ServerState::ForgetFormerDevices() {
    m_former.clear();
    ++m_memoryRevision;
}

ServerMemory ServerState::Memory() const {
    ServerMemory memory{.nextDeviceId = m_devices.NextId(),
                        .nextChannelId = m_channels.NextId(),
                        .nextApplicationId = m_applications.NextId(),
                        .devices = {}};
    for (auto const& [name, former] : m_former) {
        for (std::int32_t const id : former.ids) {
            memory.devices.push_back({.id = id, .name = name});
        }
    }
    for (auto const& [id, device] : m_devices.All()) {
        memory.devices.push_back({.id = id, .name = device.name});
    }
    return memory;
}

std::string ServerState::NoSuchDevice(std::int32_t id) {
    return "there is no device with id " + std::to_string(id);
}

void ServerState::RemoveDevice(std::int32_t id, char const* reason) {
    std::string const name = m_devices.Find(id)->name;
    std::vector<ChannelMap::Removal> const removals = m_channels.UnregisterAll(id);
    m_propertyGeneration += m_devices.Find(id)->properties.has_value();
    m_devices.Remove(id);
    ++m_memoryRevision;
    LOG_I("Device '%s' with id %d is gone (%s)", name.c_str(), id, reason);
    for (ChannelMap::Removal const& removal : removals) {
        PublishRemoval(name, removal);
    }
    PublishUnregistered(name, id);
}

void ServerState::RemoveCrashedApplication(Device const& device) {
    if (m_applications.FindDeviceApplication(device.processId) == nullptr) {
        return;
    }
    // With the last device of an application silent there is nothing left that could speak for it.
    bool const hasOthers = std::ranges::any_of(
        m_devices.All(), [&](auto const& entry) { return entry.second.processId == device.processId; });
    if (!hasOthers) {
        AnnounceCrash(device.processId, "its last device '" + device.name + "' has fallen silent");
    }
}

void ServerState::AnnounceCrash(std::uint32_t application, std::string const& text) {
    vq::vds::DeviceApplicationCrashedEvent event;
    event.set_application_id(application);
    event.set_message(text);
    m_sink(event);
    UnregisterDeviceApplication(application);
}

bool ServerState::NoteReturn(std::string const& name) {
    auto const former = m_former.find(name);
    if (former == m_former.end()) {
        return false;
    }
    if (++former->second.returned >= former->second.ids.size()) {
        m_former.erase(former);
    }
    return true;
}

void ServerState::PublishRegistration(Device& device, TimePoint now) const {
    device.announced = now;
    vq::vds::DeviceRegisteredEvent event;
    event.set_name(device.name);
    event.set_type(device.type);
    event.set_device_id(static_cast<std::uint32_t>(device.id));
    m_sink(event);
}

void ServerState::PublishMapping(std::string const& channel) const {
    vq::vds::ChannelMappingChangedEvent event;
    event.set_channel(channel);
    for (std::int32_t const id : m_channels.Serving(channel)) {
        std::string const& name = m_devices.Find(id)->name;
        // Namesakes are one device to whoever asks by name.
        if (std::ranges::find(event.devices(), name) == event.devices().end()) {
            event.add_devices(name);
        }
    }
    m_sink(event);
}

void ServerState::PublishRemoval(std::string const& device, ChannelMap::Removal const& removal) const {
    vq::vds::ChannelUnregisteredEvent event;
    event.set_device(device);
    event.set_channel(removal.channel);
    event.set_role(removal.role);
    m_sink(event);
    if (removal.unmapped) {
        PublishMapping(removal.channel);
    }
}

void ServerState::PublishUnregistered(std::string const& name, std::int32_t id) const {
    vq::vds::DeviceUnregisteredEvent event;
    event.set_name(name);
    event.set_device_id(static_cast<std::uint32_t>(id));
    m_sink(event);
}

}  // namespace vq::server
