#include "Messaging/ZMQMessageContext.h"

#include <google/protobuf/message_lite.h>
#include <zmq.h>

#include <algorithm>
#include <climits>
#include <optional>

#include "Logging/Log.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/MessageTypeName.h"
#include "Messaging/ZMQMessage.h"
#include "Messaging/ZMQMessagePipeBase.h"
#include "Messaging/ZMQMessagePipeProvider.h"

ZMQMessageContext::ZMQMessageContext(MessageAddress const& address, zmq::context_t* zmqContext)
    : AMessageContext(address), m_zmqContext(zmqContext) {
    SetPipeProvider(std::make_unique<ZMQMessagePipeProvider>(this));
}

bool ZMQMessageContext::EncodeMessage(google::protobuf::MessageLite const& proto, AMessage* wire) {
    if (wire == nullptr) {
        LOG_E("wireMessage is null");
        return false;
    }
    ZMQMessageBody* const target = ZMQMessageBody::Of(wire);
    if (target == nullptr) {
        LOG_E("wireMessage is of another kind");
        return false;
    }
    std::optional<zmq::message_t> frame = ZMQMessageBody::Encode(proto);
    if (frame) {
        target->GetBody().swap(*frame);
    }
    return frame.has_value();
}

bool ZMQMessageContext::DecodeMessage(AMessage const* wire, google::protobuf::MessageLite& proto) {
    // The types first: a parse of the wrong one may print to stderr.
    if (wire == nullptr) {
        return false;
    }
    std::string const& wanted = MessageTypeName(proto);
    if (std::string const& type = wire->Type(); &type != &wanted && type != wanted) {
        return false;
    }
    ZMQMessageBody const* const source = ZMQMessageBody::Of(wire);
    if (source == nullptr) {
        return false;
    }
    std::size_t const size = source->GetBody().size();
    return size <= INT_MAX && proto.ParseFromArray(source->GetBody().data(), static_cast<int>(size));
}

bool ZMQMessageContext::PollReaders(std::vector<MessageReaderContext> const& readers,
                                    std::list<AvailableReaderMessage>& available,
                                    std::chrono::milliseconds timeout, bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    available.clear();

    std::vector<zmq_pollitem_t> items;
    std::vector<AMessageReader*> polled;  // one for each item
    items.reserve(readers.size());
    polled.reserve(readers.size());
    for (MessageReaderContext const& entry : readers) {
        auto const* const pipe = dynamic_cast<ZMQMessagePipeBase const*>(entry.reader);
        if (pipe == nullptr) {
            LOG_W("Ignoring non-ZMQ reader: %p", static_cast<void const*>(entry.reader));
            continue;
        }
        void* const handle = pipe->GetSocket()->handle();
        if (std::none_of(items.begin(), items.end(),
                         [handle](zmq_pollitem_t const& item) { return item.socket == handle; })) {
            items.push_back({handle, 0, ZMQ_POLLIN, 0});
            polled.push_back(entry.reader);
        }
    }
    if (items.empty()) {
        return false;
    }

    long const wait =
        timeout == std::chrono::milliseconds::max() ? -1L : std::max(0L, static_cast<long>(timeout.count()));
    if (zmq_poll(items.data(), static_cast<int>(items.size()), wait) < 0) {
        LOG_E("Error in zmq_poll: %s", zmq_strerror(zmq_errno()));
        return false;
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        if ((items[i].revents & ZMQ_POLLIN) == 0) {
            continue;
        }
        while (AMessage* message = polled[i]->ReceiveNext(std::chrono::milliseconds(0), nullptr)) {
            available.push_back({polled[i], message});
        }
    }
    return true;
}
