#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "Descriptors.pb.h"

namespace vq::server {

/// A program that runs devices.
struct DeviceApplication {
    vq::descriptors::data::DeviceApplicationDescription description;
    /// It has said that its initialisation is done.
    bool initialized = false;
};

/// The programs that have registered: those that run devices and those that use them. Both kinds take their
/// ids from one sequence. A program that registers again, by name and process id, takes the place of its old
/// entry.
///
/// Threads: one.
class ApplicationTable {
public:
    /// @param firstId  id of the first application; never 0, which clients read as a refusal
    explicit ApplicationTable(std::uint32_t firstId = 1) : m_nextId(firstId) {}

    /// What became of a registration.
    struct Registered {
        std::uint32_t id = 0;
        std::uint32_t replaced = 0;  ///< id of the entry that it took the place of, or 0
    };
    Registered AddDeviceApplication(std::string const& name, std::string const& label,
                                    std::int64_t processId);
    Registered AddSdkApplication(std::string const& name, std::uint64_t processId);

    /// Null when there is none.
    DeviceApplication* FindDeviceApplication(std::uint32_t id);
    bool RemoveDeviceApplication(std::uint32_t id) { return m_deviceApplications.erase(id) != 0; }
    bool RemoveSdkApplication(std::uint32_t id) { return m_sdkApplications.erase(id) != 0; }

    std::map<std::uint32_t, DeviceApplication> const& DeviceApplications() const {
        return m_deviceApplications;
    }
    std::map<std::uint32_t, vq::descriptors::data::VQSDKApplicationDescription> const& SdkApplications()
        const {
        return m_sdkApplications;
    }
    std::uint32_t NextId() const { return m_nextId; }

private:
    std::uint32_t TakeId();

    std::map<std::uint32_t, DeviceApplication> m_deviceApplications;
    std::map<std::uint32_t, vq::descriptors::data::VQSDKApplicationDescription> m_sdkApplications;
    std::uint32_t m_nextId;
};

}  // namespace vq::server
