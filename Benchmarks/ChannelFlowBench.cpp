// Figures that have no twin: the way of a sample through the server, and what a device's step costs by the
// number of its channels. One device both publishes and observes, so that one clock tells.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Messaging/AMessageManager.h"
#include "Messaging/ChannelTypeTraits.h"
#include "SparseDevice/SparseDevice.h"
#include "TestSupport/ChildProcess.h"
#include "TestSupport/TestHome.h"
#include "Twin.h"

namespace {

using Clock = std::chrono::steady_clock;
using Vec3 = vq::ch::Vec3ChannelDataEvent;
using Samples = std::vector<std::shared_ptr<IData>>;

double Microseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

double QuantileOf(std::vector<double>& values, double share) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0
                          : values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

/// A server and a device with channels that come back to it.
class Echo {
public:
    explicit Echo(int channels) {
        std::string const address = "IPC:" + vq::test::HomeDirectory() + "bench";
        ::setenv("VQ_VDS_ADDRESS", address.c_str(), 1);
        m_server = std::make_unique<vq::test::ChildProcess>(
            std::vector<std::string>{VDSERVER_PATH, "--address", address, "--log-level", "error"});
        if (!m_server->ReadLineWith("ready", std::chrono::seconds(30))) {
            return;
        }
        ManifestProcessor::ManifestData data;
        data.deviceName = "echo";
        data.deviceType = "Generic";
        data.updateHertz = 1e9f;
        m_device = std::make_unique<SparseDevice>(SparseDeviceType::Generic);
        if (!m_device->Init(data, nullptr) || !m_device->FinishInit()) {
            return;
        }
        for (int i = 0; i < channels; ++i) {
            std::string const name = "channel" + std::to_string(i);
            m_producers.push_back(m_device->MakeProducerChannel(name, "Vec3"));
            m_observers.push_back(m_device->MakeObserverChannel(name, "Vec3"));
        }
        isReady = WaitForEcho();
    }
    ~Echo() {
        m_device.reset();
        AMessageManager::Instance().Cleanup();
    }
    Echo(Echo const&) = delete;
    Echo& operator=(Echo const&) = delete;

    void Publish(std::size_t number) {
        Vec3 sample;
        sample.set_x(static_cast<float>(number));
        sample.set_y(2);
        sample.set_z(3);
        m_producers[number % m_producers.size()]->SetDataFromMessage(&sample);
    }
    void Step() { m_device->Update(); }
    /// Takes what has come back on any channel.
    std::size_t Take() {
        m_samples.clear();
        for (ChannelObserver* const observer : m_observers) {
            observer->PopAllData(m_samples);
        }
        return m_samples.size();
    }

    bool isReady = false;

private:
    bool WaitForEcho() {
        auto const end = Clock::now() + std::chrono::seconds(30);
        for (bool heard = false; Clock::now() < end;) {
            if (!heard) {
                Publish(0);
            }
            Step();
            bool const came = Take() > 0;
            if (heard && !came) {
                return true;
            }
            heard |= came;
        }
        return false;
    }

    std::unique_ptr<vq::test::ChildProcess> m_server;
    std::unique_ptr<SparseDevice> m_device;
    std::vector<ChannelProducer*> m_producers;
    std::vector<ChannelObserver*> m_observers;
    Samples m_samples;
};

/// One sample after the other, each waited for.
void WayThroughServer(benchmark::State& state) {
    Echo echo(1);
    std::vector<double> times;
    for (auto _ : state) {
        auto const start = Clock::now();
        echo.Publish(0);
        do {
            echo.Step();
        } while (echo.isReady && echo.Take() == 0);
        times.push_back(Microseconds(Clock::now() - start));
    }
    if (!echo.isReady) {
        state.SkipWithError("no way through the server");
    }
    state.counters["p50_us"] = QuantileOf(times, 0.5);
    state.counters["p99_us"] = QuantileOf(times, 0.99);
}

/// As many as get through with some always on the way.
void DeliveredThroughServer(benchmark::State& state) {
    constexpr std::size_t kOnTheWay = 15;  // fewer than a queue holds: none is dropped
    Echo echo(1);
    std::size_t sent = 0;
    std::size_t taken = 0;
    auto const start = Clock::now();
    for (auto _ : state) {
        while (sent < taken + kOnTheWay) {
            echo.Publish(sent++);
        }
        echo.Step();
        taken += echo.Take();
    }
    if (!echo.isReady) {
        state.SkipWithError("no way through the server");
    }
    state.counters["delivered_per_s"] =
        static_cast<double>(taken) / (Microseconds(Clock::now() - start) / 1e6);
}

/// The step that finds 100 samples, spread over the channels of the device.
void StepWithSamples(benchmark::State& state) {
    constexpr std::size_t kSamples = 100;
    auto const channels = static_cast<int>(state.range(0));
    Echo echo(channels);
    std::vector<double> times;
    std::uint64_t allocations = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < kSamples; ++i) {
            echo.Publish(i);
        }
        // By then they are all back, on a machine that does nothing else.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        auto const start = Clock::now();
        {
            bench::AllocationCount const count;
            echo.Step();
            allocations = count.Get();
        }
        auto const took = Clock::now() - start;
        if (echo.Take() >= std::min(kSamples, static_cast<std::size_t>(channels) * 20)) {
            times.push_back(Microseconds(took));
        }
        state.SetIterationTime(Microseconds(took) / 1e6);
    }
    if (!echo.isReady) {
        state.SkipWithError("no way through the server");
    }
    state.counters["us_a_sample"] = QuantileOf(times, 0.5) / kSamples;
    state.counters["allocs_a_sample"] = static_cast<double>(allocations) / kSamples;
}

BENCHMARK(WayThroughServer)->Name("way_through_server")->UseRealTime();
BENCHMARK(DeliveredThroughServer)->Name("delivered_through_server")->UseRealTime();
BENCHMARK(StepWithSamples)
    ->Name("device_step_100_samples")
    ->ArgName("channels")
    ->Arg(1)
    ->Arg(10)
    ->Arg(100)
    ->Iterations(40)
    ->UseManualTime();

}  // namespace
