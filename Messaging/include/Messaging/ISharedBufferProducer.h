#pragma once

#include <cstdint>

namespace vq::bd {
class BufferDescriptor;
}

/// Whoever tells a channel's observers that a part of its shared buffer was written.
class ISharedBufferProducer {
public:
    /// @param descriptor  layout of the buffer.
    /// @param generation  count of the writes to the buffer, this one included.
    /// @param offset      first changed byte.
    /// @param size        number of changed bytes.
    virtual void NotifyBufferDataChange(vq::bd::BufferDescriptor const& descriptor, std::uint64_t generation,
                                        std::uint64_t offset, std::uint64_t size) = 0;

protected:
    ~ISharedBufferProducer() = default;
};
