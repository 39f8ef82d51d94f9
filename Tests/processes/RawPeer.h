#pragma once

#include <google/protobuf/message_lite.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vq::test {

using Frames = std::vector<std::string>;

/// The three frames of a request or reply.
Frames FramesOf(google::protobuf::MessageLite const& message);

/// One bare libzmq socket, without a line of our messaging layer: what another implementation of the wire
/// would hold. Its context ends with it. One thread, but for Interrupt.
class RawSocket {
public:
    /// @param type      ZMQ_REQ, ZMQ_REP, ZMQ_PUB or ZMQ_SUB; a SUB hears everything
    /// @param endpoint  "ipc:///path"; REP and PUB bind it, REQ and SUB connect
    RawSocket(int type, std::string const& endpoint);
    ~RawSocket();
    RawSocket(RawSocket const&) = delete;
    RawSocket& operator=(RawSocket const&) = delete;

    void Send(Frames const& frames);
    /// The next message, or none after 30 s.
    Frames Receive();
    /// True when a message is there within the time.
    bool Poll(int milliseconds);

private:
    void* m_context;
    void* m_socket;
};

/// Sends a request and parses the reply into `reply`; fails the test when anything else comes.
void Exchange(RawSocket& socket, google::protobuf::MessageLite const& request,
              google::protobuf::MessageLite& reply);

/// A device of another make: registers with the server over bare sockets as provider of "identity_feature"
/// and answers each identity request with the frames that the test gives.
class RawProvider {
public:
    using Answer = std::function<Frames(Frames const& request)>;

    /// @param serverEndpoint  the server's request endpoint, "ipc:///path"
    RawProvider(std::string const& serverEndpoint, std::string const& ownPath, Answer answer);
    ~RawProvider();

    /// The requests so far.
    std::vector<Frames> Requests();

private:
    void Register(std::string const& serverEndpoint, std::string const& ownPath);
    void Serve();

    RawSocket m_socket;
    Answer const m_answer;
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;  // guards m_requests
    std::vector<Frames> m_requests;
    std::thread m_thread;
};

/// A server of another make, over bare sockets: answers the requests that the library makes on its way to a
/// provider, and records their types in order. Enters itself in the registry by our own class only because a
/// test has no other way to find the table.
class RawServer {
public:
    /// @param directory  where its endpoints go, with a slash at the end
    /// @param provider   text form of the address that it names as the provider of the feature
    RawServer(std::string const& directory, std::string const& provider);
    ~RawServer();

    std::vector<std::string> RequestTypes();
    /// The payload of the first request of a type; empty when none came.
    std::string PayloadOf(std::string const& type);

private:
    void Serve();
    void PublishHeartbeat();
    void PublishRegistration();
    Frames AnswerTo(Frames const& request);
    void Publish(google::protobuf::MessageLite const& event);

    std::string const m_directory;
    std::string const m_provider;
    RawSocket m_requests;
    RawSocket m_events;
    RawSocket m_heartbeat;
    RawSocket m_broadcast;
    std::atomic<bool> m_stop{false};
    std::mutex m_mutex;  // guards m_seen
    std::vector<Frames> m_seen;
    std::thread m_thread;
};

}  // namespace vq::test
