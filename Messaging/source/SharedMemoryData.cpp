#include "Messaging/SharedMemoryData.h"

#include <utility>

#include "Messaging/SharedMemoryAccessor.h"

std::string ISharedMemoryData::GetSharedMemoryId() const {
    return m_accessor != nullptr ? m_accessor->GetId() : std::string();
}

SharedBufferDataChannelData::SharedBufferDataChannelData(std::string memoryId,
                                                         vq::bd::BufferDescriptor const& descriptor,
                                                         std::uint64_t generation, std::uint64_t offset,
                                                         std::uint64_t size)
    : m_memoryId(std::move(memoryId)),
      m_descriptor(descriptor),
      m_generation(generation),
      m_offset(offset),
      m_size(size) {}

SharedBufferDataChannelData::SharedBufferDataChannelData(
    vq::ch::SharedBufferChannelDataUpdatedEvent const& event)
    : SharedBufferDataChannelData(event.server_memory_id(), event.descriptor(), event.generation(),
                                  event.updated_offset(), event.updated_size()) {}

google::protobuf::MessageLite* SharedBufferDataChannelData::Serialize() const {
    auto* const event = new vq::ch::SharedBufferChannelDataUpdatedEvent;
    event->set_server_memory_id(m_memoryId);
    *event->mutable_descriptor() = m_descriptor;
    event->set_generation(m_generation);
    event->set_updated_offset(m_offset);
    event->set_updated_size(m_size);
    return event;
}
