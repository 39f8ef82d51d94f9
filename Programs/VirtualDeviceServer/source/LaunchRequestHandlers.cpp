#include <algorithm>
#include <chrono>

#include "DeviceRequests.pb.h"
#include "RequestTable.h"

// Programs that the server starts and ends on request.

namespace vq::server {

namespace {

constexpr std::chrono::seconds kCommandLimit{15};

/// Ends a program of this server's by signal. Another one is asked through one of its devices: its process id
/// is no more than what it said of itself, and signals go to no process on the word of a client.
ServerState::Refusal EndApplication(ServerState& state, ServerControl& control, std::uint32_t id) {
    auto const& applications = state.Applications().DeviceApplications();
    auto const found = applications.find(id);
    if (found == applications.end()) {
        return "there is no device application with id " + std::to_string(id);
    }
    std::int64_t const processId = found->second.description.field_7();
    if (control.Processes().IsOwn(processId)) {
        control.Processes().Terminate(processId, std::chrono::steady_clock::now());
        return std::nullopt;
    }
    auto const device = std::ranges::find_if(
        state.Devices().All(), [id](auto const& entry) { return entry.second.processId == id; });
    if (device == state.Devices().All().end()) {
        return "application " + std::to_string(id) +
               " was not launched by this server and has no device that could be asked to quit";
    }
    control.Commands().Send(device->second, vq::sd::QuitApplication(), kCommandLimit);
    return std::nullopt;
}

}  // namespace

// A launch may name a manifest in the second field, and asks in the third for the program's output to go
// where the server's goes.
void ServeLaunchRequests(RequestTable& table, ServerState& state, ServerControl& control) {
    table.Serve<vq::vds::GetAvailableDeviceApplications>(
        [&control](vq::vds::GetAvailableDeviceApplications const&) -> Answer {
            auto reply = std::make_unique<vq::vds::GetAvailableDeviceApplications::Reply>();
            for (std::string const& name : control.Processes().Available()) {
                reply->add_applications(name);
            }
            return reply;
        });
    table.Serve<vq::vds::LaunchDeviceApplication>(
        [&control](vq::vds::LaunchDeviceApplication const& request) -> Answer {
            if (control.IsStopping()) {
                return OwnError<vq::vds::LaunchDeviceApplication>(kStopping);
            }
            std::int64_t processId = 0;
            if (auto const refusal = control.Processes().Launch(request.application(), request.text_2(),
                                                                request.flag_3(), processId)) {
                return OwnError<vq::vds::LaunchDeviceApplication>(*refusal);
            }
            auto reply = std::make_unique<vq::vds::LaunchDeviceApplication::Reply>();
            reply->set_process_id(processId);
            return reply;
        });
    table.Serve<vq::vds::KillDeviceApplication>(
        [&state, &control](vq::vds::KillDeviceApplication const& request) {
            return ReplyUnlessOwn<vq::vds::KillDeviceApplication>(
                EndApplication(state, control, request.application_id()));
        });
}

}  // namespace vq::server
