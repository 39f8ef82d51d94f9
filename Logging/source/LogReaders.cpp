#include "LogReaders.h"

#include <thread>

// Places are made once for a thread and never deleted: a thread that ends leaves its own to a later one. So
// the list of them is read without a lock.

constinit std::atomic<LogReaders::Place*> LogReaders::s_first{nullptr};

namespace {

// Trivial, so that they outlive the thread's other objects: those may log while they are destroyed.
constinit thread_local void* t_place = nullptr;
constinit thread_local int t_depth = 0;

}  // namespace

/// Gives the thread's place back at its end.
struct LogReaders::OwnPlace {
    explicit OwnPlace(Place* taken) : place(taken) {}
    ~OwnPlace() {
        if (t_depth == 0) {
            t_place = nullptr;
            place->taken.store(false, std::memory_order_release);
        }
    }
    OwnPlace(OwnPlace const&) = delete;
    OwnPlace& operator=(OwnPlace const&) = delete;

    Place* const place;
};

LogReaders::Place* LogReaders::TakePlace() {
    for (Place* place = s_first; place != nullptr; place = place->next) {
        bool free = false;
        if (!place->taken.load(std::memory_order_relaxed) &&
            place->taken.compare_exchange_strong(free, true)) {
            return place;
        }
    }
    auto* const place = new Place;
    Place* first = s_first;
    do {
        place->next = first;
    } while (!s_first.compare_exchange_weak(first, place));
    return place;
}

LogReaders::Place& LogReaders::Own() {
    if (t_place == nullptr) {
        // Behind the end of this object, while the thread's last objects go, the place is kept for good.
        t_place = TakePlace();
        thread_local OwnPlace const own(static_cast<Place*>(t_place));
    }
    return *static_cast<Place*>(t_place);
}

LogReaders::Mark::Mark() {
    if (t_depth++ == 0) {
        std::atomic<std::uint64_t>& passages = Own().passages;
        // Sequentially consistent: either what follows sees a change, or who made it sees this mark.
        passages.exchange(passages.load(std::memory_order_relaxed) + 1);
    }
}

LogReaders::Mark::~Mark() {
    if (--t_depth == 0) {
        std::atomic<std::uint64_t>& passages = Own().passages;
        passages.store(passages.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
}

bool LogReaders::AreThere() {
    for (Place const* place = s_first; place != nullptr; place = place->next) {
        if (place->passages.load() % 2 != 0) {
            return true;
        }
    }
    return false;
}

bool LogReaders::WaitForOthers(std::chrono::milliseconds limit) {
    auto const end = std::chrono::steady_clock::now() + limit;
    for (Place const* place = s_first; place != nullptr; place = place->next) {
        std::uint64_t const seen = place->passages.load();
        if (seen % 2 == 0 || place == t_place) {
            continue;
        }
        while (place->passages.load() == seen) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    return true;
}
