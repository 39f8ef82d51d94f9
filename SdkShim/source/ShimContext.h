#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "ProcessExit.h"
#include "ServerRequests.pb.h"
#include "SparseDevice/ManifestProcessor.h"
#include "SparseDeviceHelpers/SparseDeviceMule.h"
#include "Utils/OSUtils.h"
#include "VDSConnectionManager.h"
#include "VerifyServerVersion.h"

namespace vq::SdkShim {

/// A client of one feature, for shims that hand out several.
class IFeatureClient;

/// What the exported functions of a shim library share: the connection, the thread of the in-process device,
/// the server's manifest. One static object a library, s_ShimContext; loading the library constructs it and
/// does nothing else.
///
/// Threads: DoInitialize and TearDown from any; Connect and Disconnect on the connection manager's thread
/// only; what a derived class adds is the application's thread's.
/// @tparam Context  the derived class, with bool OnConnect() and bool OnDisconnect(): Connect and Disconnect
///                  call them.
/// @tparam Device   the shim's sparse device.
template <class Context, class Device>
class ShimContext {
public:
    /// Defined once, where the template is instantiated.
    static Context s_ShimContext;

    ShimContext() = default;
    virtual ~ShimContext();
    ShimContext(ShimContext const&) = delete;
    ShimContext& operator=(ShimContext const&) = delete;

    /// The shim's name in log lines. A literal.
    virtual char const* ShimName() const = 0;

    bool IsInitialized() const { return m_initialized; }

    /// True in a child that was forked off between DoInitialize and TearDown: the threads and sockets are its
    /// parent's, and so may the locks be.
    bool IsInForkedChild() const {
        pid_t const owner = m_process;
        return owner != 0 && owner != ::getpid();
    }

    /// Starts the thread that keeps the connection; does not wait for it.
    /// @return false when that has been done already (logged), and once the process is exiting.
    bool DoInitialize();

    /// Ends the connection and the device, and joins their threads; DoInitialize may follow. Waits for a
    /// connect under way. Does nothing when not initialised, nor in a forked child.
    void TearDown();

    /// Waits for the connection manager, if there is one.
    /// @return false when there was no connection in time.
    bool WaitForConnection(std::chrono::milliseconds timeout);

    /// Checks the server, fetches its manifest and lets the derived class start the device. The outcome is
    /// not looked at by the connection manager: a refused server leaves the shim connected, without a device.
    /// @return false when the server is refused or does not tell where its data are (logged), or the derived
    ///         class says so.
    bool Connect();
    /// Lets the derived class end the device, and forgets the server's pipes. Always true.
    bool Disconnect();

    SparseDeviceMule<Device>& DeviceMule() { return *m_deviceMule; }

protected:
    ManifestProcessor& Manifest() { return m_manifestProcessor; }

private:
    bool LoadServerManifest();

    /// Set by Connect, cleared by Disconnect.
    AMessageContext* m_messageContext = nullptr;
    /// Set by Connect, cleared by Disconnect.
    AMessagePipeRequestReply* m_serverPipe = nullptr;
    /// Set by Connect; stale after Disconnect, and read by nobody.
    AMessagePipeEventListener* m_eventListener = nullptr;
    std::atomic<bool> m_initialized{false};
    /// The process that has the threads, from before they are started until they have ended; else 0.
    std::atomic<pid_t> m_process{0};
    std::unique_ptr<SparseDeviceMule<Device>> m_deviceMule = std::make_unique<SparseDeviceMule<Device>>();
    /// Held for the whole of Connect and of Disconnect. Locked inside the connection manager's own lock.
    std::mutex m_connectionMutex;
    /// Guards m_connectionManager and the changes of m_initialized, so that two first calls start one
    /// manager.
    std::mutex m_initializeMutex;
    /// Shared with the calls that wait on it, which another thread's exit() may overtake.
    std::shared_ptr<VDSConnectionManager> m_connectionManager;
    std::string m_workingDirectory;
    std::map<std::uint64_t, std::shared_ptr<IFeatureClient>> m_featureClients;
    ManifestProcessor m_manifestProcessor;
};

template <class Context, class Device>
ShimContext<Context, Device>::~ShimContext() {
    if (IsInForkedChild()) {
        // Left as they are: whoever destroys them waits for threads that stayed behind in the parent.
        static_cast<void>(m_deviceMule.release());
        using Manager = decltype(m_connectionManager);
        alignas(Manager) static std::byte s_kept[sizeof(Manager)];
        new (s_kept) Manager(std::move(m_connectionManager));
    }
}

template <class Context, class Device>
bool ShimContext<Context, Device>::DoInitialize() {
    std::lock_guard lock(m_initializeMutex);
    if (IsProcessExiting()) {
        return false;
    }
    if (m_initialized) {
        LOG_E("Context already initialized.");
        return false;
    }
    ConstructSingletons();
    // Built behind the singletons that the threads use, this one is destroyed before them.
    static TearDownAtExit<Context> const guard(s_ShimContext);

    m_process = ::getpid();
    m_connectionManager = std::make_shared<VDSConnectionManager>();
    m_connectionManager->Start(
        ShimName(), [] { s_ShimContext.Connect(); }, [] { s_ShimContext.Disconnect(); });
    m_workingDirectory = GetCurrentWorkingDirectory();
    m_initialized.exchange(true);
    return true;
}

template <class Context, class Device>
void ShimContext<Context, Device>::TearDown() {
    if (IsInForkedChild()) {
        return;
    }
    std::lock_guard lock(m_initializeMutex);
    if (!m_initialized) {
        return;
    }
    m_connectionManager->Stop();
    m_connectionManager.reset();
    m_initialized.exchange(false);
    m_process = 0;
}

template <class Context, class Device>
bool ShimContext<Context, Device>::WaitForConnection(std::chrono::milliseconds timeout) {
    std::shared_ptr<VDSConnectionManager> manager;
    {
        std::lock_guard lock(m_initializeMutex);
        manager = m_connectionManager;
    }
    return manager == nullptr || manager->WaitForConnection(timeout);
}

template <class Context, class Device>
bool ShimContext<Context, Device>::Connect() {
    std::lock_guard lock(m_connectionMutex);
    AMessageManager& manager = AMessageManager::Instance();
    MessageAddress const address = manager.GetServerAddress();
    LOG_I("Virtual Device shim '%s' attempting to connect to VDS at '%s'", ShimName(),
          address.ToString().c_str());
    m_messageContext = manager.GetContext(address);
    VQ_CHECK(m_messageContext != nullptr);
    AMessagePipeProvider* const pipes = m_messageContext->GetPipeProvider();
    m_serverPipe = pipes->GetRequestReplyClient(address, "SHIM_CONTEXT_VDS");
    VQ_CHECK(m_serverPipe != nullptr);
    if (VerifyServerVersion(m_serverPipe, ShimName()) != 0) {
        return false;
    }
    m_eventListener = pipes->GetEventListener(address, "", SocketRole::Connect);
    VQ_CHECK(m_eventListener != nullptr);
    if (!LoadServerManifest() || !s_ShimContext.OnConnect()) {
        return false;
    }
    LOG_I("[%s Shim] Connection to VDS established", ShimName());
    return true;
}

template <class Context, class Device>
bool ShimContext<Context, Device>::LoadServerManifest() {
    constexpr std::chrono::milliseconds kTimeout{5000};
    vds::GetDataPath::Reply reply;
    if (!MessageUtils::SendReceive(m_serverPipe, vds::GetDataPath(), reply, kTimeout, nullptr)) {
        LOG_E("[%s Shim] Failed to get data path from VDS", ShimName());
        return false;
    }
    m_manifestProcessor.ResetAllData();
    // A manifest that cannot be read has been reported there, and leaves the device without settings.
    m_manifestProcessor.ProcessManifest(reply.path() + "/" + "ShimMultiDeviceManifest.json");
    return true;
}

template <class Context, class Device>
bool ShimContext<Context, Device>::Disconnect() {
    std::lock_guard lock(m_connectionMutex);
    if (s_ShimContext.OnDisconnect()) {
        LOG_I("[%s Shim] Connection to VDS dropped", ShimName());
    }
    m_messageContext = nullptr;
    m_serverPipe = nullptr;
    return true;
}

}  // namespace vq::SdkShim
