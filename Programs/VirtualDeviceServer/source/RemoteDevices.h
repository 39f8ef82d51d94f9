#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>

class AMessageContext;
class RemoteDeviceHandler;

namespace vq::server {

/// Headsets behind the device bridge. Every dealing with one takes a while, up to many seconds with one that
/// is gone: they are done one after the other on a thread of their own. Who asks for one is told that it is
/// under way, and of its outcome once it is there and he asks again.
///
/// Threads: the server's, for every call; the handler belongs to this object's thread until the end.
class RemoteDevices {
public:
    /// How a headset learns of this server.
    struct Settings {
        std::string serverName;
        int serverPort = 0;  ///< 0: the server has none, and is not advertised
        std::uint32_t minimumLevel = 0;
    };
    struct Answer {
        std::optional<std::string> refusal;
        int port = 0;
    };

    /// @param handler  keeps the links; not used by others meanwhile
    /// @param context  over ZeroMQ
    RemoteDevices(RemoteDeviceHandler& handler, AMessageContext& context, Settings settings);
    RemoteDevices(RemoteDevices const&) = delete;
    RemoteDevices& operator=(RemoteDevices const&) = delete;
    /// Stops, and waits for it.
    ~RemoteDevices();

    /// Makes the link to a headset and advertises the server to it.
    /// @param port  of the headset's socket server
    Answer Connect(std::string const& serial, int port);
    /// Ends the link and every pair of ports, or the attempt to make the link.
    Answer Disconnect(std::string const& serial);
    /// Connects a port to one at the other end of the only link; the same pair each time.
    /// @param listensHere  the port is one of this machine, where somebody takes connections; otherwise it is
    ///                     such a port of the headset
    /// @return with the port at the other end
    Answer MapPort(int port, bool listensHere);

    /// Begins to end all links; takes some seconds at most. Nothing new is begun.
    void Stop();

private:
    using Clock = std::chrono::steady_clock;
    using Work = std::function<Answer()>;
    using Port = std::pair<int, bool>;  ///< number, and whether it is of this machine

    struct Link {
        int port = 0;  ///< of the socket server
        bool made = false;
        std::stop_source stop;
        std::map<Port, int> pairs;
    };
    struct Job {
        std::optional<Answer> answer;
        Clock::time_point answered{};
    };

    /// The outcome of what has been begun under that name; else begins it. Needs m_mutex.
    Answer Ask(std::string const& what, Work work);
    /// Why nothing can be begun. Needs m_mutex.
    std::optional<std::string> CheckRoom() const;
    void Run(std::stop_token const& stop);
    // On the thread.
    void Do(std::string const& what, Work const& work);
    Answer MakeLink(std::string const& serial, int port, std::stop_source const& stop);
    /// @return why the link cannot be made; empty once it is there
    std::string OpenLink(std::string const& serial, int port, std::stop_token stop);
    Answer MakePair(std::string const& serial, Port port);

    RemoteDeviceHandler& m_handler;
    AMessageContext& m_context;
    Settings const m_settings;

    std::mutex m_mutex;  // guards all below
    std::condition_variable_any m_begun;
    std::deque<std::pair<std::string, Work>> m_queue;
    std::map<std::string, Job> m_jobs;
    std::map<std::string, Link> m_links;
    bool m_stopping = false;

    std::jthread m_thread;
};

}  // namespace vq::server
