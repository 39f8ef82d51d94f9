#pragma once

#include <zmq.hpp>

#include "Messaging/AMessageContext.h"

/// The context over ZeroMQ; its provider is a ZMQMessagePipeProvider.
class ZMQMessageContext final : public AMessageContext {
public:
    /// @param zmqContext  not owned, outlives this object; contexts that share it reach each other in-process
    ZMQMessageContext(MessageAddress const& address, zmq::context_t* zmqContext);

    bool DecodeMessage(AMessage const* wire, google::protobuf::MessageLite& proto) override;
    bool EncodeMessage(google::protobuf::MessageLite const& proto, AMessage* wire) override;
    bool PollReaders(std::vector<MessageReaderContext> const& readers,
                     std::list<AvailableReaderMessage>& available, std::chrono::milliseconds timeout,
                     bool* timedOut) override;

    zmq::context_t* GetZMQContext() const { return m_zmqContext; }

private:
    zmq::context_t* const m_zmqContext;
};
