#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

/// The threads that are inside the handlers of any configuration: who takes a handler or a list of them away
/// waits for those threads before he deletes it. To enter and to leave costs a thread one write each to
/// memory of its own.
class LogReaders {
public:
    /// The calling thread is a reader while this lives. What it loads meanwhile, from a place that is changed
    /// before the waiting below begins, is not deleted. Marks may be nested.
    class Mark {
    public:
        Mark();
        ~Mark();
        Mark(Mark const&) = delete;
        Mark& operator=(Mark const&) = delete;
    };

    /// Any reader at all, the calling thread included.
    static bool AreThere();

    /// Waits until every other thread that is a reader now has left once.
    /// @return false when one has not left within the limit.
    static bool WaitForOthers(std::chrono::milliseconds limit);

private:
    struct alignas(64) Place {
        std::atomic<std::uint64_t> passages{0};  // counts up on the way in and out: odd is inside
        std::atomic<Place*> next{nullptr};
        std::atomic<bool> taken{true};
    };
    struct OwnPlace;

    static Place& Own();
    static Place* TakePlace();

    static std::atomic<Place*> s_first;
};
