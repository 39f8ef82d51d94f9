// What a step of an idle device costs beside the looks at its sockets and clocks that it has to take.

#include <zmq.h>

#include <array>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "SparseDevice/SparseDevice.h"
#include "TestSupport/FakeServer.h"
#include "Twin.h"

namespace {

constexpr std::size_t kPasses = 200;
/// The device's own timers, two readings each, and the reading that paces it.
constexpr int kClockReadings = 7 * 2 + 1;

/// The bare counterparts of the device's two sockets, peers connected and silent as the device's are.
class BareSockets {
public:
    BareSockets() {
        Make(0, ZMQ_REP, ZMQ_REQ);
        Make(1, ZMQ_SUB, ZMQ_PUB);
    }
    ~BareSockets() {
        for (void* const socket : m_sockets) {
            zmq_close(socket);
        }
        zmq_ctx_term(m_context);
    }
    BareSockets(BareSockets const&) = delete;
    BareSockets& operator=(BareSockets const&) = delete;

    /// One look at each: true when both are empty, as they must be.
    bool Look() {
        bool empty = true;
        for (std::size_t i = 0; i < 2; ++i) {
            zmq_msg_t frame;
            zmq_msg_init(&frame);
            empty &= zmq_msg_recv(&frame, m_sockets[i], ZMQ_DONTWAIT) < 0;
            zmq_msg_close(&frame);
        }
        return empty;
    }

private:
    void Make(std::size_t index, int type, int peerType) {
        std::string const address = "inproc://bare" + std::to_string(index);
        m_sockets[index] = zmq_socket(m_context, type);
        m_sockets[2 + index] = zmq_socket(m_context, peerType);
        zmq_bind(m_sockets[index], address.c_str());
        zmq_connect(m_sockets[2 + index], address.c_str());
        if (type == ZMQ_SUB) {
            zmq_setsockopt(m_sockets[index], ZMQ_SUBSCRIBE, "vq.vds", 6);
        }
    }

    void* m_context = zmq_ctx_new();
    std::array<void*, 4> m_sockets{};
};

/// An initialised device whose server has gone without a word, so that nothing interrupts it.
class IdleDevice {
public:
    IdleDevice() {
        vq::test::FakeServer server;
        ManifestProcessor::ManifestData data;
        data.deviceName = "idle";
        data.deviceType = "Generic";
        data.updateHertz = 1e9f;
        m_device.EnableHelloDataEvents(false);
        m_ready = m_device.Init(data, nullptr) && m_device.FinishInit() && m_device.Update();
    }
    ~IdleDevice() {
        // Nobody is there to take leave of.
        m_device.OnServerStopping();
    }

    bool IsReady() const { return m_ready; }
    bool Pass() { return m_device.Update(); }

private:
    SparseDevice m_device{SparseDeviceType::Generic};
    bool m_ready = false;
};

struct BasePass {
    BareSockets& sockets;
    std::mutex& mutex;

    std::chrono::steady_clock::duration operator()() const {
        auto const start = std::chrono::steady_clock::now();
        auto now = start;
        for (int i = 1; i < kClockReadings; ++i) {
            now = std::chrono::steady_clock::now();
        }
        sockets.Look();
        // Once before and once after the device's own work.
        for (int i = 0; i < 2; ++i) {
            std::lock_guard const lock(mutex);
            benchmark::ClobberMemory();
        }
        return now - start;
    }
};

void IdlePass(benchmark::State& state) {
    IdleDevice device;
    BareSockets sockets;
    std::mutex mutex;
    if (!device.IsReady() || !sockets.Look()) {
        state.SkipWithError("no idle device");
        return;
    }
    bench::RunTwin(state, kPasses, BasePass{sockets, mutex}, [&device] { return device.Pass(); });
}

void IdlePassQuiet(benchmark::State& state) {
    BareSockets sockets;
    std::mutex mutex;
    bench::RunQuiet(state, kPasses, BasePass{sockets, mutex});
}

}  // namespace

VQ_TWIN("device_idle_pass", IdlePass);
VQ_TWIN("device_idle_pass_quiet", IdlePassQuiet);
