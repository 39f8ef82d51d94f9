#include "Utils/SharedMemory.h"

#include <utility>

#include "Logging/Log.h"
#include "Utils/SharedMemoryMmap.h"

std::string to_string(SharedMemoryType type) {
    switch (type) {
        case SharedMemoryType::UNKNOWN:
            return "UNKNOWN";
        case SharedMemoryType::FILE:
            return "FILE";
        case SharedMemoryType::ANON:
            return "ANON";
    }
    return "??? (" + std::to_string(static_cast<std::int32_t>(type)) + ")";
}

SharedMemory::SharedMemory(std::string name, std::uint64_t size, SharedMemoryType type)
    : m_name(std::move(name)), m_size(size), m_type(type) {}

SharedMemory::SharedMemory(SharedMemory&& other) noexcept {
    Swap(other);
}

void SharedMemory::Swap(SharedMemory& other) noexcept {
    std::swap(m_name, other.m_name);
    std::swap(m_size, other.m_size);
    std::swap(m_allocated, other.m_allocated);
    std::swap(m_pointer, other.m_pointer);
    std::swap(m_access, other.m_access);
    std::swap(m_type, other.m_type);
}

SharedMemoryNull::SharedMemoryNull(std::string const& name, std::uint64_t size, SharedMemoryType type)
    : SharedMemory(name, size, type) {}

SharedMemory* SharedMemoryFactory::MakeRaw(std::string const& name, std::uint64_t size,
                                           SharedMemoryType type) {
    switch (type) {
        case SharedMemoryType::UNKNOWN:
        case SharedMemoryType::FILE:
        case SharedMemoryType::ANON:
            return new SharedMemoryMmap(name, size);
    }
    LOG_E("BUG: unhandled memory type: %s", to_string(type).c_str());
    return new SharedMemoryNull(name, size, type);
}

std::shared_ptr<SharedMemory> SharedMemoryFactory::Make(std::string const& name, std::uint64_t size,
                                                        SharedMemoryType type) {
    return std::shared_ptr<SharedMemory>(MakeRaw(name, size, type));
}

bool SharedMemoryFactory::CanResize(SharedMemoryType type) {
    return type == SharedMemoryType::FILE;
}
