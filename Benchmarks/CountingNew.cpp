// operator new that can count. Timed blocks run with the counter off, where it costs one load and a branch on
// both sides of a twin alike.

#include <atomic>
#include <cstdlib>
#include <new>

#include "Twin.h"

namespace {

constinit std::atomic<bool> g_counting{false};
constinit std::atomic<std::uint64_t> g_allocations{0};

void* Allocate(std::size_t size, std::size_t alignment) noexcept {
    if (g_counting.load(std::memory_order_relaxed)) {
        g_allocations.fetch_add(1, std::memory_order_relaxed);
    }
    size = size == 0 ? 1 : size;
    if (alignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
        return std::malloc(size);
    }
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
    if (void* memory = Allocate(size, alignment); memory != nullptr) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

namespace bench {

AllocationCount::AllocationCount() {
    g_allocations = 0;
    g_counting = true;
}

AllocationCount::~AllocationCount() {
    g_counting = false;
}

std::uint64_t AllocationCount::Get() const {
    return g_allocations;
}

}  // namespace bench

// The array forms and the sized and nothrow ones of delete end in these by themselves; the aligned and the
// nothrow ones of new do not.
void* operator new(std::size_t size) {
    return AllocateOrThrow(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    return Allocate(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment, std::nothrow_t const&) noexcept {
    return Allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
