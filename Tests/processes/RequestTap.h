#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace vq::test {

/// Stands between an application and a server on the server's request endpoint and passes everything on,
/// until a request of one type arrives: the place at which a test makes something happen to the server.
class RequestTap {
public:
    /// @param front  address that the application uses
    /// @param back   the server's own
    RequestTap(std::string front, std::string back);
    ~RequestTap();
    RequestTap(RequestTap const&) = delete;
    RequestTap& operator=(RequestTap const&) = delete;

    /// When a request of this type arrives it goes no further: `happens` is called on the tap's thread and
    /// the tap hangs up on everybody, as the server's process would. Call it before the first request.
    void HangUpAt(std::string type, std::function<void()> happens);
    /// Listens again, for good.
    void Resume() { m_resume = true; }
    bool HasHungUp() const { return m_hungUp; }

private:
    void Run();
    /// Passes messages on until it is told to stop, or, if `mayHangUp`, until the type arrives.
    void Serve(bool mayHangUp);

    std::string const m_front;
    std::string const m_back;
    std::mutex m_mutex;  // guards the two below
    std::string m_type;
    std::function<void()> m_happens;
    std::atomic<bool> m_hungUp{false};
    std::atomic<bool> m_resume{false};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace vq::test
