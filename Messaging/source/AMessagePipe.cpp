#include "Messaging/AMessagePipe.h"

#include <memory>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/MessageTypeName.h"

AMessagePipeRequestReply::AMessagePipeRequestReply(AMessageContext* context, MessageAddress remote,
                                                   std::string name)
    : m_context(context), m_remote(std::move(remote)), m_name(std::move(name)) {}

AMessagePipeEventSender::AMessagePipeEventSender(AMessageContext* context, MessageAddress remote)
    : m_context(context), m_remote(std::move(remote)) {}

bool AMessagePipeEventSender::SendProto(int channelId, std::string const& channelName,
                                        google::protobuf::MessageLite const& proto,
                                        std::chrono::milliseconds timeout, bool* timedOut) {
    std::unique_ptr<AChannelMessage> const message(NewChannelMessage());
    if (message == nullptr) {
        return false;
    }
    message->SetType(MessageTypeName(proto));
    message->SetChannelName(channelName);
    message->SetChannelId(channelId);
    if (!GetContext()->EncodeMessage(proto, message.get())) {
        LOG_E("Failed to encode message to %s", MessageTypeName(proto).c_str());
        return false;
    }
    return SendNext(message.get(), timeout, timedOut);
}

AMessagePipeEventListener::AMessagePipeEventListener(AMessageContext* context, MessageAddress remote)
    : m_context(context), m_remote(std::move(remote)) {}
