#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "TestSupport/RawWire.h"

namespace vq::test {

/// Stands between a client and the server of a request endpoint and passes everything on, until a test makes
/// it lose, hold or refuse messages.
class RequestTap {
public:
    enum class Mode {
        Pass,
        Hold,     ///< nothing goes on until it passes again, then everything
        Swallow,  ///< takes everything and passes nothing on
        HungUp    ///< has closed its endpoints, as a process that is gone
    };

    /// @param front  address that the clients use
    /// @param back   the server's own
    RequestTap(std::string front, std::string back);
    ~RequestTap();
    RequestTap(RequestTap const&) = delete;
    RequestTap& operator=(RequestTap const&) = delete;

    /// Calls `happens` once, on the tap's thread, when the first message of this type, request or reply,
    /// has arrived; the mode that it sets already counts for the message.
    void WhenPasses(std::string type, std::function<void()> happens);
    /// From any thread.
    void Set(Mode mode) { m_mode = mode; }
    /// Hangs up, and returns when the endpoints are free.
    void Close();

private:
    void Run();
    void Serve();
    void PassOn(RawSocket& from, RawSocket& to);

    std::string const m_front;
    std::string const m_back;
    std::mutex m_mutex;  // guards the two below
    std::string m_type;
    std::function<void()> m_happens;
    std::atomic<Mode> m_mode{Mode::Pass};
    std::atomic<bool> m_open{false};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace vq::test
