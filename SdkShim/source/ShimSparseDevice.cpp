#include "ShimSparseDevice.h"

#include <unistd.h>

#include <chrono>
#include <memory>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/AMessage.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/EventDispatcher.h"
#include "Messaging/MessageTypeName.h"
#include "Messaging/MessageUtils.h"
#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "Utils/OSUtils.h"

namespace vq::SdkShim {

namespace {

constexpr std::chrono::milliseconds kServerTimeout{15000};

}  // namespace

ShimSparseDevice::ShimSparseDevice()
    : SparseDevice(SparseDeviceType::Shim), m_executableName(GetExecutableName()) {
    BuildFeatureToDevicePriorityMap();
}

bool ShimSparseDevice::Init(ManifestProcessor::ManifestData const& data,
                            SparseDeviceApplication* application) {
    if (!SparseDevice::Init(data, application)) {
        return false;
    }
    Dispatcher()->RegisterEventHandler(MessageTypeName(vds::ChannelMappingChangedEvent::default_instance()),
                                       std::make_shared<EventHandler>([this](AMessage* message) {
                                           return OnChannelMappingChangedEvent(message);
                                       }));
    return true;
}

void ShimSparseDevice::BuildFeatureToDevicePriorityMap() {
    m_featureDevicePriorities = {
        {Feature::Graphics, {"MockVQ1GraphicsViewSparseDevice"}},
        {Feature::Audio, {"MockVQ1AudioSparseDevice"}},
        {Feature::Head, {"MockVQ1HeadposeSparseDevice"}},
        {Feature::Eye, {"MockVQ1EyeTrackingSparseDevice"}},
        {Feature::HandTracking, {"VirtualRoomHandTrackingSparseDevice"}},
        {Feature::Input, {"VirtualRoomInputSparseDevice"}},
        {Feature::Lifecycle, {"MockVQ1LifecycleManagerSparseDevice"}},
        {Feature::Meshing, {"VirtualRoomMeshingSparseDevice"}},
        {Feature::Raycast, {"VirtualRoomMeshingSparseDevice"}},
        {Feature::Planes, {"VirtualRoomMeshingSparseDevice"}},
        {Feature::Identity, {"MockVQ1IdentitySparseDevice"}},
        {Feature::ImageTracking, {"VirtualRoomImageTrackingSparseDevice"}},
        {Feature::PersistentCoordFrame, {"VirtualRoomPcfSparseDevice"}},
    };
}

void ShimSparseDevice::TrackFeatureChannelProperty(Feature feature, std::string const& property) {
    std::string const channel = std::as_const(Configuration()).GetValue(property).string_value();
    LOG_V("Tracking %s channel property -> channel name %s for feature %s.", property.c_str(),
          channel.c_str(), FeatureLabel(feature));
    m_featureChannels[channel] = feature;
}

/// The first channel of the feature in name order, or null.
std::string const* ShimSparseDevice::FindFeatureChannel(Feature feature) const {
    for (auto const& [channel, channelFeature] : m_featureChannels) {
        if (channelFeature == feature) {
            return &channel;
        }
    }
    return nullptr;
}

AMessagePipeRequestReply* ShimSparseDevice::GetFeatureProviderPipe(Feature feature) {
    if (auto const cached = m_featurePipes.find(feature); cached != m_featurePipes.end()) {
        return cached->second;
    }
    std::string const* const channel = FindFeatureChannel(feature);
    if (channel == nullptr) {
        LOG_E("No command pipe available for feature '%s'", FeatureLabel(feature));
        return nullptr;
    }
    // One more exchange with the server, so only for those who want to read the line.
    LOG_V("channel: [%s] for feature [%s] device: [%s]", channel->c_str(), FeatureLabel(feature),
          GetChannelProviderDeviceName(*channel).c_str());
    AMessagePipeRequestReply* const pipe =
        GetChannelProviderDeviceRequestReplyPipe(*channel, m_featureDevicePriorities[feature], "");
    m_featurePipes[feature] = pipe;
    return pipe;
}

/// Always true: an event that does not concern us is handled by doing nothing. The pipe that is given up
/// stays with the pipe provider, where others may hold it too.
bool ShimSparseDevice::OnChannelMappingChangedEvent(AMessage* message) {
    vds::ChannelMappingChangedEvent event;
    if (!ServerEventListener()->GetContext()->DecodeMessage(message, event)) {
        return true;
    }
    LOG_T("Device [ %s ] Received Channel Remap command for channel [ %s ]!", Descriptor()->name.c_str(),
          event.channel().c_str());
    auto const tracked = m_featureChannels.find(event.channel());
    if (tracked == m_featureChannels.end()) {
        return true;
    }
    Feature const feature = tracked->second;
    if (event.devices_size() == 0) {
        LOG_T("Feature channel '%s' has been unmapped.", event.channel().c_str());
        m_featurePipes[feature] = nullptr;
        return true;
    }
    std::string const& device = event.devices(0);
    LOG_T("Feature channel '%s' remapped to device '%s'.", event.channel().c_str(), device.c_str());
    AMessagePipeRequestReply* const pipe = GetDeviceRequestReplyPipe(device, "");
    m_featurePipes[feature] = pipe;
    LOG_T("Feature channel RPC Pipe created '%p'", static_cast<void*>(pipe));
    return true;
}

bool ShimSparseDevice::EnsureVQSDKApplicationRegistered() {
    if (m_applicationHandle != 0) {
        return true;
    }
    LOG_V("Registering application...");
    vds::RegisterVQSDKApplication request;
    request.set_name(m_executableName);
    request.set_process_id(static_cast<std::uint64_t>(::getpid()));
    vds::RegisterVQSDKApplication::Reply reply;
    vds::RegisterVQSDKApplication::Error error;
    if (!MessageUtils::SendReceive(ServerPipe(), request, reply, error, kServerTimeout, nullptr)) {
        return false;
    }
    if (error.IsInitialized()) {
        LOG_PLAIN_E("%s", error.message().c_str());
        return false;
    }
    m_applicationHandle = static_cast<std::int32_t>(reply.application_id());
    return true;
}

bool ShimSparseDevice::UnregisterVQSDKApplication() {
    if (m_applicationHandle == 0) {
        return true;
    }
    LOG_V("Unregistering application...");
    vds::UnregisterVQSDKApplication request;
    request.set_application_id(static_cast<std::uint32_t>(m_applicationHandle));
    vds::UnregisterVQSDKApplication::Reply reply;
    bool const done = MessageUtils::SendReceive(ServerPipe(), request, reply, kServerTimeout, nullptr);
    m_applicationHandle = 0;
    return done;
}

}  // namespace vq::SdkShim
