#include <algorithm>
#include <chrono>

#include "DeviceRequests.pb.h"
#include "RequestTable.h"

namespace vq::server {

namespace {

/// A device that has not answered by then is left to itself.
constexpr std::chrono::seconds kCommandLimit{15};

}  // namespace

void ServeStatsRequests(RequestTable& table, ServerState& state, ServerControl& control) {
    table.Serve<vq::vds::SparseDeviceStatsUpdate>([&state](vq::vds::SparseDeviceStatsUpdate const& request) {
        state.Heard(request.device_id(), std::chrono::steady_clock::now());
        return ReplyUnlessOwn<vq::vds::SparseDeviceStatsUpdate>(state.StoreStats(request));
    });
    table.Serve<vq::vds::GetDeviceStats>([&state](vq::vds::GetDeviceStats const& request) -> Answer {
        for (std::string const& name : request.devices()) {
            if (state.Devices().FindByName(name) == nullptr) {
                return OwnError<vq::vds::GetDeviceStats>("there is no device '" + name + "'");
            }
        }
        auto reply = std::make_unique<vq::vds::GetDeviceStats::Reply>();
        for (auto const& [id, device] : state.Devices().All()) {
            bool const asked = request.devices().empty() ||
                               std::ranges::find(request.devices(), device.name) != request.devices().end();
            if (asked && device.stats) {
                vq::vds::DeviceStatEntry& entry = *reply->add_entries();
                entry.set_device(device.name);
                *entry.mutable_stats() = *device.stats;
            }
        }
        return reply;
    });
    table.Serve<vq::vds::EnableAutomaticStatsCollection>(
        [&state, &control](vq::vds::EnableAutomaticStatsCollection const& request) {
            // Those that register from now on are told in the answer.
            state.automaticStats = request.enabled();
            vq::sd::EnableAutomaticStatsCollection command;
            command.set_enabled(request.enabled());
            for (auto const& [id, device] : state.Devices().All()) {
                control.Commands().Send(device, command, kCommandLimit);
            }
            return Reply<vq::vds::EnableAutomaticStatsCollection>();
        });
}

}  // namespace vq::server
