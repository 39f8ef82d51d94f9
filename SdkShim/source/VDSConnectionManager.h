#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

class AMessageContext;
class AMessageManager;
class AMessagePipeEventListener;
class AMessagePipeProvider;
class EventMonitor;
struct MessageAddress;

namespace vq::SdkShim {

/// Keeps a shim attached to the Virtual Device Server: one thread finds the server, watches its heartbeat
/// listener, tells the owner when the connection comes and goes, and never gives up.
///
/// A server that falls silent does not count as lost: only a listener that reports errors for longer than the
/// heartbeat timeout does.
///
/// Threads: Start, Stop and the destructor one at a time and never from a callback; WaitForConnection from
/// any.
class VDSConnectionManager {
public:
    using Callback = std::function<void()>;

    VDSConnectionManager();
    explicit VDSConnectionManager(std::chrono::milliseconds firstTime);
    /// @param firstTime         kept; nothing reads it.
    /// @param heartbeatTimeout  how long the heartbeat listener may be in error before we detach.
    VDSConnectionManager(std::chrono::milliseconds firstTime, std::chrono::milliseconds heartbeatTimeout);
    /// As Stop.
    ~VDSConnectionManager();
    VDSConnectionManager(VDSConnectionManager const&) = delete;
    VDSConnectionManager& operator=(VDSConnectionManager const&) = delete;

    /// Starts the thread.
    /// @param name          of the owner, for log lines.
    /// @param onConnect     may be empty. Runs on the thread, with this object's lock held, before the state
    ///                      becomes connected.
    /// @param onDisconnect  may be empty. Runs on the thread, with the lock held; only after onConnect.
    /// @return false when it is started already (logged); nothing changes then.
    bool Start(std::string const& name, Callback onConnect, Callback onDisconnect);

    /// Disconnects and joins the thread; waits for a connect or disconnect under way. Always true.
    bool Stop();

    /// Polls until the state is connected. False at once when not started, otherwise after `timeout`; 0 gives
    /// the present state.
    bool WaitForConnection(std::chrono::milliseconds timeout) const;

private:
    /// The wall clock: its zero lies long ago, so that the first pass finds every interval over.
    using Clock = std::chrono::system_clock;
    using TimePoint = std::chrono::time_point<Clock, std::chrono::microseconds>;

    static bool IsOver(TimePoint now, TimePoint start, std::chrono::microseconds interval);
    static TimePoint Now() { return std::chrono::time_point_cast<std::chrono::microseconds>(Clock::now()); }

    void Update();
    void RunPass();
    void CheckHeartbeat();
    void TryToConnect(TimePoint now);
    bool Connect();
    bool ListenForHeartbeat(MessageAddress const& address);
    bool Disconnect();
    void ForgetConnection();

    std::string m_name;
    /// Held for the whole of a connect or disconnect, and while the listener is looked at.
    std::mutex m_mutex;
    std::atomic<bool> m_started{false};
    std::atomic<bool> m_connected{false};
    AMessageManager* m_messageManager = nullptr;
    AMessageContext* m_messageContext = nullptr;
    AMessagePipeEventListener* m_heartbeatListener = nullptr;
    AMessagePipeProvider* m_pipeProvider = nullptr;
    std::unique_ptr<EventMonitor> m_eventMonitor;
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::chrono::milliseconds const m_firstTime;
    std::chrono::milliseconds const m_heartbeatTimeout;
    TimePoint m_lastHeartbeat;
    TimePoint m_lastConnectAttempt;
    TimePoint m_lastNotConnectedMessage;
    Callback m_onConnect;
    Callback m_onDisconnect;
};

}  // namespace vq::SdkShim
