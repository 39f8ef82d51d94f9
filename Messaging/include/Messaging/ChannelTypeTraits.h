#pragma once

#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "Messaging/SharedBufferChannel.h"

/// The classes that stand behind a channel of a data type.
/// @tparam T  its wire message.
template <class T>
struct ChannelTypeTraits {
    using Data = ProtoMessageDataTemplate<T>;
    using Producer = ChannelProducerTemplate<T, Data>;
    using Observer = ChannelObserverTemplate<T, Data>;
};

template <>
struct ChannelTypeTraits<vq::ch::SharedBufferChannelDataUpdatedEvent> {
    using Data = SharedBufferDataChannelData;
    using Producer = SharedBufferChannelProducer;
    using Observer = SharedBufferChannelObserver;
};
