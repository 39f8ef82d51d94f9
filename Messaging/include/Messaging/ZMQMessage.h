#pragma once

#include <string>
#include <zmq.hpp>

#include "Messaging/AMessage.h"

/// What both message classes of the ZeroMQ layer share: the payload as a frame.
class ZMQMessageBody {
public:
    /// The payload of a message of this layer, whichever class it is; null for null and for any other.
    static ZMQMessageBody* Of(AMessage* message);
    static ZMQMessageBody const* Of(AMessage const* message);

    /// Changeable in a const message too, since sending moves the content out.
    zmq::message_t& GetBody() const { return m_body; }

protected:
    ZMQMessageBody() = default;
    ~ZMQMessageBody() = default;

    std::string m_type = "<unset>";

private:
    mutable zmq::message_t m_body;
};

/// The message of request/reply pipes.
class ZMQMessage final : public AMessage, public ZMQMessageBody {
public:
    std::string const& Type() const override { return m_type; }
    void SetType(std::string const& type) override { m_type = type; }
    std::string Dump() const override;
};

/// The message of event pipes. Not a ZMQMessage: a pipe of one kind refuses the message of the other.
class ZMQChannelMessage final : public AChannelMessage, public ZMQMessageBody {
public:
    std::string const& Type() const override { return m_type; }
    void SetType(std::string const& type) override { m_type = type; }
    std::string Dump() const override;

    int GetChannelId() const override { return m_channelId; }
    std::string const& GetChannelName() const override { return m_channelName; }
    void SetChannelId(int id) override { m_channelId = id; }
    void SetChannelName(std::string const& name) override { m_channelName = name; }

private:
    int m_channelId = 0;
    std::string m_channelName;
};
