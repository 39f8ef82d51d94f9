#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "DescriptorPoll.h"
#include "Messaging/ZMQMessagePipeProvider.h"
#include "Messaging/ZMQMessagePipes.h"

namespace vq::server {

/// The sockets on which the server hears its devices: one for each, connected to the address at which that
/// device publishes its data events.
///
/// Threads: one.
class DeviceListeners {
public:
    using OnHeard = std::function<void(std::int32_t deviceId)>;
    using OnEvent =
        std::function<void(EventHeader const& parsed, zmq::message_t& header, zmq::message_t& body)>;

    /// @param provider  the server's; outlives this object, as the poll does
    /// @param server    where the server takes requests; physical
    /// @param onHeard   called for every sign of life
    /// @param onEvent   gets every event as it came; may take the frames
    DeviceListeners(ZMQMessagePipeProvider& provider, MessageAddress server, DescriptorPoll& poll,
                    OnHeard onHeard, OnEvent onEvent);
    DeviceListeners(DeviceListeners const&) = delete;
    DeviceListeners& operator=(DeviceListeners const&) = delete;
    ~DeviceListeners();

    /// A new address for a device to publish at, instead of the one that it may have.
    /// @return nothing when the system gives none (logged)
    std::optional<MessageAddress> Create(std::int32_t deviceId);

    /// Connects to the addresses created since the last call: by then their devices have bound them, and no
    /// attempt fails for being too early.
    void ConnectNew();

    /// Lets go of the devices for which the test does not hold.
    void RetainOnly(std::function<bool(std::int32_t deviceId)> const& isKnown);

private:
    struct Listener {
        MessageAddress address;
        std::unique_ptr<ZMQMessagePipeEventListener> pipe;  // null until connected
    };
    using Listeners = std::map<std::int32_t, Listener>;

    std::unique_ptr<ZMQMessagePipeEventListener> Connect(MessageAddress const& address);
    bool Drain(std::int32_t deviceId, ZMQMessagePipeEventListener& pipe);
    void Release(Listener& listener);

    ZMQMessagePipeProvider& m_provider;
    MessageAddress const m_server;
    DescriptorPoll& m_poll;
    OnHeard const m_onHeard;
    OnEvent const m_onEvent;
    Listeners m_listeners;
    std::vector<std::int32_t> m_new;
    std::uint64_t m_created = 0;
};

}  // namespace vq::server
