#include "SparseDevice/SparseDevice.h"

#include <algorithm>

#include "Logging/Log.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/ChannelFactory.h"
#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "Messaging/EventDispatcher.h"
#include "SparseDevice/SparseDeviceApplication.h"
#include "SparseDevice/SparseDeviceCommandHandler.h"
#include "SparseDevice/StatsCollector.h"
#include "Utils/ServerRegistry.h"

// Construction, start-up with the server, and the end. What a step does, the exchanges with the server and
// the channels have files of their own.

namespace {

// The descriptor's readers on other threads know it as constant from the first Init on: a later one, with the
// same manifest, must not write to it.
template <class T>
void AssignIfDifferent(T& target, T const& value) {
    if (target != value) {
        target = value;
    }
}

}  // namespace

SparseDevice::SparseDevice(SparseDeviceType type)
    : ASparseDevice(type), m_eventSender(std::make_shared<RawSparseDeviceEventSender>(this)) {
    m_commandHandlers[0] = std::make_unique<SparseDeviceCommandHandler>();
}

SparseDevice::~SparseDevice() {
    SparseDevice::Uninit();
    m_commandHandlers.clear();
    m_descriptor.reset();
    if (m_serverPipe != nullptr) {
        PipeProvider()->DisposePipe(m_serverPipe);
    }
}

AMessagePipeProvider* SparseDevice::PipeProvider() const {
    return m_messageContext->GetPipeProvider();
}

bool SparseDevice::Init(ManifestProcessor::ManifestData const& data, SparseDeviceApplication* application) {
    SetIdentity(data, application);
    AdoptConfiguration(data);
    // From here on `data` may be the device's own copy, and only that is used.
    if (&data != &m_manifest) {
        m_manifest = data;
    }
    if (!SetupComms()) {
        LOG_E("Failed to setup communication channels");
        m_enabled = false;
        return false;
    }
    if (m_manifest.updateHertz > 0) {
        LOG_V("Setting update hertz from Device Manifest - %f", static_cast<double>(m_manifest.updateHertz));
        SetUpdateHertzMaximum(m_manifest.updateHertz);
    }
    m_serverName = ServerRegistry::Instance().identity;
    if (m_channelFactory == nullptr) {
        return false;
    }
    MakeManifestChannels();
    for (auto const& [key, handler] : m_commandHandlers) {
        if (handler->Device() == nullptr) {
            handler->SetDevice(this);
        }
    }
    return true;
}

void SparseDevice::SetIdentity(ManifestProcessor::ManifestData const& data,
                               SparseDeviceApplication* application) {
    m_application = application;
    std::uint32_t processId = 0;
    std::uint32_t shimProcessId = 0;
    if (application != nullptr) {
        m_applicationData = application->GetManifestProcessor().GetAppData();
        bool const isShim = m_descriptor->type == SparseDeviceType::Shim || data.deviceType == "Shim";
        (isShim ? shimProcessId : processId) = static_cast<std::uint32_t>(application->GetApplicationId());
    }
    AssignIfDifferent(m_descriptor->processId, processId);
    AssignIfDifferent(m_descriptor->shimProcessId, shimProcessId);
    AssignIfDifferent(m_descriptor->name, data.deviceName);
    if (!data.deviceLabel.empty()) {
        AssignIfDifferent(m_descriptor->label, data.deviceLabel);
    }
}

void SparseDevice::AdoptConfiguration(ManifestProcessor::ManifestData const& data) {
    // A device that comes back to the server keeps its live settings and their observers.
    if (m_reinitializing || &data == &m_manifest) {
        return;
    }
    m_configurationState = data.configurationState;
    m_configurationState.RegisterAnyPropertyChangedHandler(
        [this](std::string const& name) { OnAnyPropertyChangedEvent(name); });
}

void SparseDevice::MakeManifestChannels() {
    std::vector<ChannelDescriptor*> descriptors;
    for (ChannelDescriptor const& custom : m_manifest.customChannels) {
        // The factory consumes what it gets; the manifest's own are needed again when the device comes back.
        descriptors.push_back(new ChannelDescriptor(custom));
    }
    m_channelFactory->AddChannelDescriptors(descriptors);
    for (std::string const& name : m_manifest.producerChannels) {
        if (!m_producers.contains(name)) {
            MakeProducerChannel(name);
        }
    }
    for (std::string const& name : m_manifest.observerChannels) {
        if (!m_observers.contains(name)) {
            MakeObserverChannel(name);
        }
    }
}

bool SparseDevice::AutomapProducers() const {
    return m_manifest.automapProducerChannels && !m_applicationData.disableAutomap;
}

bool SparseDevice::FinishInit() {
    if (!SendRegisterDeviceChannelsMessage(AutomapProducers())) {
        return false;
    }
    m_state = State::Initialized;
    SendReportDeviceInitializedMessage();
    return true;
}

void SparseDevice::AddCommandHandler(int key, std::unique_ptr<ASparseDeviceCommandHandler> handler) {
    handler->SetKey(key);
    handler->SetDevice(this);
    m_commandHandlers[key] = std::move(handler);
}

void SparseDevice::RequestExit(bool wholeApplication) {
    m_requestExit = true;
    if (SparseDeviceApplication* const application = m_application) {
        if (wholeApplication) {
            application->RequestExit();
        } else {
            application->TriggerStateChanged();
        }
    }
}

void SparseDevice::TriggerStateChanged() {
    if (SparseDeviceApplication* const application = m_application) {
        application->TriggerStateChanged();
    }
}

bool SparseDevice::OnServerStopping() {
    if (!m_serverStopping.exchange(true)) {
        LOG_PLAIN_V("(%s) Virtual Device Server stopping", m_descriptor->name.c_str());
    }
    m_requestExit = true;
    if (SparseDeviceApplication* const application = m_application) {
        application->RequestExit();
        application->TriggerStateChanged();
    }
    return true;
}

void SparseDevice::SetUpdateHertzMaximum(float hz) {
    m_updateHertz = std::max(1.0f, hz);
}

void SparseDevice::OnConfigurationSettingsChanged() {}

bool SparseDevice::OnPostInit() {
    return true;
}

bool SparseDevice::OnUpdate() {
    return true;
}

bool SparseDevice::OnSuspend() {
    m_suspended = true;
    return true;
}

bool SparseDevice::OnResume() {
    m_suspended = false;
    return true;
}

void SparseDevice::OnDeviceUnregisteredEvent(std::string const& /*deviceName*/) {}

void SparseDevice::Uninit() {
    LOG_V("SparseDevice::Uninitialize: %s", m_descriptor != nullptr ? m_descriptor->name.c_str() : "???");
    switch (m_state) {
        case State::Registered:
        case State::Initialized:
            LOG_V("Sparse Device Uninitialization. Sending Unregistration message.");
            if (!m_serverStopping) {
                ConditionallySendStatsUpdate();
            }
            SendUnregisterDeviceMessage();
            break;
        case State::Uninitialized:
            return;
        case State::Pruned:
            LOG_V("Sparse Device Uninitialization. Skipping Unregistration step.");
            break;
    }
    // The channels borrow their descriptors from the factory.
    ClearChannels();
    m_channelFactory.reset();
    m_eventDispatcher.reset();
    while (AMessage* const event =
               m_serverEventListener->ReceiveNext(std::chrono::milliseconds(0), nullptr)) {
        delete event;
    }
    UpdateObserverChannelMapping();
    m_state = State::Uninitialized;
    LOG_V("Sparse Device has been uninitialized.");
}
