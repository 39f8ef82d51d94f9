#include "Messaging/AMessagePipe.h"

#include <utility>

AMessagePipeRequestReply::AMessagePipeRequestReply(AMessageContext* context, MessageAddress remote,
                                                   std::string name)
    : m_context(context), m_remote(std::move(remote)), m_name(std::move(name)) {}

AMessagePipeEventSender::AMessagePipeEventSender(AMessageContext* context, MessageAddress remote)
    : m_context(context), m_remote(std::move(remote)) {}

AMessagePipeEventListener::AMessagePipeEventListener(AMessageContext* context, MessageAddress remote)
    : m_context(context), m_remote(std::move(remote)) {}
