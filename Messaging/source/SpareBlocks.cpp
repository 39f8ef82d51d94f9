#include "SpareBlocks.h"

#include <new>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t kMostSpare = 0;  // so that the use of a freed block is found
#else
constexpr std::size_t kMostSpare = 32;
#endif

enum class State { Unused, Used, Closed };

/// Without constructor and destructor, so that it serves a thread to its very end; see Closer.
struct Spares {
    State state;
    std::size_t count;
    void* blocks[kMostSpare + 1];
};
constinit thread_local Spares t_spares = {};

/// Frees a thread's spare blocks when it ends. What is freed later, by objects that outlive this one, is not
/// kept.
struct Closer {
    ~Closer() {
        t_spares.state = State::Closed;
        while (t_spares.count != 0) {
            ::operator delete(t_spares.blocks[--t_spares.count]);
        }
    }
    void Use() { t_spares.state = State::Used; }
};
thread_local Closer t_closer;

[[gnu::noinline]] void GiveUnusual(void* block) noexcept {
    ::operator delete(block);
    if (t_spares.state == State::Unused) {
        t_closer.Use();
    }
}

}  // namespace

void* SpareBlocks::Take() {
    Spares& spares = t_spares;
    return spares.count != 0 ? spares.blocks[--spares.count] : ::operator new(kBlockSize);
}

void SpareBlocks::Give(void* block) noexcept {
    Spares& spares = t_spares;
    if (spares.state == State::Used && spares.count < kMostSpare) {
        spares.blocks[spares.count++] = block;
    } else {
        GiveUnusual(block);
    }
}
