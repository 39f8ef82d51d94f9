#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Logging/Log.h"
#include "Messaging/EventMonitor.h"
#include "ServerEvents.pb.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/StatsCollector.h"
#include "SparseDeviceHelpers/MuleTask.h"
#include "SparseDeviceHelpers/SparseDeviceMuleBase.h"
#include "SparseDeviceHelpers/UpdateDevices.h"
#include "Utils/ThreadUtils.h"

class IData;

/// Makes a device and brings it to the server, on the calling thread, which has to step it from then on.
/// @param data  copied by the device.
/// @param app   not owned, may be null; outlives the device.
/// @return null when a step failed (logged); the device is gone then.
template <class D>
std::unique_ptr<D> BuildInitedDevice(ManifestProcessor::ManifestData const& data,
                                     SparseDeviceApplication* app) {
    auto device = std::make_unique<D>();
    if (!device->Init(data, app)) {
        LOG_E("Failed to initialize sparse device");
        return nullptr;
    }
    if (!device->FinishInit()) {
        LOG_E("Failed to finish initialization of sparse device");
        return nullptr;
    }
    if (!device->Start()) {
        LOG_E("Failed to start sparse device");
        return nullptr;
    }
    return device;
}

/// Owns the one thread on which a device lives: builds it there, steps it, and between steps runs the tasks
/// that other threads hand in.
///
/// Threads: Async and what SparseDeviceMuleBase has, from any thread; StartDevice, StopDevice and the
/// destructor one at a time, never from the device's own thread. Every signal is blocked in that thread.
/// @tparam D  derives from SparseDevice, default-constructible.
template <class D>
class SparseDeviceMule : public SparseDeviceMuleBase {
public:
    SparseDeviceMule() = default;
    ~SparseDeviceMule() override { StopDevice(); }

    /// Ends the device that runs, if any, and starts another one. Waits until it is built, which with a
    /// server that does not answer takes minutes, and with SetWaitForRegistration until its registration has
    /// settled, up to 15 s more.
    /// @param data  copied.
    /// @param app   not owned, may be null; outlives the device.
    /// @return false when the device could not be built (logged); its thread has then ended or is about to.
    bool StartDevice(ManifestProcessor::ManifestData const& data, SparseDeviceApplication* app);

    void StopDevice() override;
    bool IsRunning() override { return m_running && GetDevice() != nullptr; }
    SparseDeviceDescriptor const* GetDeviceDescriptor() const override {
        std::shared_ptr<D> const device = GetDevice();
        return device ? device->Descriptor() : nullptr;
    }
    bool IsRequestingExit() const override {
        std::shared_ptr<D> const device = GetDevice();
        return device && device->IsRequestingExit();
    }
    std::shared_ptr<SparseDevice> GetBaseDevice() const override { return GetDevice(); }

    /// From the next StartDevice on, and for good: it also waits for the server's word on the registration.
    void SetWaitForRegistration() { m_waitForRegistration = true; }

    /// Queues a task for the device's thread, where it runs behind the device's next step. With no device
    /// running it runs on the calling thread at once, so that the future is always answered.
    /// @tparam P  priority: the smallest runs first, equal ones in no particular order.
    /// @param fn  called once, without arguments; an exception lands in the future.
    template <int P, class F>
    std::future<std::invoke_result_t<std::decay_t<F>&>> Async(F&& fn);

    /// The device, for a task that uses its pipes: null on every thread but the device's own, and once the
    /// device has ended.
    std::shared_ptr<D> GetDeviceOnItsThread() const {
        return m_deviceThread.load() == std::this_thread::get_id() ? m_device : nullptr;
    }

private:
    using Clock = std::chrono::steady_clock;

    /// How long a pass runs tasks before the device is stepped again.
    static constexpr std::chrono::milliseconds kDrainBudget{32};
    /// How long a pass waits for a task when the device is no longer stepped, which paces it otherwise.
    static constexpr std::chrono::milliseconds kIdleWait{10};
    /// How often it gives way before it waits.
    static constexpr int kYields = 4;

    std::shared_ptr<D> GetDevice() const {
        std::lock_guard lock(m_deviceMutex);
        return m_device;
    }
    void SetDevice(std::shared_ptr<D> device);

    void UpdateLoop(ManifestProcessor::ManifestData const& data, SparseDeviceApplication* app);
    bool Build(ManifestProcessor::ManifestData const& data, SparseDeviceApplication* app);
    void WaitForRegistration();
    void MarkBuilt();
    void RunPass();
    MuleTaskQueue& TakeCurrentQueue(bool stepped);
    void WaitForWork(std::unique_lock<std::mutex>& lock);
    void DrainWithinBudget(MuleTaskQueue& current);
    void KeepLeftovers(MuleTaskQueue& current);
    void EndDevice();

    /// Written by the device's thread only, under m_deviceMutex; that thread reads it without.
    std::shared_ptr<D> m_device;
    mutable std::mutex m_deviceMutex;
    /// Guards the queues, the write index and the build state. Held while the device is built: nothing that
    /// only looks at the device takes it.
    std::mutex m_mutex;
    std::thread m_thread;
    std::atomic<std::thread::id> m_deviceThread;
    std::atomic<bool> m_running{false};
    /// One repeating task to cancel at the end of the next pass; -1 for none.
    std::atomic<std::int64_t> m_removeId{-1};
    bool m_built = false;
    std::atomic<bool> m_waitForRegistration{false};
    std::condition_variable m_builtSignal;
    /// Ends the wait of a pass that does not step the device.
    std::condition_variable m_workSignal;
    /// New tasks collect in one while the device's thread works off the other without the lock.
    MuleTaskQueue m_queues[2];
    int m_writeIndex = 0;
    std::unordered_map<std::int64_t, MuleTask> m_repeatingTasks;
    std::map<std::string, std::shared_ptr<IData>> m_namedData;
    VirtualDeviceStats::StatsCollector m_stats;
    VirtualDeviceStats::StatsEntry const m_updateStat{"SparseDeviceMule_UpdateLoopRun"};
    VirtualDeviceStats::StatsEntry const m_drainStat{"SparseDeviceMule_UpdateLoopSendPending"};
};

template <class D>
bool SparseDeviceMule<D>::StartDevice(ManifestProcessor::ManifestData const& data,
                                      SparseDeviceApplication* app) {
    StopDevice();
    std::unique_lock lock(m_mutex);
    m_running = true;
    m_built = false;  // the thread that was joined may have set it behind the stop
    {
        BlockedSignals const blocked;
        m_thread = std::thread([this, data, app] { UpdateLoop(data, app); });
    }
    m_builtSignal.wait(lock, [this] { return m_built || !m_running; });
    if (GetDevice() == nullptr) {
        LOG_E("Unable the build the sparse device.");
        m_running = false;
        m_built = false;
        return false;
    }
    return true;
}

template <class D>
void SparseDeviceMule<D>::StopDevice() {
    {
        std::lock_guard lock(m_mutex);
        m_running = false;
        m_built = false;
    }
    m_workSignal.notify_all();
    m_builtSignal.notify_all();
    if (m_thread.joinable()) {
        LOG_V("Joining thread...");
        m_thread.join();
        LOG_V("Joined!");
    }
}

template <class D>
template <int P, class F>
std::future<std::invoke_result_t<std::decay_t<F>&>> SparseDeviceMule<D>::Async(F&& fn) {
    using Result = std::invoke_result_t<std::decay_t<F>&>;
    auto task = std::make_shared<std::packaged_task<Result()>>(std::forward<F>(fn));
    std::future<Result> future = task->get_future();
    MuleTask entry(
        P, [task] { (*task)(); }, FunctionType::Once);
    {
        std::lock_guard lock(m_mutex);
        if (m_running) {
            m_queues[m_writeIndex].Push(std::move(entry));
            task.reset();
        }
    }
    if (task == nullptr) {
        m_workSignal.notify_one();
    } else {
        LOG_W("The device is shutting down...");
        (*task)();
    }
    return future;
}

template <class D>
void SparseDeviceMule<D>::SetDevice(std::shared_ptr<D> device) {
    {
        std::lock_guard lock(m_deviceMutex);
        m_device.swap(device);
    }
    // The device that was ends here, outside the lock: its end takes exchanges with the server.
}

template <class D>
void SparseDeviceMule<D>::UpdateLoop(ManifestProcessor::ManifestData const& data,
                                     SparseDeviceApplication* app) {
    m_deviceThread = std::this_thread::get_id();
    SetThreadName(data.deviceName);
    SetThreadSchedulerPolicy(0);
    if (Build(data, app)) {
        WaitForRegistration();
        MarkBuilt();
        while (m_running) {
            RunPass();
        }
    }
    EndDevice();
}

template <class D>
bool SparseDeviceMule<D>::Build(ManifestProcessor::ManifestData const& data, SparseDeviceApplication* app) {
    std::lock_guard lock(m_mutex);
    SetDevice(BuildInitedDevice<D>(data, app));
    if (m_device == nullptr) {
        // No task may enter the queues from here on: nobody would run it.
        m_running = false;
        m_built = true;
        m_builtSignal.notify_all();
    }
    return m_device != nullptr;
}

template <class D>
void SparseDeviceMule<D>::WaitForRegistration() {
    if (!m_waitForRegistration) {
        return;
    }
    // The monitor only shows that somebody is interested in the listener: the device takes the events itself.
    EventMonitor const monitor(m_device->ServerEventListener());
    UpdateDevicesAndDetectEvents<vq::vds::DeviceRegisteredEvent>(
        {m_device.get()}, std::chrono::milliseconds(15000), std::chrono::milliseconds(1000));
}

template <class D>
void SparseDeviceMule<D>::MarkBuilt() {
    {
        std::lock_guard lock(m_mutex);
        m_built = true;
    }
    m_builtSignal.notify_all();
}

template <class D>
void SparseDeviceMule<D>::RunPass() {
    VirtualDeviceStats::ScopedTimerStat const passTimer(m_updateStat, m_stats);
    bool const stepped = !m_device->IsRequestingExit();
    MuleTaskQueue& current = TakeCurrentQueue(stepped);
    if (stepped) {
        m_device->Update();
    }
    DrainWithinBudget(current);
    m_builtSignal.notify_all();
    KeepLeftovers(current);
}

/// @param stepped  the pass steps the device, which paces it; otherwise wait here for something to do.
template <class D>
MuleTaskQueue& SparseDeviceMule<D>::TakeCurrentQueue(bool stepped) {
    std::unique_lock lock(m_mutex);
    if (!stepped) {
        WaitForWork(lock);
    }
    MuleTaskQueue& current = m_queues[m_writeIndex];
    m_writeIndex = 1 - m_writeIndex;
    for (auto const& [id, task] : m_repeatingTasks) {
        current.Push(task);
    }
    return current;
}

template <class D>
void SparseDeviceMule<D>::WaitForWork(std::unique_lock<std::mutex>& lock) {
    auto const hasWork = [this] { return !m_running || !m_queues[m_writeIndex].IsEmpty(); };
    // Who has just been answered often has the next task ready. Giving way to him first lets him hand it in
    // without waking this thread, which on a shared processor would cut in before he waits for the answer.
    for (int i = 0; i < kYields && !hasWork(); ++i) {
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
    }
    m_workSignal.wait_for(lock, kIdleWait, hasWork);
}

template <class D>
void SparseDeviceMule<D>::DrainWithinBudget(MuleTaskQueue& current) {
    VirtualDeviceStats::ScopedTimerStat const drainTimer(m_drainStat, m_stats);
    Clock::time_point const deadline = Clock::now() + kDrainBudget;
    while (!current.IsEmpty() && Clock::now() <= deadline) {
        current.RunTop();
    }
}

template <class D>
void SparseDeviceMule<D>::KeepLeftovers(MuleTaskQueue& current) {
    std::lock_guard lock(m_mutex);
    if (!current.IsEmpty()) {
        LOG_V("%d tasks haven't been finished", static_cast<int>(current.Size()));
        current.MoveOnceTo(m_queues[m_writeIndex]);
    }
    if (std::int64_t const id = m_removeId.exchange(-1); id != -1) {
        m_repeatingTasks.erase(id);
    }
}

/// The end of the thread. Tasks that are still queued find no device and say so to whoever waits for them.
template <class D>
void SparseDeviceMule<D>::EndDevice() {
    SetDevice(nullptr);
    for (MuleTaskQueue& queue : m_queues) {
        while (!queue.IsEmpty()) {
            queue.RunTop();
        }
    }
    m_deviceThread = std::thread::id();
}
