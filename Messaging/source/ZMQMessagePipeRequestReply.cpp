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
    Frames const frames = {&identity, &type, &zmqMessage.GetBody()};

    if (std::optional<bool> const sent = TrySend(frames, timeout, timedOut)) {
        return *sent;
    }
    int flags = 0;
    if (!PollFor(ZMQ_POLLOUT, flags, timeout, timedOut)) {
        LOG_W("ZMQ_POLLOUT timed out for %s", GetRemote().ToString().c_str());
        return false;
    }
    return FinishSend(flags, frames, timedOut);
}

AMessage* ZMQMessagePipeRequestReply::ReceiveNext(std::chrono::milliseconds timeout, bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    if (IsDisposed()) {
        return nullptr;
    }
    zmq::message_t identity;
    zmq::message_t type;
    zmq::message_t body;
    if (!Receive({&identity, &type, &body}, timeout, timedOut)) {
        return nullptr;
    }
    auto message = std::make_unique<ZMQMessage>();
    message->SetSenderIdentity(identity.to_string());
    message->SetType(type.to_string());
    message->GetBody().swap(body);
    LOG_T("Read req/rep type + message frame: %s", message->Dump().c_str());
    return message.release();
}
