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

namespace {

/// What a thread's calls of PollReaders use again, so that they allocate nothing once they have run for a
/// while.
struct PollScratch {
    /// More spare entries than a burst leaves behind.
    static constexpr std::size_t kMostSpare = 1024;

    std::vector<zmq_pollitem_t> items;
    std::vector<AMessageReader*> polled;  // one for each item
    std::list<AvailableReaderMessage> spare;

    /// Empties the list and keeps its entries.
    void Recycle(std::list<AvailableReaderMessage>& entries) {
        spare.splice(spare.end(), entries);
        if (spare.size() > kMostSpare) {
            spare.resize(kMostSpare);
        }
    }
    void Append(std::list<AvailableReaderMessage>& entries, AvailableReaderMessage const& entry) {
        if (spare.empty()) {
            entries.push_back(entry);
            return;
        }
        entries.splice(entries.end(), spare, spare.begin());
        entries.back() = entry;
    }
};

thread_local PollScratch t_pollScratch;

/// A poll entry for each socket of the readers.
void FillPollItems(std::vector<MessageReaderContext> const& readers, PollScratch& scratch) {
    scratch.items.clear();
    scratch.polled.clear();
    AMessageReader const* previous = nullptr;
    for (MessageReaderContext const& entry : readers) {
        // The channels of a device share one pipe.
        if (previous != nullptr && entry.reader == previous) {
            continue;
        }
        auto const* const pipe = dynamic_cast<ZMQMessagePipeBase const*>(entry.reader);
        if (pipe == nullptr) {
            LOG_W("Ignoring non-ZMQ reader: %p", static_cast<void const*>(entry.reader));
            continue;
        }
        previous = entry.reader;
        void* const handle = pipe->GetSocket()->handle();
        if (std::none_of(scratch.items.begin(), scratch.items.end(),
                         [handle](zmq_pollitem_t const& item) { return item.socket == handle; })) {
            scratch.items.push_back({handle, 0, ZMQ_POLLIN, 0});
            scratch.polled.push_back(entry.reader);
        }
    }
}

}  // namespace

bool ZMQMessageContext::PollReaders(std::vector<MessageReaderContext> const& readers,
                                    std::list<AvailableReaderMessage>& available,
                                    std::chrono::milliseconds timeout, bool* timedOut) {
    if (timedOut != nullptr) {
        *timedOut = false;
    }
    PollScratch& scratch = t_pollScratch;
    scratch.Recycle(available);
    FillPollItems(readers, scratch);
    std::vector<zmq_pollitem_t>& items = scratch.items;
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
        AMessageReader* const reader = scratch.polled[i];
        while (AMessage* message = reader->ReceiveNext(std::chrono::milliseconds(0), nullptr)) {
            scratch.Append(available, {reader, message});
        }
    }
    return true;
}
