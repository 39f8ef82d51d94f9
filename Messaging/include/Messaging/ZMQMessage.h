#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <zmq.hpp>

#include "Messaging/AMessage.h"

namespace google::protobuf {
class MessageLite;
}

/// What both message classes of the ZeroMQ layer share: the payload as a frame, and the type.
class ZMQMessageBody {
public:
    /// The payload of a message of this layer, whichever class it is; null for null and for any other.
    static ZMQMessageBody* Of(AMessage* message);
    static ZMQMessageBody const* Of(AMessage const* message);

    /// Serialises a protobuf object into a new frame. Nothing, with an error line, when a required field is
    /// unset or the object is too big to be parsed again (2 GiB).
    static std::optional<zmq::message_t> Encode(google::protobuf::MessageLite const& proto);

    /// Changeable in a const message too, since sending moves the content out.
    zmq::message_t& GetBody() const { return m_body; }

    std::string const& GetTypeText() const { return *m_type; }
    void SetTypeText(std::string_view type);
    /// @param type  a held name (MessageTypeName.h), not null
    void SetHeldType(std::string const* type) { m_type = type; }

protected:
    ZMQMessageBody() = default;
    ~ZMQMessageBody() = default;
    ZMQMessageBody(ZMQMessageBody const&) = delete;
    ZMQMessageBody& operator=(ZMQMessageBody const&) = delete;

private:
    std::string m_unheldType = "<unset>";
    std::string const* m_type = &m_unheldType;  // this, or a held name
    mutable zmq::message_t m_body;
};

/// The message of request/reply pipes.
class ZMQMessage final : public AMessage, public ZMQMessageBody {
public:
    static void* operator new(std::size_t size);
    static void operator delete(void* memory) noexcept;

    std::string const& Type() const override { return GetTypeText(); }
    void SetType(std::string const& type) override { SetTypeText(type); }
    std::string Dump() const override;
};

/// The message of event pipes. Not a ZMQMessage: a pipe of one kind refuses the message of the other.
class ZMQChannelMessage final : public AChannelMessage, public ZMQMessageBody {
public:
    static void* operator new(std::size_t size);
    static void operator delete(void* memory) noexcept;

    std::string const& Type() const override { return GetTypeText(); }
    void SetType(std::string const& type) override { SetTypeText(type); }
    std::string Dump() const override;

    int GetChannelId() const override { return m_channelId; }
    std::string const& GetChannelName() const override { return m_channelName; }
    void SetChannelId(int id) override { m_channelId = id; }
    void SetChannelName(std::string const& name) override { m_channelName = name; }
    void SetChannelName(std::string_view name) { m_channelName = name; }
    /// @param type  as for SetHeldType
    void SetHeader(std::string const* type, std::string_view name, int id) {
        SetHeldType(type);
        m_channelName = name;
        m_channelId = id;
    }

private:
    int m_channelId = 0;
    std::string m_channelName;
};
