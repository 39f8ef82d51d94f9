#include "RequestTap.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "TestSupport/RawWire.h"

namespace vq::test {

namespace {

constexpr std::chrono::milliseconds kTick{20};

}  // namespace

RequestTap::RequestTap(std::string front, std::string back)
    : m_front(std::move(front)), m_back(std::move(back)), m_thread([this] { Run(); }) {}

RequestTap::~RequestTap() {
    m_stop = true;
    m_thread.join();
}

void RequestTap::HangUpAt(std::string type, std::function<void()> happens) {
    std::lock_guard const lock(m_mutex);
    m_type = std::move(type);
    m_happens = std::move(happens);
}

void RequestTap::Run() {
    Serve(true);
    while (!m_resume && !m_stop) {
        std::this_thread::sleep_for(kTick);
    }
    Serve(false);
}

void RequestTap::Serve(bool mayHangUp) {
    RawSocket front(ZMQ_ROUTER, m_front);
    RawSocket back(ZMQ_DEALER, m_back);
    while (!m_stop) {
        if (front.Poll(kTick)) {
            Frames const request = front.Receive();
            std::lock_guard const lock(m_mutex);
            if (mayHangUp && std::find(request.begin(), request.end(), m_type) != request.end()) {
                m_happens();
                m_hungUp = true;
                return;
            }
            back.Send(request);
        }
        while (back.Poll()) {
            front.Send(back.Receive());
        }
        if (back.Poll(kTick / 4)) {
            front.Send(back.Receive());
        }
    }
}

}  // namespace vq::test
