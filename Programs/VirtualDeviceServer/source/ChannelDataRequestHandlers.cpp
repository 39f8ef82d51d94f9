#include "RequestTable.h"

namespace vq::server {

void ServeChannelDataRequests(RequestTable& table, ChannelDataStore& store, ServerControl& control) {
    using namespace vq::vds;  // NOLINT: a table of its messages
    table.Serve<ResendLatestChannelData>([&control](ResendLatestChannelData const&) {
        control.ResendLatestSamples();
        return Reply<ResendLatestChannelData>();
    });
    table.Serve<GetLatestChannelData>([&store](GetLatestChannelData const& request) -> Answer {
        auto reply = std::make_unique<GetLatestChannelData::Reply>();
        store.GetLatest(request.channels(), *reply->mutable_data());
        return reply;
    });
    table.Serve<SetAbsoluteChannelData>([&store](SetAbsoluteChannelData const& request) {
        return ReplyUnlessOwn<SetAbsoluteChannelData>(
            store.SetAbsolute(request.has_data() ? &request.data() : nullptr));
    });
    table.Serve<GetAbsoluteChannelData>([&store](GetAbsoluteChannelData const& request) -> Answer {
        vq::ch::NamedChannelData const* data = nullptr;
        if (auto const refusal = store.GetAbsolute(request.channel(), data); refusal) {
            return OwnError<GetAbsoluteChannelData>(*refusal);
        }
        auto reply = std::make_unique<GetAbsoluteChannelData::Reply>();
        if (data != nullptr) {
            *reply->mutable_data() = *data;
        }
        return reply;
    });
    table.Serve<ResetAbsoluteChannelData>([&store](ResetAbsoluteChannelData const& request) {
        return ReplyUnlessOwn<ResetAbsoluteChannelData>(store.ResetAbsolute(request.channel()));
    });
}

}  // namespace vq::server
