#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <thread>

#include "ApplicationThreads.h"
#include "Logging/Log.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageTypeName.h"
#include "ServerEvents.pb.h"
#include "ServerExchange.h"
#include "ServerRequests.pb.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/SparseDeviceApplication.h"
#include "SparseDeviceHelpers/SparseDeviceMuleBase.h"
#include "Utils/ServerRegistry.h"

// The main loop of a stand-alone program.

using std::chrono::steady_clock;

namespace {

constexpr std::chrono::milliseconds kRegistryTimeout{5000};
constexpr std::chrono::seconds kHeartbeatLimit{10};
/// From here on the loop runs without a pause.
constexpr float kUnlimitedHertz = 1001.0f;
/// In microseconds: a day.
constexpr float kLongestPeriod = 86'400e6f;
/// A request to exit does not wait longer than this for a slow loop.
constexpr std::chrono::milliseconds kLongestNap{50};

}  // namespace

bool SparseDeviceApplication::Run() {
    ServerRegistry::Servers servers;
    if (!ServerRegistry::Instance().GetServers(servers, kRegistryTimeout, nullptr) || servers.empty()) {
        LOG_PLAIN_E(
            "Did not detect a running Virtual Device Server.\nPlease (re-)start it first, e.g. with 'RIGCTL "
            "-s'.");
        return false;
    }
    if (!RegisterApplication()) {
        return false;
    }
    bool const result = RunDevices();
    if (!result) {
        return false;
    }
    RunApplication();
    AnnounceSignal();  // also one that kept the loop from starting
    UnregisterApplication();
    return result;
}

void SparseDeviceApplication::RunApplication() {
    LOG_V("Starting application %s", m_manifestProcessor.GetAppData().applicationName.c_str());
    HookSignals();
    if (!OnInitialization()) {
        LOG_E("Failed to initialize");
        return;
    }
    if (!ReportInitialization()) {
        return;
    }
    if (!IsExitRequested()) {
        ForEachDevice([](SparseDevice& device) {
            device.SetPostInitPending();
            return true;
        });
        StartInputThread();
    }
    m_running = true;
    if (!IsExitRequested()) {
        RunLoop();
    }
    AnnounceSignal();
    OnShutdown();
    CleanupThreads();
    m_running = false;
}

void SparseDeviceApplication::RunLoop() {
    for (;;) {
        bool const done = CheckDevicesForShutdown();
        if (IsExitRequested()) {
            return;
        }
        if (done) {
            RequestExit();
            return;
        }
        if (!OnUpdate()) {
            LOG_W("failed to handle application update");
        }
        if (IsExitRequested()) {
            return;
        }
    }
}

void SparseDeviceApplication::CleanupThreads() {
    if (!m_cleanupPending.exchange(false)) {
        return;
    }
    if (!IsExitRequested()) {
        RequestExit();
        std::cin.clear();
    }
    m_inputGate->Close();
    if (m_inputThread.joinable()) {
        m_inputThread.detach();
    }
    for (SparseDeviceMuleBase* const mule : m_mules) {
        if (mule->IsRunning()) {
            mule->StopDevice();
        }
    }
    m_flags->cleanExit = true;
}

bool SparseDeviceApplication::OnInitialization() {
    AMessagePipeRequestReply* const pipe = GetServerRequestReply();
    vq::vds::GetServerHeartbeatEventAddress::Reply reply;
    if (pipe == nullptr || !ExchangeWithServer(pipe, vq::vds::GetServerHeartbeatEventAddress(), reply)) {
        LOG_E("Failed to GetServerHeartbeatEventAddress");
        return false;
    }
    m_heartbeatListener = GetMessagePipeProvider()->GetEventListener(
        MessageAddress::FromString(reply.address()), m_manifestProcessor.GetAppData().applicationLabel,
        SocketRole::Connect);
    if (m_heartbeatListener == nullptr) {
        LOG_E("Failed to GetEventListener for serverHeartbeatEventListener @ %s", reply.address().c_str());
        return false;
    }
    m_heartbeatListener->ListenTo(MessageTypeName(vq::vds::ServerHeartbeat::default_instance()));
    m_lastHeartbeat = steady_clock::now();
    m_lastUpdate = m_lastHeartbeat;
    // Set by who halts the server in a debugger.
    char const* const debug = std::getenv("VQ_DEBUG_VDS");
    m_monitorHeartbeat = debug == nullptr || std::strcmp(debug, "1") != 0;
    return true;
}

void SparseDeviceApplication::SleepUntilNextUpdate(float hertz) {
    if (!(hertz > 0 && hertz < kUnlimitedHertz)) {
        return;
    }
    // A subclass may answer with so little that the period would not fit the clock.
    std::chrono::microseconds const period(static_cast<std::int64_t>(std::min(1e6f / hertz, kLongestPeriod)));
    steady_clock::time_point const end = m_lastUpdate + period;
    steady_clock::time_point now = steady_clock::now();
    if (end > now) {
        LOG_T("Sleeping for [ %llu ]", static_cast<unsigned long long>((end - now).count()));
    }
    for (; now < end && !IsExitRequested(); now = steady_clock::now()) {
        std::this_thread::sleep_until(std::min(end, now + kLongestNap));
    }
}

bool SparseDeviceApplication::OnUpdate() {
    SleepUntilNextUpdate(GetUpdateHz());
    steady_clock::time_point const now = steady_clock::now();
    m_measuredPeriod = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_lastUpdate).count();
    m_lastUpdate = now;
    if (DrainHeartbeats()) {
        OnServerHeartbeat();
    }
    if (m_monitorHeartbeat && now - m_lastHeartbeat >= kHeartbeatLimit) {
        LOG_E("Failed to observe heartbeat from Virtual Device Server, exiting");
        RequestExit();
    }
    return true;
}

bool SparseDeviceApplication::DrainHeartbeats() {
    bool any = false;
    while (m_heartbeatListener != nullptr) {
        std::unique_ptr<AMessage> const event(
            m_heartbeatListener->ReceiveNext(std::chrono::milliseconds(0), nullptr));
        if (event == nullptr) {
            break;
        }
        any = true;
    }
    return any;
}

void SparseDeviceApplication::OnServerHeartbeat() {
    m_lastHeartbeat = steady_clock::now();
    LOG_V("Saw Virtual Device Server heartbeat");
}

bool SparseDeviceApplication::OnShutdown() {
    DrainHeartbeats();
    return true;
}
