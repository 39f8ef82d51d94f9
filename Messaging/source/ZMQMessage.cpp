#include "Messaging/ZMQMessage.h"

#include <google/protobuf/message_lite.h>

#include <climits>
#include <cstdint>
#include <sstream>
#include <typeinfo>

#include "Logging/Log.h"
#include "Messaging/MessageTypeName.h"
#include "SpareBlocks.h"
#include "Utils/TextUtils.h"

namespace {

/// Both message classes are final, so that comparing the types does for a dynamic cast, and in one binary
/// their addresses, at a fraction of the price.
template <class Message>
bool IsA(std::type_info const& type) {
    return &type == &typeid(Message) || type == typeid(Message);
}

}  // namespace

static_assert(sizeof(ZMQMessage) <= SpareBlocks::kBlockSize &&
              sizeof(ZMQChannelMessage) <= SpareBlocks::kBlockSize);

// The size is the class's own: nothing is derived from either.
void* ZMQMessage::operator new(std::size_t /*size*/) {
    return SpareBlocks::Take();
}
void ZMQMessage::operator delete(void* memory) noexcept {
    SpareBlocks::Give(memory);
}
void* ZMQChannelMessage::operator new(std::size_t /*size*/) {
    return SpareBlocks::Take();
}
void ZMQChannelMessage::operator delete(void* memory) noexcept {
    SpareBlocks::Give(memory);
}

void ZMQMessageBody::SetTypeText(std::string_view type) {
    m_type = FindMessageTypeName(type);
    if (m_type == nullptr) {
        m_unheldType = type;
        m_type = &m_unheldType;
    }
}

ZMQMessageBody* ZMQMessageBody::Of(AMessage* message) {
    return const_cast<ZMQMessageBody*>(Of(const_cast<AMessage const*>(message)));
}

ZMQMessageBody const* ZMQMessageBody::Of(AMessage const* message) {
    if (message == nullptr) {
        return nullptr;
    }
    std::type_info const& type = typeid(*message);
    if (&type == &typeid(ZMQMessage)) {
        return static_cast<ZMQMessage const*>(message);
    }
    if (IsA<ZMQChannelMessage>(type)) {
        return static_cast<ZMQChannelMessage const*>(message);
    }
    return IsA<ZMQMessage>(type) ? static_cast<ZMQMessage const*>(message) : nullptr;
}

std::optional<zmq::message_t> ZMQMessageBody::Encode(google::protobuf::MessageLite const& proto) {
    // The one object that every path returns, so that it is built in place.
    std::optional<zmq::message_t> frame;
    if (!proto.IsInitialized()) {
        LOG_E("protoMessage '%s' is not initialized", MessageTypeName(proto).c_str());
        return frame;
    }
    std::size_t const size = proto.ByteSizeLong();
    if (size > INT_MAX) {
        LOG_E("protoMessage '%s' is too big: %zu bytes", MessageTypeName(proto).c_str(), size);
        return frame;
    }
    frame.emplace(size);
    proto.SerializeWithCachedSizesToArray(frame->data<std::uint8_t>());
    return frame;
}

std::string ZMQMessage::Dump() const {
    std::ostringstream text;
    text << static_cast<void const*>(this) << ": (" << GetTypeText() << ")\n\t"
         << HexDump(GetBody().data(), GetBody().size());
    return text.str();
}

std::string ZMQChannelMessage::Dump() const {
    std::ostringstream text;
    text << static_cast<void const*>(this) << ": (" << GetTypeText() << ") -> " << m_channelName << " : "
         << m_channelId << "\n\t" << HexDump(GetBody().data(), GetBody().size());
    return text.str();
}
