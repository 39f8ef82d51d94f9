#include "VDSConnectionManager.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/EventMonitor.h"
#include "Messaging/MessageTypeName.h"
#include "ProtocolVersion.h"
#include "ServerEvents.pb.h"
#include "Utils/FileDescriptor.h"
#include "Utils/ServerRegistry.h"
#include "Utils/ThreadUtils.h"

namespace vq::SdkShim {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;

namespace {

/// What a connection with its device takes and what its peers add to it. Without them a bring-up would stop
/// half way, or take the process with it: the messaging library aborts where its own threads get no
/// descriptor.
constexpr std::size_t kDescriptors = 32;

bool HasDescriptors() {
    std::array<FileDescriptor, kDescriptors> probe;
    return std::all_of(probe.begin(), probe.end(), [](FileDescriptor& descriptor) {
        descriptor.Reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        return descriptor.IsOpen();
    });
}

constexpr milliseconds kLoopPeriod{16};
constexpr milliseconds kConnectionPoll{10};
constexpr microseconds kNotConnectedInterval{15'001'000};
constexpr microseconds kConnectInterval{101'000};
constexpr milliseconds kFindServerTimeout{3000};
constexpr milliseconds kHeartbeatWait{1};

using SteadyClock = std::chrono::steady_clock;

}  // namespace

VDSConnectionManager::VDSConnectionManager() : VDSConnectionManager(milliseconds(100)) {}

VDSConnectionManager::VDSConnectionManager(milliseconds firstTime)
    : VDSConnectionManager(firstTime, milliseconds(1000)) {}

VDSConnectionManager::VDSConnectionManager(milliseconds firstTime, milliseconds heartbeatTimeout)
    : m_firstTime(firstTime), m_heartbeatTimeout(heartbeatTimeout) {}

VDSConnectionManager::~VDSConnectionManager() {
    Stop();
}

bool VDSConnectionManager::Start(std::string const& name, Callback onConnect, Callback onDisconnect) {
    if (m_started) {
        LOG_E("[VDSConnectionManager|%s] Already started.", m_name.c_str());
        return false;
    }
    m_name = name;
    m_onConnect = std::move(onConnect);
    m_onDisconnect = std::move(onDisconnect);
    m_stop = false;
    {
        BlockedSignals const blocked;
        m_thread = std::thread([this] { Update(); });
    }
    m_started = true;
    LOG_V("[VDSConnectionManager|%s] - Started!", m_name.c_str());
    return true;
}

bool VDSConnectionManager::Stop() {
    LOG_V("[VDSConnectionManager|%s] - Stopping.", m_name.c_str());
    if (!m_started) {
        return true;
    }
    m_stop = true;
    m_thread.join();
    m_started = false;
    LOG_V("[VDSConnectionManager|%s] - Stopped!", m_name.c_str());
    return true;
}

bool VDSConnectionManager::WaitForConnection(milliseconds timeout) const {
    if (!m_started) {
        return false;
    }
    // By the wall clock, and where that is set back meanwhile by the other one.
    Clock::time_point const start = Clock::now();
    SteadyClock::time_point const steadyStart = SteadyClock::now();
    while (!m_connected && duration_cast<milliseconds>(Clock::now() - start) < timeout &&
           duration_cast<milliseconds>(SteadyClock::now() - steadyStart) < timeout) {
        std::this_thread::sleep_for(kConnectionPoll);
    }
    return m_connected;
}

void VDSConnectionManager::Update() {
    while (!m_stop) {
        RunPass();
    }
    Disconnect();
}

void VDSConnectionManager::RunPass() {
    TimePoint const now = Now();
    if (m_connected) {
        CheckHeartbeat();
    }
    if (!m_connected) {
        TryToConnect(now);
    }
    // Whole milliseconds, and no more than a period when the clock has been set back meanwhile.
    milliseconds const left = duration_cast<milliseconds>(kLoopPeriod - (Now() - now));
    if (left >= milliseconds(1)) {
        std::this_thread::sleep_for(std::min(left, kLoopPeriod));
    }
}

/// A listener that merely has nothing to tell counts as alive: what is measured is how long it has been
/// broken.
void VDSConnectionManager::CheckHeartbeat() {
    {
        std::lock_guard lock(m_mutex);
        if (m_eventMonitor->ConsumeEvents(kHeartbeatWait)) {
            m_lastHeartbeat = Now();
        }
        m_eventMonitor->GetQueue().Clear();
    }
    TimePoint const now = Now();
    m_lastHeartbeat = std::min(m_lastHeartbeat, now);  // the clock may have been set back
    milliseconds const silence = duration_cast<milliseconds>(now - m_lastHeartbeat);
    if (silence > m_heartbeatTimeout) {
        LOG_V(
            "[VDSConnectionManager|%s] Have not observed heartbeat in %llu milliseconds. Detaching from VDS.",
            m_name.c_str(), static_cast<unsigned long long>(silence.count()));
        Disconnect();
    }
}

/// Also when the clock has been set back behind the start: nobody is to wait until it has caught up.
bool VDSConnectionManager::IsOver(TimePoint now, TimePoint start, microseconds interval) {
    return now < start || now - start >= interval;
}

void VDSConnectionManager::TryToConnect(TimePoint now) {
    if (IsOver(now, m_lastNotConnectedMessage, kNotConnectedInterval)) {
        LOG_PLAIN_I("%s library is not connected.", m_name.c_str());
        m_lastNotConnectedMessage = now;
    }
    if (IsOver(now, m_lastConnectAttempt, kConnectInterval)) {
        m_lastConnectAttempt = now;
        Connect();
    }
}

bool VDSConnectionManager::Connect() {
    std::lock_guard lock(m_mutex);
    m_messageManager = &AMessageManager::Instance();
    MessageAddress const address = m_messageManager->GetServerAddress();
    ServerDescriptor server;
    if (!ServerRegistry::Instance().FindServer(address, server, kFindServerTimeout, nullptr)) {
        return false;
    }
    if (server.protocol > kProtocolVersion) {
        // Not refused here: the version check of the connect callback does that.
        LOG_PLAIN_W(
            "Tessel Server is running protocol version %d, expected version %d: verify your runtime "
            "environment",
            static_cast<int>(server.protocol), kProtocolVersion);
    }
    if (!HasDescriptors()) {
        LOG_V("[VDSConnectionManager|%s] Too few file descriptors left to connect.", m_name.c_str());
        return false;
    }
    m_messageContext = m_messageManager->GetContext(address);
    VQ_CHECK(m_messageContext != nullptr);
    m_pipeProvider = m_messageContext->GetPipeProvider();
    if (!ListenForHeartbeat(server.heartbeatAddress)) {
        return false;
    }
    if (m_onConnect) {
        m_onConnect();
    }
    LOG_V("[VDSConnectionManager|%s] VDSConnectionManager - Successfully connected!", m_name.c_str());
    m_connected = true;
    return true;
}

bool VDSConnectionManager::ListenForHeartbeat(MessageAddress const& address) {
    m_heartbeatListener = m_pipeProvider->GetEventListener(address, "", SocketRole::Connect);
    if (m_heartbeatListener == nullptr) {
        LOG_V("[VDSConnectionManager|%s] Failed to get VDS Heartbeat from provider.", m_name.c_str());
        m_messageManager->Cleanup();
        ForgetConnection();
        return false;
    }
    m_heartbeatListener->ListenTo(MessageTypeName(vq::vds::ServerHeartbeat::default_instance()));
    m_eventMonitor = std::make_unique<EventMonitor>(m_heartbeatListener);
    return true;
}

bool VDSConnectionManager::Disconnect() {
    std::lock_guard lock(m_mutex);
    LOG_V("[VDSConnectionManager|%s] - Disconnecting", m_name.c_str());
    if (m_messageManager != nullptr && m_connected) {
        if (m_onDisconnect) {
            m_onDisconnect();
        }
        m_messageManager->Cleanup();
    }
    ForgetConnection();
    m_connected = false;
    LOG_V("[VDSConnectionManager|%s] - Successfully disconnected!", m_name.c_str());
    return true;
}

void VDSConnectionManager::ForgetConnection() {
    m_eventMonitor.reset();
    m_messageManager = nullptr;
    m_messageContext = nullptr;
    m_heartbeatListener = nullptr;
    m_pipeProvider = nullptr;
}

}  // namespace vq::SdkShim
