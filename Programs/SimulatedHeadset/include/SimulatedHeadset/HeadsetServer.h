#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#include <zmq.hpp>

#include "Utils/FileDescriptor.h"

namespace vq::headset {

/// The socket server of a headset: takes the commands of a desktop, checks them, and answers well or badly,
/// as it is told. Runs on a thread of its own.
///
/// Threads: any.
class HeadsetServer {
public:
    /// A command as a person reads it, such as "VDS port 4711 name 'vdserver'"; on the server's thread.
    using OnCommand = std::function<void(std::string const& text)>;

    /// @param port   where to take connections, on this machine alone; 0 for a free one
    /// @param level  the platform API level that it tells
    /// Throws zmq::error_t where the port cannot be had.
    HeadsetServer(int port, std::uint32_t level, OnCommand onCommand = {});
    HeadsetServer(HeadsetServer const&) = delete;
    HeadsetServer& operator=(HeadsetServer const&) = delete;
    ~HeadsetServer();

    int Port() const { return m_port; }

    /// How a command ("VER", "GET", ...) is answered from now on: "well", "nak:TEXT", "err:TEXT", "short"
    /// (the last byte missing), "long" (one too many), "late:MILLISECONDS", "silent", "exactly:BYTES".
    /// @return false when it is none of these
    bool Answer(std::string const& command, std::string const& how);

    /// The port in a request, at that byte. The request must be long enough.
    static int PortIn(std::string const& request, std::size_t at);

    /// All requests so far, as they came.
    std::vector<std::string> Requests() const;

private:
    using Frames = std::vector<zmq::message_t>;

    void Run();
    void Serve(Frames frames);
    std::string ReplyTo(std::string const& request, std::string& description) const;
    std::pair<std::string, std::string> RuleFor(std::string const& request) const;

    std::uint32_t const m_level;
    OnCommand const m_onCommand;
    FileDescriptor m_stop;
    zmq::context_t m_context;
    zmq::socket_t m_socket;
    int m_port = 0;
    mutable std::mutex m_mutex;
    std::map<std::string, std::pair<std::string, std::string>> m_rules;
    std::vector<std::string> m_requests;
    std::thread m_thread;
};

}  // namespace vq::headset
