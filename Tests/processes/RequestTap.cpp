#include "RequestTap.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace vq::test {

namespace {

constexpr std::chrono::milliseconds kTick{1};

}  // namespace

RequestTap::RequestTap(std::string front, std::string back)
    : m_front(std::move(front)), m_back(std::move(back)), m_thread([this] { Run(); }) {
    while (!m_open) {
        std::this_thread::sleep_for(kTick);
    }
}

RequestTap::~RequestTap() {
    m_stop = true;
    m_thread.join();
}

void RequestTap::WhenPasses(std::string type, std::function<void()> happens) {
    std::lock_guard const lock(m_mutex);
    m_type = std::move(type);
    m_happens = std::move(happens);
}

void RequestTap::Close() {
    m_mode = Mode::HungUp;
    while (m_open) {
        std::this_thread::sleep_for(kTick);
    }
}

void RequestTap::Run() {
    while (!m_stop) {
        if (m_mode != Mode::HungUp) {
            Serve();
            m_open = false;
        }
        std::this_thread::sleep_for(kTick);
    }
}

void RequestTap::Serve() {
    RawSocket front(ZMQ_ROUTER, m_front);
    RawSocket back(ZMQ_DEALER, m_back);
    m_open = true;
    while (!m_stop && m_mode != Mode::HungUp) {
        if (front.Poll(kTick)) {
            PassOn(front, back);
        }
        if (back.Poll(kTick)) {
            PassOn(back, front);
        }
    }
}

void RequestTap::PassOn(RawSocket& from, RawSocket& to) {
    Frames const message = from.Receive();
    std::unique_lock lock(m_mutex);
    if (m_happens && std::find(message.begin(), message.end(), m_type) != message.end()) {
        std::exchange(m_happens, nullptr)();
    }
    lock.unlock();
    while (m_mode == Mode::Hold && !m_stop) {
        std::this_thread::sleep_for(kTick);
    }
    if (m_mode == Mode::Pass) {
        to.Send(message);
    }
}

}  // namespace vq::test
