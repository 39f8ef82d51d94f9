#include "SparseDeviceHelpers/SparseDeviceMule.h"

#include <latch>
#include <semaphore>

#include "SparseDevice/SparseDevice.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"

using vq::test::LogCapture;

namespace {

constexpr auto kLimit = 60s;

/// A device without a server, whose steps a test scripts. A mule makes its device itself, so the script is
/// the test's one global: set it before the mule starts and keep it until the mule has stopped.
struct DeviceScript {
    bool init = true;
    bool finishInit = true;
    bool start = true;
    /// Runs in Init and in each Update, on the device's thread.
    std::function<void()> onInit = [] {};
    std::function<void()> onUpdate = [] {};
    std::atomic<int> updates{0};
    std::atomic<int> alive{0};
};

DeviceScript* g_deviceScript = nullptr;

class FakeDevice : public SparseDevice {
public:
    FakeDevice() : SparseDevice(SparseDeviceType::Generic) { ++g_deviceScript->alive; }
    ~FakeDevice() override { --g_deviceScript->alive; }

    bool Init(ManifestProcessor::ManifestData const&, SparseDeviceApplication*) override {
        g_deviceScript->onInit();
        return g_deviceScript->init;
    }
    bool FinishInit() { return g_deviceScript->finishInit; }
    bool Start() override { return g_deviceScript->start; }
    bool Update() override {
        ++g_deviceScript->updates;
        g_deviceScript->onUpdate();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return true;
    }
};

class SparseDeviceMuleTest : public testing::Test {
protected:
    SparseDeviceMuleTest() { g_deviceScript = &m_script; }
    ~SparseDeviceMuleTest() override { m_mule.StopDevice(); }

    bool Start() {
        ManifestProcessor::ManifestData data;
        data.deviceName = "fake";
        return m_mule.StartDevice(data, nullptr);
    }

    /// Starts the device and holds it in a step, so that everything queued before Release runs in one pass.
    void StartHeld() {
        m_script.onUpdate = [this] {
            if (!m_released.exchange(true)) {
                m_held.release();
                m_release.acquire();
            }
        };
        ASSERT_TRUE(Start());
        m_held.acquire();
    }
    void Release() { m_release.release(); }

    LogCapture m_log{LogLevel::Verbose};
    DeviceScript m_script;
    std::atomic<bool> m_released{false};
    std::binary_semaphore m_held{0};
    std::binary_semaphore m_release{0};
    SparseDeviceMule<FakeDevice> m_mule;
};

}  // namespace

TEST_F(SparseDeviceMuleTest, TasksRunBehindTheStepByPriorityAndOverTheBudgetInLaterPasses) {
    StartHeld();
    std::vector<std::pair<int, int>> runs;  // priority, steps of the device until then
    auto const note = [&](int priority) { runs.emplace_back(priority, m_script.updates.load()); };
    int const updatesBefore = m_script.updates;
    auto last = m_mule.Async<101>([&] { note(101); });
    auto middle = m_mule.Async<100>([&] { note(100); });
    auto slow = m_mule.Async<1>([&] {
        note(1);
        std::this_thread::sleep_for(50ms);
    });
    Release();
    for (auto* future : {&slow, &middle, &last}) {
        ASSERT_EQ(future->wait_for(kLimit), std::future_status::ready);
    }
    ASSERT_EQ(runs.size(), 3u);
    EXPECT_EQ(runs[0], (std::pair{1, updatesBefore + 1}));
    EXPECT_EQ(runs[1].first, 100);
    EXPECT_EQ(runs[2].first, 101);
    EXPECT_GT(runs[1].second, runs[0].second) << "the device was not stepped in between";
    EXPECT_TRUE(m_log.Has(LogLevel::Verbose, "2 tasks haven't been finished"));
}

TEST_F(SparseDeviceMuleTest, ATaskRunsOnTheDevicesThreadAndAfterAStopOnTheCallers) {
    ASSERT_TRUE(Start());
    EXPECT_EQ(m_mule.GetDeviceOnItsThread(), nullptr);
    auto const task = [this] {
        return std::pair(m_mule.GetDeviceOnItsThread() != nullptr, std::this_thread::get_id());
    };
    auto seen = m_mule.Async<101>(task);
    ASSERT_EQ(seen.wait_for(kLimit), std::future_status::ready);
    EXPECT_TRUE(seen.get().first);
    auto thrown = m_mule.Async<101>([]() -> int { throw std::runtime_error("no"); });
    EXPECT_THROW(thrown.get(), std::runtime_error);

    std::shared_ptr<SparseDevice> const first = m_mule.GetBaseDevice();
    ASSERT_TRUE(Start());
    EXPECT_NE(m_mule.GetBaseDevice(), first);
    EXPECT_EQ(m_script.alive, 2) << "the one that runs, and the one that is kept here";
    m_mule.StopDevice();
    EXPECT_EQ(m_script.alive, 1);
    EXPECT_FALSE(m_mule.IsRunning());
    auto answer = m_mule.Async<101>(task);
    ASSERT_EQ(answer.wait_for(0s), std::future_status::ready);
    EXPECT_EQ(answer.get(), std::pair(false, std::this_thread::get_id()));
    EXPECT_TRUE(m_log.Has(LogLevel::Warning, "The device is shutting down..."));
}

TEST_F(SparseDeviceMuleTest, ADeviceThatCannotBeBuiltLeavesNobodyWaiting) {
    for (auto const& [step, line] :
         {std::pair{&DeviceScript::init, "Failed to initialize sparse device"},
          std::pair{&DeviceScript::finishInit, "Failed to finish initialization of sparse device"},
          std::pair{&DeviceScript::start, "Failed to start sparse device"}}) {
        m_script.*step = false;
        // Tasks come in before, during and after the build.
        std::atomic<bool> stop{false};
        m_script.onInit = [] { std::this_thread::sleep_for(5ms); };
        std::atomic<int> ran{0};
        int queued = 0;
        std::thread caller([&] {
            for (; !stop; ++queued) {
                m_mule.Async<101>([&] { ++ran; });
            }
        });
        EXPECT_FALSE(Start());
        stop = true;
        caller.join();
        m_mule.StopDevice();
        EXPECT_EQ(ran, queued);
        EXPECT_EQ(m_script.alive, 0);
        EXPECT_EQ(m_log.Count(LogLevel::Error, line), 1u);
        m_script.*step = true;
    }
    EXPECT_EQ(m_log.Count(LogLevel::Error, "Unable the build the sparse device."), 3u);
    EXPECT_TRUE(Start()) << "the mule must be usable again";
}

TEST_F(SparseDeviceMuleTest, AStopAnswersEveryQueuedTask) {
    StartHeld();
    constexpr int kThreads = 4;
    constexpr int kTasks = 250;
    std::atomic<int> ran{0};
    std::latch half(kThreads);
    std::vector<std::jthread> callers;
    for (int caller = 0; caller < kThreads; ++caller) {
        callers.emplace_back([&] {
            for (int i = 0; i < kTasks; ++i) {
                m_mule.Async<101>([&] { ++ran; });
                if (i == kTasks / 2) {
                    half.count_down();
                }
            }
        });
    }
    half.wait();
    Release();
    m_mule.StopDevice();
    callers.clear();
    EXPECT_EQ(ran, kThreads * kTasks);
}

TEST_F(SparseDeviceMuleTest, ADeviceThatAskedToExitIsNotSteppedButStillServed) {
    ASSERT_TRUE(Start());
    m_mule.GetBaseDevice()->RequestExit(false);
    m_mule.Async<101>([] {}).wait();  // ends the pass that may have begun before the request
    int const updates = m_script.updates;
    EXPECT_TRUE(m_mule.IsRequestingExit());

    std::clock_t const processorBefore = std::clock();
    auto const begin = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(400ms);
    auto const elapsed = std::chrono::steady_clock::now() - begin;
    auto const spent = std::chrono::microseconds((std::clock() - processorBefore) * 1000000 / CLOCKS_PER_SEC);
    EXPECT_LT(spent, elapsed / 4) << "the loop spins";

    auto answer = m_mule.Async<101>([] { return 5; });
    ASSERT_EQ(answer.wait_for(kLimit), std::future_status::ready);
    EXPECT_EQ(m_script.updates, updates);
}
