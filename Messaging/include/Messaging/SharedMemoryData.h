#pragma once

#include <cstdint>
#include <string>

#include "Messaging/ChannelData.h"

class SharedMemoryAccessor;

/// A sample whose bulk lies in shared memory.
class ISharedMemoryData : public IData {
public:
    /// @param accessor  not owned, outlives the sample; null for none.
    explicit ISharedMemoryData(SharedMemoryAccessor* accessor = nullptr) : m_accessor(accessor) {}

    /// Id of the accessor's memory; empty without an accessor.
    std::string GetSharedMemoryId() const;
    SharedMemoryAccessor* GetAccessor() const { return m_accessor; }

private:
    SharedMemoryAccessor* m_accessor;
};

/// Tells which part of a shared buffer has changed. It has no accessor: the memory is known by GetMemoryId().
class SharedBufferDataChannelData final : public ISharedMemoryData {
public:
    static constexpr char const* Type = ChannelDataTypeText<vq::ch::SharedBufferChannelDataUpdatedEvent>;

    /// @param memoryId    id of the shared memory.
    /// @param descriptor  layout of the buffer.
    /// @param generation  counts the writes to the buffer.
    /// @param offset      first changed byte.
    /// @param size        number of changed bytes.
    SharedBufferDataChannelData(std::string memoryId, vq::bd::BufferDescriptor const& descriptor,
                                std::uint64_t generation, std::uint64_t offset, std::uint64_t size);
    explicit SharedBufferDataChannelData(vq::ch::SharedBufferChannelDataUpdatedEvent const& event);

    google::protobuf::MessageLite* Serialize() const override;
    std::string GetType() const override { return Type; }

    std::string const& GetMemoryId() const { return m_memoryId; }
    vq::bd::BufferDescriptor const& GetBufferDescriptor() const { return m_descriptor; }
    std::uint64_t GetGeneration() const { return m_generation; }
    std::uint64_t GetOffset() const { return m_offset; }
    std::uint64_t GetSize() const { return m_size; }

private:
    std::string m_memoryId;
    vq::bd::BufferDescriptor m_descriptor;
    std::uint64_t m_generation;
    std::uint64_t m_offset;
    std::uint64_t m_size;
};
