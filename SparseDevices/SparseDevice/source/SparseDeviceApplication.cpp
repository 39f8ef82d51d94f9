#include "SparseDevice/SparseDeviceApplication.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "ApplicationThreads.h"
#include "DevicePipes.h"
#include "Logging/FileLogHandler.h"
#include "Logging/Log.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "ServerExchange.h"
#include "ServerRequests.pb.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDeviceHelpers/SparseDeviceMuleBase.h"

// Life of the application, its registration with the server, and what its devices ask of it.

namespace {

constexpr std::chrono::milliseconds kRegisterTimeout{5000};
constexpr std::chrono::milliseconds kUnregisterTimeout{1000};

}  // namespace

SparseDeviceApplication::SparseDeviceApplication()
    : m_flags(std::make_shared<ExitFlags>()),
      m_inputGate(std::make_shared<InputGate>()),
      m_applicationId(static_cast<std::int32_t>(getpid())) {
    ConfigureFileLogging();
    EnterList();
}

SparseDeviceApplication::~SparseDeviceApplication() {
    RequestExit();
    LeaveList();
    CleanupThreads();
    if (m_terminatorThread.joinable()) {
        m_terminatorThread.detach();
    }
}

std::string SparseDeviceApplication::GetVersion() const {
    return "unavailable";
}

bool SparseDeviceApplication::ProcessParams(int /*argc*/, char const* const* /*argv*/) {
    return true;
}

// Those who override it may keep the device.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void SparseDeviceApplication::OnStarted(std::shared_ptr<SparseDevice> /*device*/) {}

void SparseDeviceApplication::AddDeviceMule(SparseDeviceMuleBase* mule) {
    m_mules.push_back(mule);
}

void SparseDeviceApplication::RequestExit() {
    m_flags->Request();
}

void SparseDeviceApplication::TriggerStateChanged() {
    m_flags->stateChanged = true;
}

bool SparseDeviceApplication::TakeAndClearStateChanged() {
    return m_flags->stateChanged.exchange(false);
}

bool SparseDeviceApplication::IsExitRequested() const {
    return m_flags->requested;
}

bool SparseDeviceApplication::CheckDevicesForShutdown() {
    if (IsExitRequested() || m_mules.empty()) {
        return true;
    }
    std::size_t running = 0;
    for (SparseDeviceMuleBase* const mule : m_mules) {
        if (mule->IsRequestingExit()) {
            mule->StopDevice();
        }
        running += mule->IsRunning();
    }
    return running == 0;
}

bool SparseDeviceApplication::ForEachDevice(std::function<bool(SparseDevice&)> const& operation) {
    bool result = true;
    for (SparseDeviceMuleBase* const mule : m_mules) {
        if (std::shared_ptr<SparseDevice> const device = mule->GetBaseDevice()) {
            result &= operation(*device);
        }
    }
    return result;
}

bool SparseDeviceApplication::OnSuspend() {
    return ForEachDevice([](SparseDevice& device) { return device.OnSuspend(); });
}

bool SparseDeviceApplication::OnResume() {
    return ForEachDevice([](SparseDevice& device) { return device.OnResume(); });
}

void SparseDeviceApplication::HandleSuspend() {
    if (!OnSuspend()) {
        LOG_E("Failed to handle application suspend");
    }
}

void SparseDeviceApplication::HandleResume() {
    if (!OnResume()) {
        LOG_E("Failed to handle application resume");
    }
}

float SparseDeviceApplication::GetUpdateHz() {
    float hertz = 1.0f;
    ForEachDevice([&hertz](SparseDevice& device) {
        hertz = std::max(hertz, device.GetUpdateHertzMaximum());
        return true;
    });
    return hertz;
}

bool SparseDeviceApplication::HandleCommonSparseDeviceCLIOptions(SparseDeviceCLIOptions const& options,
                                                                 std::string const& defaultManifest) {
    if (options.exitNow) {
        std::exit(0);
    }
    m_manifestProcessor.ResetAllData();
    if (!m_manifestProcessor.ProcessManifest(options.manifestPath.empty() ? defaultManifest
                                                                          : options.manifestPath)) {
        return false;
    }
    ManifestProcessor::ApplicationManifestData& application = m_manifestProcessor.GetMutableAppData();
    if (!options.applicationName.empty()) {
        application.applicationName = options.applicationName;
    }
    if (!options.applicationLabel.empty()) {
        application.applicationLabel = options.applicationLabel;
        application.disableAutomap = options.disableAutomap;
    }
    if (!options.deviceName.empty()) {
        m_manifestProcessor.GetMutableData().deviceName = options.deviceName;
    }
    return true;
}

AMessageContext* SparseDeviceApplication::GetServerMessageContext() {
    AMessageManager& manager = AMessageManager::Instance();
    return manager.GetContext(manager.GetServerAddress());
}

AMessagePipeProvider* SparseDeviceApplication::GetMessagePipeProvider() {
    return GetServerMessageContext()->GetPipeProvider();
}

AMessagePipeRequestReply* SparseDeviceApplication::GetServerRequestReply() {
    if (m_serverPipe != nullptr && !m_serverPipe->IsDisposed()) {
        return m_serverPipe;
    }
    AMessageContext* const context = GetServerMessageContext();
    m_serverPipe = context->GetPipeProvider()->GetRequestReplyClient(context->GetAddress(), "");
    if (m_serverPipe == nullptr) {
        LOG_E("Failed to GetRequestReplyClient for VDS connection");
    }
    return m_serverPipe;
}

AMessagePipeRequestReply* SparseDeviceApplication::GetDeviceRequestReplyPipe(std::string const& device,
                                                                             std::string const& node) {
    AMessagePipeRequestReply* const serverPipe = GetServerRequestReply();
    std::string address;
    if (serverPipe == nullptr || !RequestDeviceAddress(serverPipe, device, &node, address)) {
        return nullptr;
    }
    return GetDeviceRequestReplyPipeFromAddress(device, address, node);
}

AMessagePipeRequestReply* SparseDeviceApplication::GetDeviceRequestReplyPipeFromAddress(
    std::string const& device, std::string const& address, std::string const& node) {
    return OpenPipeToDevice(GetServerMessageContext(), device, address, node);
}

bool SparseDeviceApplication::RegisterApplication() {
    AMessagePipeRequestReply* const pipe = GetServerRequestReply();
    if (pipe == nullptr) {
        return false;
    }
    ManifestProcessor::ApplicationManifestData const& data = m_manifestProcessor.GetAppData();
    vq::vds::RegisterDeviceApplication request;
    request.set_name(data.applicationName);
    request.set_second_name(data.applicationLabel);
    request.set_process_id(getpid());
    vq::vds::RegisterDeviceApplication::Reply reply;
    vq::vds::RegisterDeviceApplication::Error error;
    if (!ExchangeWithServer(pipe, request, reply, error, kRegisterTimeout)) {
        return false;
    }
    if (error.IsInitialized()) {
        LOG_PLAIN_E("Failed to register: %s", error.message().c_str());
        return false;
    }
    m_applicationId = static_cast<std::int32_t>(reply.application_id());
    if (m_applicationId == 0) {
        LOG_PLAIN_E("Failed to register: the server gave no id");
    }
    return m_applicationId != 0;
}

bool SparseDeviceApplication::ReportInitialization() {
    if (m_serverPipe == nullptr || m_serverPipe->IsDisposed()) {
        return false;
    }
    vq::vds::ReportDeviceApplicationInitialized request;
    request.set_application_id(static_cast<std::uint32_t>(GetApplicationId()));
    vq::vds::ReportDeviceApplicationInitialized::Reply reply;
    vq::vds::ReportDeviceApplicationInitialized::Error error;
    if (!ExchangeWithServer(m_serverPipe, request, reply, error, kRegisterTimeout)) {
        return false;
    }
    if (error.IsInitialized()) {
        LOG_PLAIN_E("Failed to report initialization: %s", error.message().c_str());
        return false;
    }
    return true;
}

bool SparseDeviceApplication::UnregisterApplication() {
    if (m_applicationId != 0 && m_serverPipe != nullptr && !m_serverPipe->IsDisposed()) {
        vq::vds::UnregisterDeviceApplication request;
        request.set_application_id(static_cast<std::uint32_t>(GetApplicationId()));
        vq::vds::UnregisterDeviceApplication::Reply reply;
        ExchangeWithServer(m_serverPipe, request, reply, kUnregisterTimeout);
    }
    m_applicationId = 0;
    m_serverPipe = nullptr;
    return true;
}
