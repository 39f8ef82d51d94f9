#pragma once

#include <iosfwd>
#include <string>
#include <utility>

/// One received or outgoing message: a type name, the sender's identity and a payload that only the messaging
/// layer sees. Owned by whoever took it from a reader or a writer.
///
/// Threads: one at a time.
class AMessage {
public:
    AMessage(AMessage const&) = delete;
    AMessage& operator=(AMessage const&) = delete;
    virtual ~AMessage() = default;

    /// Full name of the payload's protobuf type, for example "vq.vds.GetVersion.Reply".
    virtual std::string const& Type() const = 0;
    virtual void SetType(std::string const& type) = 0;

    /// Type and payload as text for the log. Costly: test the log level first.
    virtual std::string Dump() const = 0;

    /// What the peer put into its identity frame: any bytes, usually none. Empty in messages of our own.
    std::string const& GetSenderIdentity() const { return m_senderIdentity; }
    void SetSenderIdentity(std::string identity) { m_senderIdentity = std::move(identity); }

protected:
    AMessage() = default;

private:
    std::string m_senderIdentity;
};

/// A message that belongs to a channel: every event is one, with id 0 and no name where no channel is meant.
class AChannelMessage : public AMessage {
public:
    virtual int GetChannelId() const = 0;
    virtual std::string const& GetChannelName() const = 0;
    virtual void SetChannelId(int id) = 0;
    virtual void SetChannelName(std::string const& name) = 0;
};

/// Writes Dump().
std::ostream& operator<<(std::ostream& stream, AMessage const& message);
