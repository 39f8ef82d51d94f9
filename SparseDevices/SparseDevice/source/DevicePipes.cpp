#include "DevicePipes.h"

#include "Messaging/AMessagePipeProvider.h"
#include "ServerExchange.h"
#include "ServerRequests.pb.h"

AMessagePipeRequestReply* OpenPipeToDevice(AMessageContext* context, std::string const& device,
                                           std::string const& address, std::string const& node) {
    AMessagePipeRequestReply* const pipe =
        context->GetPipeProvider()->GetRequestReplyClient(MessageAddress::FromString(address), node);
    if (pipe == nullptr) {
        LOG_E("Failed to create device request reply pipe");
        return nullptr;
    }
    LOG_V("Sparse Device Address for %s [%s]: %s", device.c_str(), node.empty() ? "host" : node.c_str(),
          pipe->GetRemote().ToString().c_str());
    return pipe;
}

bool RequestDeviceAddress(AMessagePipeRequestReply* serverPipe, std::string const& device,
                          std::string const* node, std::string& address) {
    LOG_V("Attempting to retrieve pipe address for %s", device.c_str());
    vq::vds::GetDeviceRequestReplyAddress request;
    request.set_device(device);
    request.set_flag(false);
    if (node != nullptr) {
        request.set_node(*node);
    }
    vq::vds::GetDeviceRequestReplyAddress::Reply reply;
    if (!ExchangeWithServer(serverPipe, request, reply)) {
        LOG_E("Failed to get the address of %s from the VDS", device.c_str());
        return false;
    }
    address = reply.address();
    return true;
}
