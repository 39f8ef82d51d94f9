#include <algorithm>

#include "Logging/Log.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/Channel.h"
#include "Messaging/ChannelFactory.h"
#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "ServerExchange.h"
#include "ServerRequests.pb.h"
#include "SparseDevice/SparseDevice.h"

// Making the device and its channels known to the server, and taking them back.

bool SparseDevice::SendRegisterDeviceMessage(AMessagePipeProvider* provider) {
    if (m_serverPipe == nullptr || m_dataEventListener == nullptr) {
        LOG_E(
            "Failed to send register device message, SparseDevice must call Init() before sending "
            "RegisterDevice message");
        return false;
    }
    vq::vds::RegisterSparseDevice request;
    vq::descriptors::data::SparseDeviceDescription& description = *request.mutable_description();
    description.set_name(m_descriptor->name);
    description.set_type(DeviceTypeToString(m_descriptor->type));
    description.set_display_name(m_descriptor->label);
    description.set_process_id(m_descriptor->processId);
    description.set_second_process_id(m_descriptor->shimProcessId);
    request.set_address(m_devicePipe->GetRemote().ToString());
    vq::vds::RegisterSparseDevice::Reply reply;
    if (!ExchangeWithServer(m_serverPipe, request, reply) || reply.device_id() == 0) {
        return false;
    }
    m_deviceId = reply.device_id();
    m_autoStats = reply.auto_stats();
    return OpenDataEventSender(provider);
}

bool SparseDevice::OpenDataEventSender(AMessagePipeProvider* provider) {
    vq::vds::CreateServerDataEventListenerAddress request;
    request.set_device_id(m_deviceId);
    vq::vds::CreateServerDataEventListenerAddress::Reply reply;
    if (!ExchangeWithServer(m_serverPipe, request, reply)) {
        LOG_E("Failed to get server data event listener address");
        return false;
    }
    AMessagePipeEventSender* const former = m_dataEventSender;
    m_dataEventSender =
        provider->GetEventSender(MessageAddress::FromString(reply.address()), "", SocketRole::Bind);
    if (former != nullptr && former != m_dataEventSender) {
        // Of the registration that the server has dropped: nobody listens there any more.
        provider->DisposePipe(former);
    }
    if (m_dataEventSender == nullptr) {
        LOG_E("Failed to get data event sender for address @ %s", reply.address().c_str());
        return false;
    }
    return true;
}

bool SparseDevice::SendRegisterDeviceChannelsMessage(bool automap) {
    std::vector<Channel*> channels;
    for (auto const& [name, producer] : m_producers) {
        channels.push_back(producer.get());
    }
    for (auto const& [name, observer] : m_observers) {
        channels.push_back(observer.get());
    }
    vq::vds::RegisterSparseDeviceChannels request;
    request.set_device_id(m_deviceId);
    request.set_flag(automap);
    for (Channel* const channel : channels) {
        channel->PopulateChannelDescriptionMessage(request.add_channels());
    }
    LOG_V("channel registration device id %d", m_deviceId);
    vq::vds::RegisterSparseDeviceChannels::Reply reply;
    if (!ExchangeWithServer(m_serverPipe, request, reply)) {
        return false;
    }
    std::size_t const known = std::min(channels.size(), static_cast<std::size_t>(reply.channel_ids_size()));
    for (std::size_t i = 0; i < known; ++i) {
        channels[i]->SetChannelId(reply.channel_ids(static_cast<int>(i)));
    }
    return true;
}

bool SparseDevice::SendRegisterDeviceChannelMessage(Channel* channel, bool automap) {
    vq::vds::RegisterSparseDeviceChannels request;
    request.set_device_id(m_deviceId);
    request.set_flag(automap);
    channel->PopulateChannelDescriptionMessage(request.add_channels());
    LOG_V("channel registration device id %d", m_deviceId);
    vq::vds::RegisterSparseDeviceChannels::Reply reply;
    if (!ExchangeWithServer(m_serverPipe, request, reply)) {
        return false;
    }
    channel->SetChannelId(reply.channel_ids().at(0));
    return true;
}

bool SparseDevice::SendUnregisterDeviceChannelMessage(Channel* channel) {
    vq::vds::UnregisterSparseDeviceChannels request;
    request.set_device_id(m_deviceId);
    request.add_channel_ids(channel->GetChannelId());
    LOG_V("channel unregistration device id %d", m_deviceId);
    vq::vds::UnregisterSparseDeviceChannels::Reply reply;
    return ExchangeWithServer(m_serverPipe, request, reply);
}

bool SparseDevice::SendReportDeviceInitializedMessage() {
    vq::vds::ReportSparseDeviceInitialized request;
    request.set_device_id(m_deviceId);
    vq::vds::ReportSparseDeviceInitialized::Reply reply;
    bool const result = ExchangeWithServer(m_serverPipe, request, reply);
    m_reportedInitialized = true;
    return result;
}

void SparseDevice::SendUnregisterDeviceMessage() {
    vq::vds::UnregisterSparseDevice request;
    request.set_device_id(m_deviceId);
    request.set_name(m_descriptor->name);
    vq::vds::UnregisterSparseDevice::Reply reply;
    if (m_serverStopping) {
        // It may be gone already, and nobody waits for it.
        VQ_CHECK(m_serverPipe != nullptr && !m_serverPipe->IsDisposed());
        MessageUtils::SendReceive(m_serverPipe, request, reply, std::chrono::milliseconds(1), nullptr);
    } else if (!ExchangeWithServer(m_serverPipe, request, reply)) {
        LOG_E("Failed to unregister sparse device from Virtual Device Server");
    }
}

bool SparseDevice::UpdateKnownChannels() {
    if (m_channelFactory == nullptr) {
        LOG_E("Failed to update known channels, channel factory is null");
        return false;
    }
    vq::vds::GetChannelInfos::Reply reply;
    if (!ExchangeWithServer(m_serverPipe, vq::vds::GetChannelInfos(), reply)) {
        LOG_E("Failed to get channel infos from the VDS");
        return false;
    }
    std::vector<ChannelDescriptor*> descriptors;
    for (vq::vds::ChannelInfo const& info : reply.infos()) {
        descriptors.push_back(new ChannelDescriptor(info));
    }
    m_channelFactory->AddChannelDescriptors(descriptors);
    return true;
}
