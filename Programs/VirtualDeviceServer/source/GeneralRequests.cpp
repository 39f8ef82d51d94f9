#include "RequestTable.h"

namespace vq::server {

namespace {

/// Version of this server's own request handling, beside the protocol that clients check.
constexpr std::int32_t kServerVersion = 1;

template <class Request>
void ServeAddress(RequestTable& table, ServerControl& control, MessageAddress PublishingAddresses::*address) {
    table.Serve<Request>([&control, address](Request const&) -> Answer {
        auto reply = std::make_unique<typename Request::Reply>();
        reply->set_address((control.Addresses().*address).ToString());
        return reply;
    });
}

void ServeVersions(RequestTable& table, ServerControl& control) {
    table.Serve<vq::vds::GetVersion>([](vq::vds::GetVersion const&) -> Answer {
        auto reply = std::make_unique<vq::vds::GetVersion::Reply>();
        reply->set_major(VQ_VERSION_MAJOR);
        reply->set_minor(VQ_VERSION_MINOR);
        reply->set_patch(VQ_VERSION_PATCH);
        return reply;
    });
    table.Serve<vq::vds::GetProtocolVersion>([&control](vq::vds::GetProtocolVersion const&) -> Answer {
        auto reply = std::make_unique<vq::vds::GetProtocolVersion::Reply>();
        reply->set_server_version(kServerVersion);
        reply->set_protocol_version(control.Options().protocolVersion);
        return reply;
    });
    // What the last one has set; nothing set at first.
    auto const compatibility = std::make_shared<vq::vds::GetVQSDKCompatibilityVersion::Reply>();
    table.Serve<vq::vds::GetVQSDKCompatibilityVersion>(
        [compatibility](vq::vds::GetVQSDKCompatibilityVersion const&) -> Answer {
            return std::make_unique<vq::vds::GetVQSDKCompatibilityVersion::Reply>(*compatibility);
        });
    table.Serve<vq::vds::SetVQSDKCompatibilityVersion>(
        [compatibility](vq::vds::SetVQSDKCompatibilityVersion const& request) -> Answer {
            // The four numbers have the same fields in both messages.
            compatibility->ParseFromString(request.SerializeAsString());
            return Reply<vq::vds::SetVQSDKCompatibilityVersion>();
        });
}

}  // namespace

void ServeGeneralRequests(RequestTable& table, ServerControl& control) {
    table.Serve<vq::vds::Ping>([](vq::vds::Ping const&) { return Reply<vq::vds::Ping>(); });
    table.Serve<vq::vds::KillServer>([&control](vq::vds::KillServer const&) {
        control.Stop();
        return Reply<vq::vds::KillServer>();
    });
    table.Serve<vq::vds::GetDataPath>([&control](vq::vds::GetDataPath const&) -> Answer {
        auto reply = std::make_unique<vq::vds::GetDataPath::Reply>();
        reply->set_path(control.Options().dataDirectory);
        return reply;
    });
    ServeVersions(table, control);
    ServeAddress<vq::vds::GetServerEventAddress>(table, control, &PublishingAddresses::events);
    ServeAddress<vq::vds::GetServerDataEventBroadcastAddress>(table, control,
                                                              &PublishingAddresses::dataEvents);
    ServeAddress<vq::vds::GetServerHeartbeatEventAddress>(table, control, &PublishingAddresses::heartbeat);
}

}  // namespace vq::server
