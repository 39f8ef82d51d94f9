#include "RemoteDevices.h"
#include "RequestTable.h"

// Requests about headsets. They are answered at once: what takes longer is "under way" in a refusal, and who
// wants the outcome asks again.

namespace vq::server {

void ServeRemoteRequests(RequestTable& table, ServerControl& control) {
    table.Serve<vq::vds::ConnectRemoteDevice>([&control](vq::vds::ConnectRemoteDevice const& request) {
        return ReplyUnless<vq::vds::ConnectRemoteDevice>(
            control.Remotes().Connect(request.device(), request.port()).refusal);
    });
    table.Serve<vq::vds::DisconnectRemoteDevice>([&control](vq::vds::DisconnectRemoteDevice const& request) {
        return ReplyUnless<vq::vds::DisconnectRemoteDevice>(
            control.Remotes().Disconnect(request.device()).refusal);
    });
    // The flag says that the port is one of this machine; its partner is of the headset then.
    table.Serve<vq::vds::MapRemotePort>([&control](vq::vds::MapRemotePort const& request) -> Answer {
        RemoteDevices::Answer const answer = control.Remotes().MapPort(request.port(), request.flag_2());
        if (answer.refusal) {
            return GeneralError(*answer.refusal);
        }
        auto reply = std::make_unique<vq::vds::MapRemotePort::Reply>();
        reply->set_port(answer.port);
        return reply;
    });
}

}  // namespace vq::server
