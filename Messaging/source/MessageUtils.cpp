#include "Messaging/MessageUtils.h"

#include <algorithm>
#include <initializer_list>
#include <memory>

#include "Logging/Log.h"
#include "Messaging/MessageTypeName.h"
#include "ServerRequests.pb.h"

using google::protobuf::MessageLite;

namespace {

using Targets = std::initializer_list<MessageLite*>;

void LogUnexpected(Targets targets, AMessage const& message) {
    if (!IsLogged(LogLevel::Error)) {
        return;
    }
    std::string wanted;
    for (MessageLite const* target : targets) {
        wanted += (wanted.empty() ? "" : " or ") + MessageTypeName(*target);
    }
    // With three there is no comma: the lines are matched by others as they are.
    LOG_E(targets.size() < 3 ? "Unexpected message received, wanted %s, got %s"
                             : "Unexpected message received, wanted %s got %s",
          wanted.c_str(), message.Type().c_str());
}

/// Receives one message into the first of the targets that takes it.
bool ReceiveInto(AMessageReader* reader, Targets targets, std::chrono::milliseconds timeout, bool* timedOut) {
    if (reader == nullptr) {
        LOG_E("Message reader for receive command is nullptr");
        return false;
    }
    std::unique_ptr<AMessage> message(reader->ReceiveNext(timeout, timedOut));
    if (message == nullptr) {
        return false;
    }
    AMessageContext* const context = reader->GetContext();
    if (std::any_of(targets.begin(), targets.end(),
                    [&](MessageLite* target) { return context->DecodeMessage(message.get(), *target); })) {
        return true;
    }
    LogUnexpected(targets, *message);
    MessageUtils::ReportUnexpectedErrorAndDelete(reader, message.release());
    return false;
}

}  // namespace

bool MessageUtils::Send(AMessageWriter* writer, MessageLite const& proto, std::chrono::milliseconds timeout,
                        bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    if (writer == nullptr) {
        LOG_E("Message writer for send is nullptr");
        return false;
    }
    std::unique_ptr<AMessage> const message(writer->NewMessage());
    if (message == nullptr) {
        return false;
    }
    message->SetType(MessageTypeName(proto));
    if (!writer->GetContext()->EncodeMessage(proto, message.get())) {
        LOG_E("Failed to encode message to %s", MessageTypeName(proto).c_str());
        return false;
    }
    return writer->SendNext(message.get(), timeout, timedOut);
}

bool MessageUtils::SendEvent(AMessagePipeEventSender* sender, int channelId, std::string const& channelName,
                             MessageLite const& proto, std::chrono::milliseconds timeout, bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    if (sender == nullptr) {
        LOG_E("Message sender for send is nullptr");
        return false;
    }
    return sender->SendProto(channelId, channelName, proto, timeout, timedOut);
}

bool MessageUtils::Receive(AMessageReader* reader, MessageLite& proto, std::chrono::milliseconds timeout,
                           bool* timedOut) {
    return ReceiveInto(reader, {&proto}, timeout, timedOut);
}

bool MessageUtils::ReceiveOneOf(AMessageReader* reader, MessageLite& first, MessageLite& second,
                                std::chrono::milliseconds timeout, bool* timedOut) {
    return ReceiveInto(reader, {&first, &second}, timeout, timedOut);
}

bool MessageUtils::ReceiveOneOf(AMessageReader* reader, MessageLite& first, MessageLite& second,
                                MessageLite& third, std::chrono::milliseconds timeout, bool* timedOut) {
    return ReceiveInto(reader, {&first, &second, &third}, timeout, timedOut);
}

void MessageUtils::ReportUnexpectedErrorAndDelete(AMessageReader* reader, AMessage* message) {
    std::unique_ptr<AMessage> const owned(message);
    vq::vds::Error error;
    if (reader->GetContext()->DecodeMessage(message, error)) {
        LOG_E("(%s)", error.message().c_str());
    }
}

bool MessageUtils::Exchange(AMessagePipeRequestReply* pipe, MessageLite const& request, MessageLite& reply,
                            MessageLite* errorReply, std::chrono::milliseconds timeout, bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    if (pipe == nullptr || pipe->GetContext() == nullptr) {
        LOG_E("messaging context needs to be initialized prior to a Send/Receive");
        return false;
    }
    bool sendTimedOut = false;
    if (!Send(pipe, request, timeout, &sendTimedOut)) {
        if (timedOut != nullptr && sendTimedOut) {
            *timedOut = true;
            LOG_E("timedOut to send command %s", MessageTypeName(request).c_str());
        }
        return false;
    }
    vq::vds::Error error;
    bool recvTimedOut = false;
    bool const received = errorReply == nullptr
                              ? ReceiveOneOf(pipe, reply, error, timeout, &recvTimedOut)
                              : ReceiveOneOf(pipe, reply, *errorReply, error, timeout, &recvTimedOut);
    if (!received) {
        if (timedOut != nullptr && recvTimedOut) {
            *timedOut = true;
            LOG_E("timedOut to receive expected reply for %s", MessageTypeName(request).c_str());
        }
        return false;
    }
    if (error.IsInitialized()) {
        LOG_E("got protocol error from %s: %s", MessageTypeName(request).c_str(), error.message().c_str());
        return false;
    }
    return true;
}

void MessageUtils::LogErrorText(std::string const& text) {
    LOG_E("%s", text.c_str());
}
