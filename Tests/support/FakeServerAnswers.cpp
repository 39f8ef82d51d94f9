#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipeProvider.h"
#include "ServerEvents.pb.h"
#include "TestSupport/FakeServer.h"

// What the fake server answers unless a test says otherwise.

namespace vq::test {

namespace {

using namespace vq::vds;

template <class R>
void AnswerAddress(FakeServer& server, MessageAddress const& base, char const* logicalName) {
    server.On<R>([base, logicalName](R const&) {
        auto reply = std::make_unique<typename R::Reply>();
        reply->set_address(MessageAddress{base.location, base.transport, logicalName}.ToString());
        return reply;
    });
}

}  // namespace

void FakeServer::SetupAnswers() {
    AnswerAddress<GetServerEventAddress>(*this, m_address, "events");
    AnswerAddress<GetServerDataEventBroadcastAddress>(*this, m_address, "data");
    AnswerAddress<GetServerHeartbeatEventAddress>(*this, m_address, "heartbeat");
    On<GetChannelMappings>([this](GetChannelMappings const&) {
        std::lock_guard const lock(m_mutex);
        auto reply = std::make_unique<GetChannelMappings::Reply>();
        for (auto const& [device, channel] : m_mappings) {
            DeviceAndChannel& mapping = *reply->add_mappings();
            mapping.set_device(device);
            mapping.set_channel(channel);
        }
        return reply;
    });
    On<GetDeviceRequestReplyAddress>([this](GetDeviceRequestReplyAddress const& request) -> Reply {
        std::string const address = DeviceAddress(request.device());
        if (address.empty()) {
            return Refuse("no device " + request.device());
        }
        auto reply = std::make_unique<GetDeviceRequestReplyAddress::Reply>();
        reply->set_address(address);
        return reply;
    });
    SetupDeviceAnswers();
    SetupApplicationAnswers();
}

void FakeServer::SetupDeviceAnswers() {
    Answer<GetChannelInfos>();
    Answer<UnregisterSparseDevice>();
    Answer<UnregisterSparseDeviceChannels>();
    Answer<SparseDeviceStatsUpdate>();
    Answer<SendSparseDeviceEvent>();
    Answer<AddChannelMappings>();
    On<RegisterSparseDevice>([this](RegisterSparseDevice const& request) {
        std::int32_t const id = m_nextDeviceId++;
        std::string const& name = request.description().name();
        SetDeviceAddress(name, request.address());
        auto reply = std::make_unique<RegisterSparseDevice::Reply>();
        reply->set_device_id(id);
        {
            std::lock_guard const lock(m_mutex);
            reply->set_auto_stats(m_autoStats);
            m_devices[id] = request.description();
        }
        return reply;
    });
    On<CreateServerDataEventListenerAddress>(
        [this](CreateServerDataEventListenerAddress const& request) { return OpenDataListener(request); });
    On<RegisterSparseDeviceChannels>([this](RegisterSparseDeviceChannels const& request) {
        auto reply = std::make_unique<RegisterSparseDeviceChannels::Reply>();
        for (int i = 0; i < request.channels_size(); ++i) {
            reply->add_channel_ids(m_nextChannelId++);
        }
        return reply;
    });
    On<ReportSparseDeviceInitialized>([this](ReportSparseDeviceInitialized const& request) {
        // The device has subscribed several exchanges ago.
        DeviceRegisteredEvent registered;
        {
            std::lock_guard const lock(m_mutex);
            registered.set_name(m_devices[request.device_id()].name());
            registered.set_type(m_devices[request.device_id()].type());
        }
        registered.set_device_id(static_cast<std::uint32_t>(request.device_id()));
        Publish(registered);
        return std::make_unique<ReportSparseDeviceInitialized::Reply>();
    });
}

FakeServer::Reply FakeServer::OpenDataListener(CreateServerDataEventListenerAddress const& request) {
    MessageAddress const address{m_address.location, m_address.transport,
                                 "device" + std::to_string(request.device_id())};
    AMessagePipeEventListener* const listener =
        m_manager.GetContext(m_address)->GetPipeProvider()->GetEventListener(address, "",
                                                                             SocketRole::Connect);
    listener->ListenTo("");
    m_dataListeners.push_back(listener);
    auto reply = std::make_unique<CreateServerDataEventListenerAddress::Reply>();
    reply->set_address(address.ToString());
    return reply;
}

void FakeServer::SetupApplicationAnswers() {
    Answer<RegisterDeviceApplication>("\x08\7");  // its id
    Answer<ReportDeviceApplicationInitialized>();
    Answer<UnregisterDeviceApplication>();
}

}  // namespace vq::test
