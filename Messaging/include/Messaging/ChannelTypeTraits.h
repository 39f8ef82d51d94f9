#pragma once

#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "Messaging/SharedMemoryData.h"

/// The classes that stand behind a channel of a data type.
/// @tparam T  its wire message.
template <class T>
struct ChannelTypeTraits {
    using Data = ProtoMessageDataTemplate<T>;
    using Producer = ChannelProducerTemplate<T, Data>;
    using Observer = ChannelObserverTemplate<T, Data>;
};

/// Samples of shared buffers can be read and written, but their channels cannot be made in this build: their
/// producer and observer need access to the buffer itself.
template <>
struct ChannelTypeTraits<vq::ch::SharedBufferChannelDataUpdatedEvent> {
    using Data = SharedBufferDataChannelData;
    using Producer = void;
    using Observer = void;
};
