#pragma once

#include <cstdint>
#include <memory>

#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "Messaging/ISharedBufferProducer.h"
#include "Messaging/SharedMemoryAccessor.h"
#include "Messaging/SharedMemoryData.h"
#include "ServerRequests.pb.h"

// Channels whose bulk lies in shared memory, under the channel's name; their samples only tell what changed.

/// The pipe over which a channel's accessor talks to the server: one for all ends of that channel in the
/// process, owned by the pipe provider.
/// @return null, with a line, when there is no way to the server.
AMessagePipeRequestReply* GetSharedMemoryPipe(Channel const& channel);
/// Whether the channel's buffer can be resized, as its descriptor says.
bool IsBufferResizable(Channel const& channel);

/// @tparam T  wire message.
/// @tparam D  data class, built from a T.
template <class T, class D>
class SharedBufferChannelProducerTemplate : public ChannelProducerTemplate<T, D>,
                                            public ISharedBufferProducer {
public:
    /// @param descriptor  not owned, outlives the channel.
    SharedBufferChannelProducerTemplate(AMessageContext* context, ChannelDescriptor* descriptor)
        : ChannelProducerTemplate<T, D>(context, descriptor),
          m_accessor(GetSharedMemoryPipe(*this), this->GetName(), IsBufferResizable(*this)) {}

    /// The way to the buffer, which has to be created by it. A write is published by
    /// Unlock(this channel, ...). Thread: the device's.
    SharedMemoryAccessor& GetAccessor() { return m_accessor; }
    /// For an application that makes the buffer portable: what it gives to the accessor. Nothing here reads
    /// it.
    vq::vds::PortableSharedMemoryConfiguration& GetConfiguration() { return m_configuration; }

    /// Publishes a write as a sample.
    void NotifyBufferDataChange(vq::bd::BufferDescriptor const& descriptor, std::uint64_t generation,
                                std::uint64_t offset, std::uint64_t size) override {
        ChannelProducer::SetData(
            std::make_shared<D>(m_accessor.GetId(), descriptor, generation, offset, size));
    }

private:
    SharedMemoryAccessor m_accessor;
    vq::vds::PortableSharedMemoryConfiguration m_configuration;
};

/// @tparam T  wire message.
/// @tparam D  data class, built from a T.
template <class T, class D>
class SharedBufferChannelObserverTemplate : public ChannelObserverTemplate<T, D> {
public:
    SharedBufferChannelObserverTemplate(AMessageContext* context, AMessagePipeEventListener* listener,
                                        ChannelDescriptor* descriptor)
        : ChannelObserverTemplate<T, D>(context, listener, descriptor),
          m_accessor(GetSharedMemoryPipe(*this), this->GetName(), IsBufferResizable(*this)) {
        listener->ListenTo(MessageTypeName(T::default_instance()));
    }

    /// The way to the buffer, which opens by itself once there is one. Thread: the device's.
    SharedMemoryAccessor& GetAccessor() { return m_accessor; }

private:
    SharedMemoryAccessor m_accessor;
};

using SharedBufferChannelProducer =
    SharedBufferChannelProducerTemplate<vq::ch::SharedBufferChannelDataUpdatedEvent,
                                        SharedBufferDataChannelData>;
using SharedBufferChannelObserver =
    SharedBufferChannelObserverTemplate<vq::ch::SharedBufferChannelDataUpdatedEvent,
                                        SharedBufferDataChannelData>;
