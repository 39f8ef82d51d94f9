#pragma once

#include <chrono>
#include <list>
#include <memory>
#include <vector>

#include "Messaging/AMessage.h"
#include "Messaging/MessageAddress.h"

class AMessagePipeProvider;
class AMessageReader;
namespace google::protobuf {
class MessageLite;
}

/// One entry of what AMessageContext::PollReaders waits for.
struct MessageReaderContext {
    AMessageReader* reader = nullptr;  ///< not owned
};

/// One message that AMessageContext::PollReaders found.
struct AvailableReaderMessage {
    AMessageReader* reader = nullptr;  ///< where it came from; not owned
    AMessage* message = nullptr;       ///< owned by whoever takes the entry from the list
};

/// Where protobuf messages meet the wire, for one server address: encodes, decodes, waits on many readers.
/// Made by AMessageManager::GetContext.
///
/// Threads: encode and decode on any; PollReaders on the thread that owns the readers.
class AMessageContext {
public:
    AMessageContext(AMessageContext const&) = delete;
    AMessageContext& operator=(AMessageContext const&) = delete;
    /// Deletes the provider and with it every pipe.
    virtual ~AMessageContext();

    /// Parses the payload of a message into a protobuf object.
    /// @return false when wire is null, when its type is not the object's (neither is logged: this is how a
    ///         receiver tries one candidate after the other), or when the payload does not parse. The object
    ///         is untouched in the first two cases.
    virtual bool DecodeMessage(AMessage const* wire, google::protobuf::MessageLite& proto) = 0;

    /// Serialises a protobuf object into the payload of a message; does not set its type.
    /// @return false, with an error line, when wire is null, is not of this layer or a required field is
    /// unset.
    virtual bool EncodeMessage(google::protobuf::MessageLite const& proto, AMessage* wire) = 0;

    /// Waits until one of the readers has something, then takes everything that is there from all of them.
    /// @param readers    a null entry is skipped with a warning
    /// @param available  emptied, then filled reader by reader; the caller owns the messages. Its entries are
    ///                   used again: leave in it what was handled, and the next call allocates less.
    /// @param timeout    as in AMessageReader::ReceiveNext
    /// @param timedOut   may be null; always set to false: an empty list is what says that nothing came
    /// @return false when there was nothing to wait on or the wait failed (logged)
    virtual bool PollReaders(std::vector<MessageReaderContext> const& readers,
                             std::list<AvailableReaderMessage>& available, std::chrono::milliseconds timeout,
                             bool* timedOut) = 0;

    /// The address that the context was made for.
    MessageAddress const& GetAddress() const { return m_address; }
    /// The maker and owner of this context's pipes; never null.
    AMessagePipeProvider* GetPipeProvider() const { return m_pipeProvider.get(); }

protected:
    explicit AMessageContext(MessageAddress address);

    /// Once, by the constructor of the derived class: null is a fatal check.
    void SetPipeProvider(std::unique_ptr<AMessagePipeProvider> provider);

private:
    MessageAddress const m_address;
    std::unique_ptr<AMessagePipeProvider> m_pipeProvider;
};
