#pragma once

#include <cstdint>
#include <string>

#include "ChannelTypes.pb.h"

class ChannelDescriptor;
namespace vq::descriptors::data {
class ChannelDescription;
}

/// One end of a named, typed stream of data between devices. Owned by its device.
/// Threads: plain fields, set on the device's thread.
class Channel {
public:
    Channel(Channel const&) = delete;
    Channel& operator=(Channel const&) = delete;
    virtual ~Channel() = default;

    /// Given by the server through the owning device; 0 until then. Sent with every event.
    std::int32_t GetChannelId() const { return m_channelId; }
    void SetChannelId(std::int32_t id) { m_channelId = id; }
    vq::ch::ChannelRole GetRole() const { return m_role; }
    /// Name and type of the channel; owned by the factory that made the channel, which outlives it.
    ChannelDescriptor* GetDescriptor() const { return m_descriptor; }
    void SetDescriptor(ChannelDescriptor* descriptor) { m_descriptor = descriptor; }
    /// The descriptor's name.
    std::string const& GetName() const;
    /// Producers: somebody is told to listen. Observers: a producer has said hello.
    bool IsActive() const { return m_active; }

    /// Fills in what the server is told of the channel when it is registered.
    void PopulateChannelDescriptionMessage(vq::descriptors::data::ChannelDescription* message) const;

protected:
    explicit Channel(vq::ch::ChannelRole role) : m_role(role) {}

    std::int32_t m_channelId = 0;
    vq::ch::ChannelRole m_role;
    ChannelDescriptor* m_descriptor = nullptr;
    bool m_active = false;
};
