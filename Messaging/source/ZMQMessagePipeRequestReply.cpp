#include <zmq.h>

#include <memory>
#include <string>
#include <typeinfo>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/ZMQMessagePipes.h"

ZMQMessagePipeRequestReply::ZMQMessagePipeRequestReply(AMessageContext* context, MessageAddress remote,
                                                       std::string name, zmq::socket_t* socket,
                                                       bool ownsSocket)
    : AMessagePipeRequestReply(context, std::move(remote), std::move(name)),
      ZMQMessagePipeBase(socket, ownsSocket) {}

bool ZMQMessagePipeRequestReply::SendNext(AMessage const* message, std::chrono::milliseconds timeout,
                                          bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    if (IsDisposed()) {
        return false;
    }
    if (message == nullptr || typeid(*message) != typeid(ZMQMessage)) {
        LOG_E("expected ZMQMessage for message %s", message != nullptr ? message->Dump().c_str() : "<null>");
        return false;
    }
    auto const& zmqMessage = static_cast<ZMQMessage const&>(*message);
    zmq::message_t identity(GetSenderIdentity().data(), GetSenderIdentity().size());
    zmq::message_t type(zmqMessage.Type().data(), zmqMessage.Type().size());
    return Send({&identity, &type, &zmqMessage.GetBody()}, timeout, timedOut, GetRemote());
}

AMessage* ZMQMessagePipeRequestReply::ReceiveNext(std::chrono::milliseconds timeout, bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    if (IsDisposed()) {
        return nullptr;
    }
    // Not by make_unique, which would clear its memory first.
    std::unique_ptr<ZMQMessage> message(new ZMQMessage);
    zmq::message_t identity;
    zmq::message_t type;
    if (!Receive({&identity, &type, &message->GetBody()}, timeout, timedOut)) {
        return nullptr;
    }
    if (!identity.empty()) {
        message->SetSenderIdentity(identity.to_string());
    }
    message->SetTypeText(type.to_string_view());
    LOG_T("Read req/rep type + message frame: %s", message->Dump().c_str());
    return message.release();
}
