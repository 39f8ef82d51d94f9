#include "RequestTable.h"

namespace vq::server {

namespace {

void ServeLookups(RequestTable& table, ServerState& state) {
    table.Serve<vq::vds::GetChannelInfos>([&state](vq::vds::GetChannelInfos const&) -> Answer {
        auto reply = std::make_unique<vq::vds::GetChannelInfos::Reply>();
        for (ChannelMap::Channel const* const channel : state.Channels().All()) {
            vq::vds::ChannelInfo& info = *reply->add_infos();
            info.set_id(channel->id);
            info.set_name(channel->name);
            info.set_text_3(channel->name);  // registrations carry no label
            info.set_text_4(channel->dataType);
            info.set_text_5(channel->defaultProducer);
            info.set_flag_6(channel->resizable);
            info.set_flag_7(channel->userVisible);
            info.set_flag_8(false);
        }
        return reply;
    });
    table.Serve<vq::vds::GetChannelsOfType>([&state](vq::vds::GetChannelsOfType const& request) -> Answer {
        auto reply = std::make_unique<vq::vds::GetChannelsOfType::Reply>();
        for (ChannelMap::Channel const* const channel : state.Channels().All()) {
            if (channel->dataType == request.type()) {
                reply->add_channels(channel->name);
            }
        }
        return reply;
    });
    table.Serve<vq::vds::GetChannelMappings>([&state](vq::vds::GetChannelMappings const&) -> Answer {
        auto reply = std::make_unique<vq::vds::GetChannelMappings::Reply>();
        for (auto const& [device, channel] : state.Channels().Mappings()) {
            vq::vds::DeviceAndChannel& mapping = *reply->add_mappings();
            mapping.set_device(state.Devices().Find(device)->name);
            mapping.set_channel(channel);
        }
        return reply;
    });
}

/// The reply, or the request's own error with the refused entries.
template <class Request>
Answer ReplyUnlessRefused(ServerState::Mappings&& refused) {
    if (refused.empty()) {
        return Reply<Request>();
    }
    auto error = std::make_unique<typename Request::Error>();
    *error->mutable_failed() = std::move(refused);
    return error;
}

void ServeMappings(RequestTable& table, ServerState& state) {
    table.Serve<vq::vds::AddChannelMappings>([&state](vq::vds::AddChannelMappings const& request) {
        return ReplyUnlessRefused<vq::vds::AddChannelMappings>(state.AddMappings(request.mappings()));
    });
    table.Serve<vq::vds::RemoveChannelMappings>([&state](vq::vds::RemoveChannelMappings const& request) {
        return ReplyUnlessRefused<vq::vds::RemoveChannelMappings>(state.RemoveMappings(request.mappings()));
    });
    table.Serve<vq::vds::ClearChannelMappings>([&state](vq::vds::ClearChannelMappings const&) {
        state.ClearMappings();
        return Reply<vq::vds::ClearChannelMappings>();
    });
}

}  // namespace

void ServeChannelRequests(RequestTable& table, ServerState& state) {
    ServeLookups(table, state);
    ServeMappings(table, state);
    table.Serve<vq::vds::RegisterSparseDeviceChannels>(
        [&state](vq::vds::RegisterSparseDeviceChannels const& request) -> Answer {
            state.Heard(request.device_id(), std::chrono::steady_clock::now());
            std::vector<std::int32_t> ids;
            if (auto const refusal = state.RegisterChannels(request, ids); refusal) {
                return GeneralError(*refusal);
            }
            auto reply = std::make_unique<vq::vds::RegisterSparseDeviceChannels::Reply>();
            reply->mutable_channel_ids()->Assign(ids.begin(), ids.end());
            return reply;
        });
    table.Serve<vq::vds::UnregisterSparseDeviceChannels>(
        [&state](vq::vds::UnregisterSparseDeviceChannels const& request) {
            state.Heard(request.device_id(), std::chrono::steady_clock::now());
            return ReplyUnless<vq::vds::UnregisterSparseDeviceChannels>(state.UnregisterChannels(request));
        });
}

}  // namespace vq::server
