#pragma once

#include <cstddef>

/// Memory for the small objects that come and go with each message: a thread keeps some of what it freed for
/// what it makes next, at a fraction of the allocator's price. Any thread; a block may be freed by another
/// one than took it.
class SpareBlocks {
public:
    /// What every block holds.
    static constexpr std::size_t kBlockSize = 192;

    /// @return a block, aligned for anything. Throws std::bad_alloc.
    static void* Take();
    static void Give(void* block) noexcept;
};
