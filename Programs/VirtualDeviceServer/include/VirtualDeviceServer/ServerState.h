#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ServerRequests.pb.h"
#include "VirtualDeviceServer/ApplicationTable.h"
#include "VirtualDeviceServer/ChannelMap.h"
#include "VirtualDeviceServer/DeviceTable.h"

namespace vq::server {

/// A device as the journal knows it.
struct KnownDevice {
    std::int32_t id = 0;
    std::string name;

    friend bool operator==(KnownDevice const&, KnownDevice const&) = default;
};

/// What a server that comes back needs of its former life: where the ids go on, and whom it knew.
struct ServerMemory {
    std::int32_t nextDeviceId = 1;
    std::int32_t nextChannelId = 1;
    std::uint32_t nextApplicationId = 1;
    std::vector<KnownDevice> devices;

    friend bool operator==(ServerMemory const&, ServerMemory const&) = default;
};

/// Everything that the server knows, and the rules by which it changes. It has no socket and no clock: an
/// event to publish is handed to the sink at the moment it becomes true, and who calls tells the time.
///
/// Operations that can refuse give the reason as a text for the client, and nothing when all went well.
///
/// Threads: one.
class ServerState {
public:
    /// How long after its registration a device may wait for the event.
    static constexpr std::chrono::seconds kFreshTime{15};

    using EventSink = std::function<void(google::protobuf::MessageLite const&)>;
    using Refusal = std::optional<std::string>;
    using Mappings = google::protobuf::RepeatedPtrField<vq::vds::DeviceAndChannel>;

    /// @param sink    gets every event; must not call back
    /// @param memory  the former life, or the default for a first one
    ServerState(EventSink sink, ServerMemory const& memory);

    /// @name Devices
    ///@{
    /// @param id  the new device's id
    Refusal RegisterDevice(vq::vds::RegisterSparseDevice const& request, TimePoint now, std::int32_t& id);
    /// @param ids  one for each channel of the request, in its order
    Refusal RegisterChannels(vq::vds::RegisterSparseDeviceChannels const& request,
                             std::vector<std::int32_t>& ids);
    Refusal UnregisterChannels(vq::vds::UnregisterSparseDeviceChannels const& request);
    Refusal ReportInitialized(std::int32_t deviceId, TimePoint now);
    /// A listener has come: announces the devices again that registered a moment ago and were last announced
    /// before. It may be the one of such a device, which waits for the event. A device is announced so a few
    /// times at most, however many listeners come.
    /// @param came  when it came
    void AnnounceToNewListener(TimePoint came, TimePoint now);
    /// @param name  must be that of the device with the id
    Refusal UnregisterDevice(std::int32_t deviceId, std::string const& name);
    /// Removes every device of that name, as if it had fallen silent.
    Refusal PruneByName(std::string const& name);
    /// Publishes an event on behalf of a device.
    Refusal PassOnEvent(vq::vds::SendSparseDeviceEvent const& request);
    /// The devices that are to be asked for their settings; each is named once.
    std::vector<std::int32_t> TakeDevicesToAsk();
    /// Keeps what a device has said of its settings; one that is too large counts as none.
    Refusal StoreProperties(std::int32_t deviceId, vq::sd::ConfigurationPropertyInfo const& properties);
    /// Counts the changes of what is kept of settings.
    std::uint64_t PropertyGeneration() const { return m_propertyGeneration; }
    /// Keeps a device's latest statistics.
    Refusal StoreStats(vq::vds::SparseDeviceStatsUpdate const& request);

    /// The device gave a sign of life; an unknown id is none.
    void Heard(std::int32_t deviceId, TimePoint now);
    /// Removes the devices that have been silent for longer than the prune time.
    void PruneSilent(TimePoint now);
    void MarkAllHeard(TimePoint now) { m_devices.MarkAllHeard(now); }

    /// Zero: devices may be silent for ever.
    std::chrono::milliseconds pruneAfter{15000};
    /// Time between two looks for silent devices.
    std::chrono::milliseconds pruneInterval{250};
    /// Devices that register from now on are to send statistics.
    bool automaticStats = false;
    ///@}

    /// @name Mappings
    ///@{
    /// Each gives the entries that it refused; the others are in force.
    Mappings AddMappings(Mappings const& mappings);
    Mappings RemoveMappings(Mappings const& mappings);
    void ClearMappings();
    ///@}

    /// @name Applications
    ///@{
    std::uint32_t RegisterDeviceApplication(vq::vds::RegisterDeviceApplication const& request);
    Refusal ReportApplicationInitialized(std::uint32_t id);
    Refusal UnregisterDeviceApplication(std::uint32_t id);
    /// Removes the applications of both kinds of a process that has ended without unregistering them, and the
    /// devices of those that run some.
    /// @param how  for the event, such as "was ended by signal 9"
    void EndApplicationsOf(std::int64_t processId, std::string const& how);
    std::uint32_t RegisterSdkApplication(vq::vds::RegisterVQSDKApplication const& request);
    Refusal UnregisterSdkApplication(std::uint32_t id);
    ///@}

    /// @name The former life
    ///@{
    /// Announces each device of the former life as unregistered, unless it has come back, so that a living
    /// one registers anew.
    void AnnounceFormerDevices();
    /// Ends the announcements: who has not come back by now is not known any more.
    void ForgetFormerDevices();
    bool HasFormerDevices() const { return !m_former.empty(); }
    /// What the journal is to hold now: the present devices, and the former ones not yet forgotten.
    ServerMemory Memory() const;
    /// Changes whenever Memory() does.
    std::uint64_t MemoryRevision() const { return m_memoryRevision; }
    ///@}

    DeviceTable const& Devices() const { return m_devices; }
    ChannelMap const& Channels() const { return m_channels; }
    ApplicationTable const& Applications() const { return m_applications; }

private:
    struct FormerDevices {
        std::vector<std::int32_t> ids;
        std::size_t returned = 0;
    };

    static std::string NoSuchDevice(std::int32_t id);
    void RemoveDevice(std::int32_t id, char const* reason);
    void RemoveCrashedApplication(Device const& device);
    void AnnounceCrash(std::uint32_t application, std::string const& text);
    /// True when a former device of that name was still missing.
    bool NoteReturn(std::string const& name);
    void PublishRegistration(Device& device, TimePoint now) const;
    void PublishMapping(std::string const& channel) const;
    void PublishRemoval(std::string const& device, ChannelMap::Removal const& removal) const;
    void PublishUnregistered(std::string const& name, std::int32_t id) const;

    EventSink m_sink;
    DeviceTable m_devices;
    ChannelMap m_channels;
    ApplicationTable m_applications;
    /// By name. Several processes may have had a device of one name.
    std::map<std::string, FormerDevices> m_former;
    std::uint64_t m_memoryRevision = 0;
    std::uint64_t m_propertyGeneration = 0;
};

}  // namespace vq::server
