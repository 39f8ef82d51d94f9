#include "RemoteDevices.h"

#include <algorithm>
#include <exception>

#include "Logging/Log.h"
#include "Messaging/MessageAddress.h"
#include "Messaging/RemoteDeviceHandler.h"
#include "Messaging/SocketServerClient.h"
#include "Utils/ThreadUtils.h"

namespace vq::server {

namespace {

/// An outcome that nobody asks for is forgotten after this time.
constexpr std::chrono::seconds kKeepOutcome{60};
constexpr std::size_t kMaximumJobs = 64;
constexpr int kMaximumPort = 65535;
constexpr std::size_t kMaximumSerial = 128;

using Refusal = std::optional<std::string>;

Refusal CheckPort(int port) {
    bool const good = port >= 1 && port <= kMaximumPort;
    return good ? Refusal() : std::to_string(port) + " is no port";
}

/// A serial goes on the command line of the bridge.
Refusal CheckSerial(std::string const& serial) {
    bool const good = !serial.empty() && serial.size() <= kMaximumSerial && serial.front() != '-' &&
                      std::ranges::all_of(serial, [](char c) { return c > ' ' && c <= '~'; });
    return good ? Refusal() : "this is no serial of a headset";
}

std::string Name(std::string const& serial) {
    return "headset '" + serial + "'";
}

}  // namespace

RemoteDevices::RemoteDevices(RemoteDeviceHandler& handler, AMessageContext& context, Settings settings)
    : m_handler(handler), m_context(context), m_settings(std::move(settings)) {
    BlockedSignals const blocked;
    m_thread = std::jthread([this](std::stop_token const& stop) { Run(stop); });
}

RemoteDevices::~RemoteDevices() {
    Stop();
}

void RemoteDevices::Stop() {
    std::lock_guard const lock(m_mutex);
    m_stopping = true;
    m_queue.clear();
    for (auto& [serial, link] : m_links) {
        link.stop.request_stop();
    }
    m_thread.request_stop();
}

RemoteDevices::Answer RemoteDevices::Connect(std::string const& serial, int port) {
    if (Refusal refusal = CheckSerial(serial)) {
        return {std::move(refusal)};
    }
    if (Refusal refusal = CheckPort(port)) {
        return {std::move(refusal)};
    }
    std::lock_guard const lock(m_mutex);
    std::string const what = "connecting to " + Name(serial) + " at port " + std::to_string(port);
    auto const found = m_links.find(serial);
    if (found != m_links.end() && found->second.made && found->second.port == port) {
        m_jobs.erase(what);
        return {};
    }
    if (m_jobs.contains(what)) {
        return Ask(what, {});
    }
    if (found != m_links.end() && !found->second.made) {
        return {Name(serial) + " is being connected at port " + std::to_string(found->second.port)};
    }
    if (Refusal refusal = CheckRoom()) {
        return {std::move(refusal)};
    }
    std::stop_source stop;
    if (found == m_links.end()) {
        m_links[serial] = Link{.port = port, .made = false, .stop = stop, .pairs = {}};
    }
    return Ask(what, [=, this] { return MakeLink(serial, port, stop); });
}

RemoteDevices::Answer RemoteDevices::Disconnect(std::string const& serial) {
    std::lock_guard const lock(m_mutex);
    std::string const what = "disconnecting " + Name(CheckSerial(serial) ? "?" : serial);
    if (m_jobs.contains(what)) {
        return Ask(what, {});
    }
    auto const found = m_links.find(serial);
    if (found == m_links.end()) {
        return {"there is no link to a headset of that serial"};
    }
    if (!found->second.made) {
        found->second.stop.request_stop();
    }
    return Ask(what, [serial, this] {
        m_handler.DisconnectRemoteClient(serial);
        std::lock_guard const guard(m_mutex);
        m_links.erase(serial);
        LOG_I("The link to headset '%s' has been closed", serial.c_str());
        return Answer();
    });
}

RemoteDevices::Answer RemoteDevices::MapPort(int port, bool listensHere) {
    if (Refusal refusal = CheckPort(port)) {
        return {std::move(refusal)};
    }
    std::lock_guard const lock(m_mutex);
    auto const made = [](auto const& entry) { return entry.second.made; };
    auto const found = std::ranges::find_if(m_links, made);
    if (found == m_links.end() || std::ranges::count_if(m_links, made) > 1) {
        return {found == m_links.end() ? "no headset is connected"
                                       : "several headsets are connected, and the request names none"};
    }
    auto const& [serial, link] = *found;
    std::string const what = std::string("connecting port ") + std::to_string(port) +
                             (listensHere ? " of this machine to " : " of ") + Name(serial);
    if (auto const pair = link.pairs.find({port, listensHere}); pair != link.pairs.end()) {
        m_jobs.erase(what);
        return {std::nullopt, pair->second};
    }
    return Ask(what, [this, name = serial, port, listensHere] {
        return MakePair(name, {port, listensHere});
    });
}

RemoteDevices::Answer RemoteDevices::Ask(std::string const& what, Work work) {
    Clock::time_point const now = Clock::now();
    std::erase_if(m_jobs, [&](auto const& entry) {
        return entry.second.answer && entry.second.answered + kKeepOutcome < now;
    });
    auto const found = m_jobs.find(what);
    if (found != m_jobs.end() && found->second.answer) {
        Answer answer = std::move(*found->second.answer);
        m_jobs.erase(found);
        return answer;
    }
    if (found == m_jobs.end()) {
        if (Refusal refusal = CheckRoom()) {
            return {std::move(refusal)};
        }
        m_jobs.emplace(what, Job());
        m_queue.emplace_back(what, std::move(work));
        m_begun.notify_one();
    }
    return {what + " is under way: ask again"};
}

std::optional<std::string> RemoteDevices::CheckRoom() const {
    if (m_stopping) {
        return "the server is stopping";
    }
    return m_jobs.size() >= kMaximumJobs ? Refusal("too much is under way with headsets") : std::nullopt;
}

void RemoteDevices::Run(std::stop_token const& stop) {
    std::unique_lock lock(m_mutex);
    while (m_begun.wait(lock, stop, [this] { return !m_queue.empty(); })) {
        auto const [what, work] = std::move(m_queue.front());
        m_queue.pop_front();
        lock.unlock();
        Do(what, work);
        lock.lock();
    }
    lock.unlock();
    m_handler.Cleanup();
}

void RemoteDevices::Do(std::string const& what, Work const& work) {
    Answer answer;
    try {
        answer = work();
    } catch (std::exception const& error) {  // no socket or thread left
        answer.refusal = error.what();
    }
    if (answer.refusal) {
        LOG_W("Failed: %s: %s", what.c_str(), answer.refusal->c_str());
    }
    std::lock_guard const lock(m_mutex);
    m_jobs[what] = {std::move(answer), Clock::now()};
}

RemoteDevices::Answer RemoteDevices::MakeLink(std::string const& serial, int port,
                                              std::stop_source const& stop) {
    {
        // It may have been disconnected since this was asked for.
        std::lock_guard const lock(m_mutex);
        if (m_stopping) {
            return {"the server is stopping"};
        }
        m_links.try_emplace(serial, Link{.port = port, .made = false, .stop = stop, .pairs = {}});
    }
    bool const isNew = m_handler.FindRemoteClient(serial) == nullptr;
    std::string error;
    try {
        error = OpenLink(serial, port, stop.get_token());
    } catch (std::exception const& failure) {  // no socket or thread left
        error = failure.what();
    }
    if (!error.empty() && isNew) {
        m_handler.DisconnectRemoteClient(serial);
    }
    std::lock_guard const lock(m_mutex);
    if (error.empty()) {
        LOG_I("There is a link to headset '%s' at port %d", serial.c_str(), port);
        m_links[serial].made = true;
        return {};
    }
    if (isNew) {
        m_links.erase(serial);
    }
    return {error};
}

std::string RemoteDevices::OpenLink(std::string const& serial, int port, std::stop_token stop) {
    bool const isNew = m_handler.FindRemoteClient(serial) == nullptr;
    std::string error;
    SocketServerClient* const client = m_handler.ConnectRemoteClient(
        &m_context, serial, port, m_settings.minimumLevel, error, std::move(stop));
    if (client == nullptr) {
        return error.empty() ? "the headset has refused without a reason" : error;
    }
    if (!isNew) {
        return {};
    }
    if (m_settings.serverPort == 0) {
        LOG_W("The headset '%s' is not told of this server, which has no port", serial.c_str());
        return {};
    }
    bool const told = client->AdvertiseVDS(m_settings.serverPort, m_settings.serverName);
    return told ? "" : "the headset could not be told of this server";
}

RemoteDevices::Answer RemoteDevices::MakePair(std::string const& serial, Port port) {
    SocketServerClient* const client = m_handler.FindRemoteClient(serial);
    int other = -1;
    auto const [number, listensHere] = port;
    bool const good = client != nullptr &&
                      (listensHere ? client->CreatePairedRemotePort(SocketRole::Bind, number, other)
                                   : client->CreatePairedLocalPort(SocketRole::Connect, number, other));
    if (!good) {
        return {"port " + std::to_string(number) + " could not be connected: see the server's log"};
    }
    std::lock_guard const lock(m_mutex);
    m_links[serial].pairs[port] = other;
    return {std::nullopt, other};
}

}  // namespace vq::server
