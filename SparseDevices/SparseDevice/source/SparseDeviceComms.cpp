#include "Logging/Log.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/ChannelFactory.h"
#include "Messaging/EventDispatcher.h"
#include "Messaging/MessageTypeName.h"
#include "ServerEvents.pb.h"
#include "ServerExchange.h"
#include "ServerRequests.pb.h"
#include "SparseDevice/ASparseDeviceCommandHandler.h"
#include "SparseDevice/SparseDevice.h"

// The way to the server: pipes, registration, commands and event handlers.

bool SparseDevice::SetupComms() {
    if (m_state == State::Registered || m_state == State::Initialized) {
        return true;
    }
    m_messageManager = &AMessageManager::Instance();
    MessageAddress const address = m_messageManager->GetServerAddress();
    LOG_V("VDS address is %s", address.ToString().c_str());
    m_messageContext = m_messageManager->GetContext(address);
    AMessagePipeProvider* const provider = PipeProvider();

    m_serverPipe = provider->GetRequestReplyClient(m_messageContext->GetAddress(), m_descriptor->name);
    if (m_serverPipe == nullptr) {
        LOG_E("Failed to get request reply client for VDS connection");
        return false;
    }
    if (!OpenEventListeners(provider) || !OpenDevicePipe(provider) || !SendRegisterDeviceMessage(provider)) {
        return false;
    }
    m_state = State::Registered;
    SetupCommandHandlers();
    SetupDispatcher();
    MakeChannelFactory();
    UpdateKnownChannels();
    return true;
}

void SparseDevice::MakeChannelFactory() {
    m_channelFactory =
        std::make_unique<ChannelFactory>(m_messageContext, m_dataEventSender, m_dataEventListener);
}

bool SparseDevice::OpenEventListeners(AMessagePipeProvider* provider) {
    vq::vds::GetServerEventAddress::Reply events;
    if (!ExchangeWithServer(m_serverPipe, vq::vds::GetServerEventAddress(), events)) {
        LOG_E("Failed to get server event address");
        return false;
    }
    m_serverEventListener = OpenEventListener(provider, events.address());
    if (m_serverEventListener == nullptr) {
        return false;
    }
    m_serverEventListener->ListenTo("vq.vds");

    vq::vds::GetServerDataEventBroadcastAddress::Reply data;
    if (!ExchangeWithServer(m_serverPipe, vq::vds::GetServerDataEventBroadcastAddress(), data)) {
        LOG_E("Failed to get server data event broadcast address");
        return false;
    }
    m_dataEventListener = OpenEventListener(provider, data.address());
    return m_dataEventListener != nullptr;
}

AMessagePipeEventListener* SparseDevice::OpenEventListener(AMessagePipeProvider* provider,
                                                           std::string const& address) {
    AMessagePipeEventListener* const listener = provider->GetEventListener(
        MessageAddress::FromString(address), m_descriptor->name, SocketRole::Connect);
    if (listener == nullptr) {
        LOG_E("Failed to get event listener for address @ %s", address.c_str());
    }
    return listener;
}

bool SparseDevice::OpenDevicePipe(AMessagePipeProvider* provider) {
    MessageAddress address = m_messageContext->GetAddress();
    address.logicalName = "sparseDevice." + m_descriptor->name;
    m_devicePipe = provider->GetRequestReplyServer(address, "");
    if (m_devicePipe == nullptr) {
        LOG_E("Failed to create device request reply pipe");
        return false;
    }
    return true;
}

void SparseDevice::SetupCommandHandlers() {
    m_commandMap.clear();
    for (auto const& [key, handler] : m_commandHandlers) {
        handler->SetRequestPipe(m_devicePipe);
        handler->SetupCommandMap(m_commandMap);
    }
}

void SparseDevice::SetupDispatcher() {
    m_eventDispatcher = std::make_unique<EventDispatcher>(m_messageContext);
    m_eventDispatcher->RegisterEventHandler(
        MessageTypeName(vq::vds::DeviceUnregisteredEvent::default_instance()),
        std::make_shared<EventHandler>([this](AMessage* message) { return OnDeviceUnregistered(message); }));
    m_eventDispatcher->RegisterEventHandler(
        MessageTypeName(vq::vds::ServerStoppingEvent::default_instance()),
        std::make_shared<EventHandler>([this](AMessage*) { return OnServerStopping(); }));
}
