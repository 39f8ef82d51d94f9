#include "Messaging/ZMQMessage.h"

#include <sstream>
#include <typeinfo>

#include "Utils/TextUtils.h"

ZMQMessageBody* ZMQMessageBody::Of(AMessage* message) {
    return const_cast<ZMQMessageBody*>(Of(const_cast<AMessage const*>(message)));
}

ZMQMessageBody const* ZMQMessageBody::Of(AMessage const* message) {
    // Both classes are final, so that comparing the types does for a dynamic cast, at a fraction of its
    // price.
    if (message == nullptr) {
        return nullptr;
    }
    std::type_info const& type = typeid(*message);
    if (type == typeid(ZMQMessage)) {
        return static_cast<ZMQMessage const*>(message);
    }
    if (type == typeid(ZMQChannelMessage)) {
        return static_cast<ZMQChannelMessage const*>(message);
    }
    return nullptr;
}

std::string ZMQMessage::Dump() const {
    std::ostringstream text;
    text << static_cast<void const*>(this) << ": (" << m_type << ")\n\t"
         << HexDump(GetBody().data(), GetBody().size());
    return text.str();
}

std::string ZMQChannelMessage::Dump() const {
    std::ostringstream text;
    text << static_cast<void const*>(this) << ": (" << m_type << ") -> " << m_channelName << " : "
         << m_channelId << "\n\t" << HexDump(GetBody().data(), GetBody().size());
    return text.str();
}
