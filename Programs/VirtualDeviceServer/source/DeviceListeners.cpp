#include "DeviceListeners.h"

#include <zmq.h>

#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/ZMQMessageContext.h"
#include "ServerEndpoints.h"
#include "SocketUrl.h"
#include "Utils/OSUtils.h"

namespace vq::server {

namespace {

using Transport = MessageAddress::Transport;

/// Messages read in one go before others have their turn.
constexpr int kBatch = 64;

constexpr char const* kName = "deviceEvents";

/// Removes the endpoints of a server that had no time to do so. Devices that live register anew, elsewhere.
void RemoveLeftovers(std::string const& prefix) {
    std::string const directory = GetDirectoryOf(prefix);
    for (std::string const& name : GetDirectoryEntries(directory)) {
        std::string const path = directory + name;
        std::error_code error;
        if (path.starts_with(prefix) && std::filesystem::is_socket(path, error)) {
            RemoveFile(path);
        }
    }
}

}  // namespace

DeviceListeners::DeviceListeners(ZMQMessagePipeProvider& provider, MessageAddress server,
                                 DescriptorPoll& poll, OnHeard onHeard, OnEvent onEvent)
    : m_provider(provider),
      m_server(std::move(server)),
      m_poll(poll),
      m_onHeard(std::move(onHeard)),
      m_onEvent(std::move(onEvent)) {
    if (m_server.transport == Transport::IPC) {
        RemoveLeftovers(m_server.location + "." + kName + ".");
    }
}

DeviceListeners::~DeviceListeners() {
    for (auto& [id, listener] : m_listeners) {
        Release(listener);
    }
}

std::optional<MessageAddress> DeviceListeners::Create(std::int32_t deviceId) {
    // A place that no device had before: the former socket of a living device may still be bound. On TCP the
    // system picks a free port anew; elsewhere the name makes the difference.
    std::string name = kName;
    if (m_server.transport != Transport::SOCKET) {
        name.append(".").append(std::to_string(deviceId)).append(".").append(std::to_string(++m_created));
    }
    MessageAddress address = m_provider.Resolve({m_server.location, m_server.transport, name}, true);
    if (address.transport == Transport::NONE) {
        return std::nullopt;
    }
    Listener& listener = m_listeners[deviceId];
    Release(listener);
    listener = {.address = address, .pipe = nullptr};
    m_new.push_back(deviceId);
    return address;
}

void DeviceListeners::ConnectNew() {
    for (std::int32_t const id : std::exchange(m_new, {})) {
        auto const found = m_listeners.find(id);
        if (found == m_listeners.end() || found->second.pipe != nullptr) {
            continue;
        }
        try {
            auto pipe = Connect(found->second.address);
            m_poll.Watch(DescriptorOf(*pipe), [this, id, raw = pipe.get()] { return Drain(id, *raw); });
            found->second.pipe = std::move(pipe);
        } catch (std::exception const& error) {  // no socket or descriptor left
            LOG_E("Cannot listen to device %d at %s: %s", id, found->second.address.ToString().c_str(),
                  error.what());
        }
    }
}

void DeviceListeners::RetainOnly(std::function<bool(std::int32_t)> const& isKnown) {
    for (auto entry = m_listeners.begin(); entry != m_listeners.end();) {
        if (isKnown(entry->first)) {
            ++entry;
        } else {
            Release(entry->second);
            entry = m_listeners.erase(entry);
        }
    }
}

std::unique_ptr<ZMQMessagePipeEventListener> DeviceListeners::Connect(MessageAddress const& address) {
    // Not one of the provider's pipes: it remembers every address for good, and these are used once.
    auto* const context = static_cast<ZMQMessageContext*>(m_provider.GetContext());
    auto socket = std::make_unique<zmq::socket_t>(*context->GetZMQContext(), ZMQ_SUB);
    socket->set(zmq::sockopt::maxmsgsize, ServerEndpoints::kMaximumMessageSize);
    socket->connect(UrlOf(address));
    auto pipe = std::make_unique<ZMQMessagePipeEventListener>(context, address, socket.get(), true);
    static_cast<void>(socket.release());
    pipe->ListenTo("");
    return pipe;
}

bool DeviceListeners::Drain(std::int32_t deviceId, ZMQMessagePipeEventListener& pipe) {
    bool heard = false;
    bool timedOut = false;
    int count = 0;
    while (!timedOut && count < kBatch) {
        // What cannot be read is consumed and logged by the pipe; it is no sign of life.
        zmq::message_t header;
        zmq::message_t body;
        if (auto const parsed = pipe.ReceiveFrames(header, body, std::chrono::milliseconds(0), &timedOut)) {
            heard = true;
            m_onEvent(*parsed, header, body);
        }
        ++count;
    }
    if (heard) {
        m_onHeard(deviceId);
    }
    return !timedOut;
}

void DeviceListeners::Release(Listener& listener) {
    if (listener.pipe != nullptr) {
        m_poll.Unwatch(DescriptorOf(*listener.pipe));
        listener.pipe.reset();
    }
    if (listener.address.transport == Transport::IPC) {
        // We named the file, and nobody but us connects there.
        RemoveFile(listener.address.location);
    }
}

}  // namespace vq::server
