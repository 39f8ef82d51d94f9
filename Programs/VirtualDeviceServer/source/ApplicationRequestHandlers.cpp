#include "RequestTable.h"

namespace vq::server {

namespace {

void ServeDeviceApplications(RequestTable& table, ServerState& state, ServerControl& control) {
    table.Serve<vq::vds::RegisterDeviceApplication>(
        [&state, &control](vq::vds::RegisterDeviceApplication const& request) -> Answer {
            if (control.IsStopping()) {
                return OwnError<vq::vds::RegisterDeviceApplication>(kStopping);
            }
            auto reply = std::make_unique<vq::vds::RegisterDeviceApplication::Reply>();
            reply->set_application_id(state.RegisterDeviceApplication(request));
            control.Processes().Watch(request.process_id());
            return reply;
        });
    table.Serve<vq::vds::ReportDeviceApplicationInitialized>(
        [&state](vq::vds::ReportDeviceApplicationInitialized const& request) {
            return ReplyUnlessOwn<vq::vds::ReportDeviceApplicationInitialized>(
                state.ReportApplicationInitialized(request.application_id()));
        });
    table.Serve<vq::vds::UnregisterDeviceApplication>(
        [&state](vq::vds::UnregisterDeviceApplication const& request) {
            return ReplyUnless<vq::vds::UnregisterDeviceApplication>(
                state.UnregisterDeviceApplication(request.application_id()));
        });
    table.Serve<vq::vds::GetDeviceApplicationInfos>(
        [&state](vq::vds::GetDeviceApplicationInfos const&) -> Answer {
            auto reply = std::make_unique<vq::vds::GetDeviceApplicationInfos::Reply>();
            for (auto const& [id, application] : state.Applications().DeviceApplications()) {
                vq::vds::DeviceApplicationInfo& info = *reply->add_infos();
                info.set_application_id(id);
                *info.mutable_description() = application.description;
                info.set_initialized(application.initialized);
                for (auto const& [deviceId, device] : state.Devices().All()) {
                    if (device.processId == id) {
                        info.add_device_ids(deviceId);
                    }
                }
            }
            return reply;
        });
}

void ServeSdkApplications(RequestTable& table, ServerState& state, ServerControl& control) {
    table.Serve<vq::vds::RegisterVQSDKApplication>(
        [&state, &control](vq::vds::RegisterVQSDKApplication const& request) -> Answer {
            if (control.IsStopping()) {
                return OwnError<vq::vds::RegisterVQSDKApplication>(kStopping);
            }
            auto reply = std::make_unique<vq::vds::RegisterVQSDKApplication::Reply>();
            reply->set_application_id(state.RegisterSdkApplication(request));
            control.Processes().Watch(static_cast<std::int64_t>(request.process_id()));
            return reply;
        });
    table.Serve<vq::vds::UnregisterVQSDKApplication>(
        [&state](vq::vds::UnregisterVQSDKApplication const& request) {
            return ReplyUnless<vq::vds::UnregisterVQSDKApplication>(
                state.UnregisterSdkApplication(request.application_id()));
        });
    table.Serve<vq::vds::GetVQSDKApplicationInfos>(
        [&state](vq::vds::GetVQSDKApplicationInfos const&) -> Answer {
            auto reply = std::make_unique<vq::vds::GetVQSDKApplicationInfos::Reply>();
            for (auto const& [id, description] : state.Applications().SdkApplications()) {
                vq::vds::VQSDKApplicationInfo& info = *reply->add_infos();
                info.set_application_id(id);
                *info.mutable_description() = description;
                for (auto const& [deviceId, device] : state.Devices().All()) {
                    // The device of a shim names the process that it works for.
                    if (device.secondProcessId != 0 &&
                        static_cast<std::int64_t>(device.secondProcessId) == description.process_id()) {
                        info.add_device_ids(deviceId);
                    }
                }
            }
            return reply;
        });
}

}  // namespace

void ServeApplicationRequests(RequestTable& table, ServerState& state, ServerControl& control) {
    ServeDeviceApplications(table, state, control);
    ServeSdkApplications(table, state, control);
}

}  // namespace vq::server
