#include <algorithm>

#include "DevicePipes.h"
#include "Logging/Log.h"
#include "ServerExchange.h"
#include "ServerRequests.pb.h"
#include "SparseDevice/SparseDevice.h"

// Questions to the server: who provides a channel, which devices and channels there are.

namespace {

constexpr std::chrono::milliseconds kMappingTimeout{2000};
constexpr int kMappingAttempts = 4;

void LogNoProducer(std::string const& channel) {
    LOG_V("No producer for channel %s", channel.c_str());
}

}  // namespace

bool SparseDevice::GetChannelMappings(std::string const& channel,
                                      vq::vds::GetChannelMappings_Reply& mappings) {
    char const* const name = m_descriptor->name.c_str();
    for (int attempt = 0; attempt < kMappingAttempts; ++attempt) {
        LOG_I("%s: Starting channel request...", name);
        // A failed attempt must leave nothing behind for the next.
        vq::vds::GetChannelMappings::Reply reply;
        if (ExchangeWithServer(m_serverPipe, vq::vds::GetChannelMappings(), reply, kMappingTimeout)) {
            LOG_I("%s: Finished channel request...", name);
            mappings.Swap(&reply);
            return true;
        }
        LOG_I("%s: Retrying...", name);
    }
    LOG_E("Failed to get channel mapping for %s", channel.c_str());
    return false;
}

std::string SparseDevice::GetChannelProviderDeviceName(std::string const& channel) {
    vq::vds::GetChannelMappings::Reply reply;
    if (!GetChannelMappings(channel, reply)) {
        return {};
    }
    for (vq::vds::DeviceAndChannel const& mapping : reply.mappings()) {
        if (mapping.channel() == channel) {
            LOG_V("Attempting to retrieve pipe for %s", mapping.device().c_str());
            return mapping.device();
        }
    }
    LogNoProducer(channel);
    return {};
}

std::string SparseDevice::GetChannelProviderDeviceNameByPriority(std::string const& channel,
                                                                 std::vector<std::string> const& priorities) {
    vq::vds::GetChannelMappings::Reply reply;
    if (!GetChannelMappings(channel, reply)) {
        return {};
    }
    std::string fallback;
    for (std::string const& wanted : priorities) {
        for (vq::vds::DeviceAndChannel const& mapping : reply.mappings()) {
            if (mapping.channel() != channel) {
                continue;
            }
            if (mapping.device() == wanted) {
                return wanted;
            }
            fallback = mapping.device();
        }
    }
    if (fallback.empty()) {
        LogNoProducer(channel);
    }
    return fallback;
}

AMessagePipeRequestReply* SparseDevice::GetChannelProviderDeviceRequestReplyPipe(
    std::string const& channel, std::vector<std::string> const& priorities, std::string const& node) {
    std::string const device = priorities.empty()
                                   ? GetChannelProviderDeviceName(channel)
                                   : GetChannelProviderDeviceNameByPriority(channel, priorities);
    if (device.empty()) {
        LOG_V("no req/rep pipe for %s", channel.c_str());
        return nullptr;
    }
    return GetDeviceRequestReplyPipe(device, node);
}

AMessagePipeRequestReply* SparseDevice::GetDeviceRequestReplyPipe(std::string const& device,
                                                                  std::string const& node) {
    std::string address;
    if (!RequestDeviceAddress(m_serverPipe, device, nullptr, address)) {
        return nullptr;
    }
    return GetDeviceRequestReplyPipeFromAddress(device, address, node);
}

AMessagePipeRequestReply* SparseDevice::GetDeviceRequestReplyPipeFromAddress(std::string const& device,
                                                                             std::string const& address,
                                                                             std::string const& node) {
    return OpenPipeToDevice(m_messageContext, device, address, node);
}

bool SparseDevice::GetDeviceInfo(std::string const& device, vq::vds::GetDeviceInfo_Reply& reply) {
    vq::vds::GetDeviceInfo request;
    request.set_device(device);
    vq::vds::GetDeviceInfo::Error error;
    if (!ExchangeWithServer(m_serverPipe, request, reply, error)) {
        LOG_E("Failed to get device info for %s", device.c_str());
        return false;
    }
    if (error.IsInitialized()) {
        LOG_E("Failed to get device info for %s, %s", device.c_str(), error.message().c_str());
        return false;
    }
    return true;
}

bool SparseDevice::GetDeviceInfos(vq::vds::GetDeviceInfos_Reply& reply) {
    return ExchangeWithServer(m_serverPipe, vq::vds::GetDeviceInfos(), reply);
}

std::vector<std::string> SparseDevice::FindDevicesOfType(SparseDeviceType type) {
    vq::vds::GetDevicesOfType request;
    request.set_type(DeviceTypeToString(type));
    vq::vds::GetDevicesOfType::Reply reply;
    if (!ExchangeWithServer(m_serverPipe, request, reply)) {
        LOG_E("Failed to get device list");
        return {};
    }
    return {reply.devices().begin(), reply.devices().end()};
}

std::vector<std::string> SparseDevice::FindChannelsOfType(std::string const& type, bool flag) {
    vq::vds::GetChannelsOfType request;
    request.set_type(type);
    request.set_flag(flag);
    vq::vds::GetChannelsOfType::Reply reply;
    if (!ExchangeWithServer(m_serverPipe, request, reply)) {
        LOG_E("Failed to get channel list");
        return {};
    }
    return {reply.channels().begin(), reply.channels().end()};
}

std::vector<std::string> SparseDevice::FindDeviceChannels(std::string const& device, vq::ch::ChannelRole role,
                                                          std::string const& type) {
    vq::vds::GetDeviceInfo request;
    request.set_device(device);
    vq::vds::GetDeviceInfo::Reply reply;
    vq::vds::GetDeviceInfo::Error error;
    if (!ExchangeWithServer(m_serverPipe, request, reply, error)) {
        LOG_E("Failed to get device info.");
        return {};
    }
    if (error.IsInitialized()) {
        LOG_E("Failed to get device info %s", error.message().c_str());
        return {};
    }
    auto const& names = role == vq::ch::ChannelRole_Producer ? reply.info().producer_channels()
                                                             : reply.info().observer_channels();
    std::vector<std::string> channels(names.begin(), names.end());
    if (!type.empty()) {
        // The device's entry gives no types.
        std::vector<std::string> const ofType = FindChannelsOfType(type, false);
        std::erase_if(channels, [&ofType](std::string const& name) {
            return std::find(ofType.begin(), ofType.end(), name) == ofType.end();
        });
    }
    return channels;
}

bool SparseDevice::AddChannelProducerFromSelf(std::string const& channel) {
    return AddChannelProducersFromSelf({channel});
}

bool SparseDevice::AddChannelProducersFromSelf(std::vector<std::string> const& channels) {
    vq::vds::AddChannelMappings request;
    for (std::string const& channel : channels) {
        vq::vds::DeviceAndChannel& mapping = *request.add_mappings();
        mapping.set_device(m_descriptor->name);
        mapping.set_channel(channel);
    }
    vq::vds::AddChannelMappings::Reply reply;
    vq::vds::AddChannelMappings::Error error;
    if (!ExchangeWithServer(m_serverPipe, request, reply, error)) {
        LOG_E("Failed to send channel map.");
        return false;
    }
    if (error.failed_size() != 0) {
        LOG_E("Failed to set channel map for %d channels", error.failed_size());
        return false;
    }
    return true;
}
