#include "Messaging/ChannelProducer.h"

#include <chrono>
#include <utility>

#include "ChannelData.pb.h"
#include "Logging/Log.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/MessageUtils.h"

namespace {

/// A greeting without meaning: listeners look at its type alone.
constexpr char const* kHelloText =
    "mystical martian marauders gerrymandering generally outside obeying orders";

}  // namespace

void ChannelProducer::SetData(std::shared_ptr<IData> sample) {
    m_currentData = std::move(sample);
    SendDataChangedMessage();
}

void ChannelProducer::SendDataChangedMessage() {
    VQ_CHECK(m_eventPipe != nullptr);
    VQ_CHECK(m_currentData != nullptr);
    // A copy only for samples that are not messages themselves.
    std::unique_ptr<google::protobuf::MessageLite> serialized;
    google::protobuf::MessageLite const* message = m_currentData->GetWireMessage();
    if (message == nullptr) {
        serialized.reset(m_currentData->Serialize());
        message = serialized.get();
    }
    if (!MessageUtils::SendEvent(m_eventPipe, m_channelId, GetName(), *message,
                                 std::chrono::milliseconds::max(), nullptr)) {
        LOG_E("FAILED to send event %s to %s", MessageTypeName(*message).c_str(),
              m_eventPipe->GetRemote().ToString().c_str());
    }
}

bool ChannelProducer::SendHelloEvent() {
    VQ_CHECK(m_eventPipe != nullptr);
    vq::ch::HelloDataEvent hello;
    hello.set_text(kHelloText);
    return MessageUtils::SendEvent(m_eventPipe, m_channelId, GetName(), hello,
                                   std::chrono::milliseconds::max(), nullptr);
}

bool ChannelProducer::CheckMessageType(google::protobuf::MessageLite const* message,
                                       std::string const& expected) {
    if (message != nullptr && MessageTypeName(*message) == expected) {
        return true;
    }
    LOG_E("Unexpected data type: %s != %s", message != nullptr ? message->GetTypeName().c_str() : "",
          expected.c_str());
    return false;
}
