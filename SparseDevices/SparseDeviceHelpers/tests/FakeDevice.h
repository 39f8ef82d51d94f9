#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "SparseDevice/SparseDevice.h"

namespace vq::test {

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

inline DeviceScript* g_deviceScript = nullptr;

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

}  // namespace vq::test
