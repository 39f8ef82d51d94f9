#include "Messaging/ChannelObserver.h"

#include "ChannelData.pb.h"
#include "Logging/Log.h"

namespace {

constexpr std::size_t kInitialCapacity = 20;

std::string const& HelloType() {
    return MessageTypeName(vq::ch::HelloDataEvent::default_instance());
}

}  // namespace

ChannelObserver::ChannelObserver(AMessageContext* context, AMessagePipeEventListener* listener)
    : Channel(vq::ch::ChannelRole_Observer),
      m_listener(listener),
      m_context(context),
      m_dataQueue(kInitialCapacity) {
    m_listener->ListenTo(HelloType());
}

bool ChannelObserver::HandlesWireMessageType(std::string const& type) const {
    return type == HelloType();
}

bool ChannelObserver::HandleWireMessage(AChannelMessage* message) {
    if (message == nullptr || message->Type() != HelloType()) {
        return false;
    }
    m_active = true;
    return true;
}

bool ChannelObserver::UpdateFromEvents(std::vector<AChannelMessage*> const& messages) {
    for (AChannelMessage* const message : messages) {
        HandleWireMessage(message);
    }
    return true;
}

void ChannelObserver::RequestInitialDataState() {
    LOG_W("ChannelObserver::RequestInitialDataState() Not Implemented");
}
