#include "Messaging/SharedBufferChannel.h"

#include <string>

#include "DataTypes/ChannelDescriptor.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"

AMessagePipeRequestReply* GetSharedMemoryPipe(Channel const& channel) {
    AMessageManager& manager = AMessageManager::Instance();
    AMessageContext* const context = manager.GetContext(manager.GetServerAddress());
    return context->GetPipeProvider()->GetRequestReplyClient(
        context->GetAddress(), channel.GetName() + std::to_string(channel.GetChannelId()));
}

bool IsBufferResizable(Channel const& channel) {
    return channel.GetDescriptor()->resizable;
}
