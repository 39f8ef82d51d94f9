#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport/RawWire.h"

namespace vq::test {

/// Serves one bare socket on a thread of its own.
class RawResponder {
public:
    using Answer = std::function<Frames(Frames const& request)>;

    /// @param idle  called about every 20 ms, on the serving thread
    RawResponder(
        std::string const& address, Answer answer, std::function<void()> idle = [] {});
    ~RawResponder();

    /// The requests so far.
    std::vector<Frames> Requests();

private:
    RawSocket m_socket;
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;  // guards m_requests
    std::vector<Frames> m_requests;
    std::thread m_thread;
};

/// A device of another make: registers with the server over bare sockets as provider of "identity_feature",
/// to be served by a RawResponder at `ownAddress`.
void RegisterRawProvider(std::string const& serverAddress, std::string const& ownAddress);

/// A server of another make, over bare sockets: answers the requests that the library makes on its way to a
/// provider. Enters itself in the registry by our own class only because a test has no other way to find the
/// table.
class RawServer {
public:
    /// @param directory  where its endpoints go, with a slash at the end
    /// @param provider   text form of the address that it names as the provider of the feature
    RawServer(std::string const& directory, std::string const& provider);

    std::vector<Frames> Requests() { return m_responder.Requests(); }

private:
    void Publish();
    Frames AnswerTo(Frames const& request);

    std::string const m_address;  // what all its addresses begin with
    std::string const m_provider;
    std::string const m_directory;
    RawSocket m_events;
    RawSocket m_heartbeat;
    RawSocket m_broadcast;
    int m_announcements = 0;
    RawResponder m_responder;
};

}  // namespace vq::test
