#include "RequestTap.h"

#include <zmq.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "RawPeer.h"

namespace vq::test {

namespace {

constexpr int kTickMs = 20;

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
        std::this_thread::sleep_for(std::chrono::milliseconds(kTickMs));
    }
    Serve(false);
}

void RequestTap::Serve(bool mayHangUp) {
    RawSocket front(ZMQ_ROUTER, m_front);
    RawSocket back(ZMQ_DEALER, m_back);
    while (!m_stop) {
        if (front.Poll(kTickMs)) {
            Frames const request = front.Receive();
            std::lock_guard const lock(m_mutex);
            if (mayHangUp && std::find(request.begin(), request.end(), m_type) != request.end()) {
                m_happens();
                m_hungUp = true;
                return;
            }
            back.Send(request);
        }
        while (back.Poll(0)) {
            front.Send(back.Receive());
        }
        if (back.Poll(kTickMs / 4)) {
            front.Send(back.Receive());
        }
    }
}

}  // namespace vq::test
