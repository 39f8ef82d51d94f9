#include "RequestTable.h"

namespace vq::server {

namespace {

TimePoint Now() {
    return std::chrono::steady_clock::now();
}

void FillInfo(ServerState const& state, Device const& device, vq::vds::DeviceInfo& info) {
    info.set_id(device.id);
    info.set_name(device.name);
    info.set_display_name(device.label);
    info.set_type(device.type);
    for (std::string const& channel : state.Channels().ChannelsOf(device.id, vq::ch::ChannelRole_Producer)) {
        info.add_producer_channels(channel);
    }
    for (std::string const& channel : state.Channels().ChannelsOf(device.id, vq::ch::ChannelRole_Observer)) {
        info.add_observer_channels(channel);
    }
    info.set_flag_7(device.initialized);
    info.set_flag_8(device.stats.has_value());
    info.set_process_id(device.processId);
    info.set_second_process_id(device.secondProcessId);
}

void ServeLookups(RequestTable& table, ServerState& state) {
    table.Serve<vq::vds::GetDeviceInfos>([&state](vq::vds::GetDeviceInfos const&) -> Answer {
        auto reply = std::make_unique<vq::vds::GetDeviceInfos::Reply>();
        for (auto const& [id, device] : state.Devices().All()) {
            FillInfo(state, device, *reply->add_infos());
        }
        return reply;
    });
    table.Serve<vq::vds::GetDeviceInfo>([&state](vq::vds::GetDeviceInfo const& request) -> Answer {
        Device const* const device = state.Devices().FindByName(request.device());
        if (device == nullptr) {
            return OwnError<vq::vds::GetDeviceInfo>("there is no device '" + request.device() + "'");
        }
        auto reply = std::make_unique<vq::vds::GetDeviceInfo::Reply>();
        FillInfo(state, *device, *reply->mutable_info());
        return reply;
    });
    table.Serve<vq::vds::GetDevicesOfType>([&state](vq::vds::GetDevicesOfType const& request) -> Answer {
        auto reply = std::make_unique<vq::vds::GetDevicesOfType::Reply>();
        for (auto const& [id, device] : state.Devices().All()) {
            if (device.type == request.type()) {
                reply->add_devices(device.name);
            }
        }
        return reply;
    });
    table.Serve<vq::vds::GetDeviceRequestReplyAddress>(
        [&state](vq::vds::GetDeviceRequestReplyAddress const& request) -> Answer {
            Device const* const device = state.Devices().FindByName(request.device());
            if (device == nullptr) {
                return GeneralError("there is no device '" + request.device() + "'");
            }
            auto reply = std::make_unique<vq::vds::GetDeviceRequestReplyAddress::Reply>();
            reply->set_address(device->address);
            return reply;
        });
}

void ServeRegistration(RequestTable& table, ServerState& state, ServerControl& control) {
    table.Serve<vq::vds::RegisterSparseDevice>(
        [&state, &control](vq::vds::RegisterSparseDevice const& request) -> Answer {
            std::int32_t id = 0;
            auto const refusal = control.IsStopping() ? ServerState::Refusal(kStopping)
                                                      : state.RegisterDevice(request, Now(), id);
            if (refusal) {
                return GeneralError(*refusal);
            }
            auto reply = std::make_unique<vq::vds::RegisterSparseDevice::Reply>();
            reply->set_device_id(id);
            reply->set_auto_stats(state.automaticStats);
            return reply;
        });
    table.Serve<vq::vds::CreateServerDataEventListenerAddress>(
        [&state, &control](vq::vds::CreateServerDataEventListenerAddress const& request) -> Answer {
            if (state.Devices().Find(request.device_id()) == nullptr) {
                return GeneralError("there is no device with id " + std::to_string(request.device_id()));
            }
            auto const address = control.CreateDataEventAddress(request.device_id());
            if (!address) {
                return GeneralError("the server has no address left to listen at");
            }
            auto reply = std::make_unique<vq::vds::CreateServerDataEventListenerAddress::Reply>();
            reply->set_address(address->ToString());
            return reply;
        });
    table.Serve<vq::vds::ReportSparseDeviceInitialized>(
        [&state](vq::vds::ReportSparseDeviceInitialized const& request) {
            TimePoint const now = Now();
            state.Heard(request.device_id(), now);
            return ReplyUnless<vq::vds::ReportSparseDeviceInitialized>(
                state.ReportInitialized(request.device_id(), now));
        });
    table.Serve<vq::vds::UnregisterSparseDevice>([&state](vq::vds::UnregisterSparseDevice const& request) {
        return ReplyUnless<vq::vds::UnregisterSparseDevice>(
            state.UnregisterDevice(request.device_id(), request.name()));
    });
}

void ServePruning(RequestTable& table, ServerState& state) {
    table.Serve<vq::vds::PruneDevice>([&state](vq::vds::PruneDevice const& request) {
        return ReplyUnlessOwn<vq::vds::PruneDevice>(state.PruneByName(request.device()));
    });
    table.Serve<vq::vds::SetDevicePruneSettings>([&state](vq::vds::SetDevicePruneSettings const& request) {
        state.pruneAfter = std::chrono::milliseconds(request.timeout_ms());
        state.pruneInterval = std::chrono::milliseconds(request.interval_ms());
        return Reply<vq::vds::SetDevicePruneSettings>();
    });
    table.Serve<vq::vds::GetDevicePruneSettings>([&state](vq::vds::GetDevicePruneSettings const&) -> Answer {
        auto reply = std::make_unique<vq::vds::GetDevicePruneSettings::Reply>();
        reply->set_timeout_ms(static_cast<std::uint32_t>(state.pruneAfter.count()));
        reply->set_interval_ms(static_cast<std::uint32_t>(state.pruneInterval.count()));
        return reply;
    });
}

void ServeEvents(RequestTable& table, ServerState& state) {
    table.Serve<vq::vds::SendSparseDeviceEvent>([&state](vq::vds::SendSparseDeviceEvent const& request) {
        state.Heard(request.device_id(), Now());
        return ReplyUnlessOwn<vq::vds::SendSparseDeviceEvent>(state.PassOnEvent(request));
    });
}

}  // namespace

void ServeDeviceRequests(RequestTable& table, ServerState& state, ServerControl& control) {
    ServeLookups(table, state);
    ServeRegistration(table, state, control);
    ServePruning(table, state);
    ServeEvents(table, state);
}

}  // namespace vq::server
