#include "Messaging/MessageTypeName.h"

#include <google/protobuf/message_lite.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <typeinfo>

namespace {

struct Entry {
    std::type_info const* type;
    std::string name;
    Entry const* nextOfType = nullptr;
    Entry const* nextOfName = nullptr;
};

// Lists that only grow. Constant-initialised and never freed, so that they serve threads of a process that is
// ending; there is one entry a message class, or two when threads met at its first use.
using Buckets = std::array<std::atomic<Entry const*>, 256>;
constinit Buckets g_byType{};
constinit Buckets g_byName{};

std::atomic<Entry const*>& BucketOf(std::type_info const* type) {
    // Objects of this kind lie at least 16 bytes apart.
    return g_byType[(reinterpret_cast<std::uintptr_t>(type) >> 4) % g_byType.size()];
}

std::atomic<Entry const*>& BucketOf(std::string_view name) {
    // The names share their beginnings and ends: their length and middle tell most of them apart.
    std::uint64_t middle = 0;
    if (name.size() >= sizeof middle) {
        std::memcpy(&middle, name.data() + (name.size() - sizeof middle) / 2, sizeof middle);
    }
    constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;  // spreads the bits upwards
    return g_byName[((middle ^ name.size()) * kOdd >> 56) % g_byName.size()];
}

void Push(std::atomic<Entry const*>& bucket, Entry const* entry, Entry const*& next) {
    next = bucket.load(std::memory_order_relaxed);
    while (!bucket.compare_exchange_weak(next, entry, std::memory_order_release, std::memory_order_relaxed)) {
    }
}

}  // namespace

std::string const& MessageTypeName(google::protobuf::MessageLite const& message) {
    std::type_info const* const type = &typeid(message);
    std::atomic<Entry const*>& bucket = BucketOf(type);
    for (Entry const* entry = bucket.load(std::memory_order_acquire); entry != nullptr;
         entry = entry->nextOfType) {
        if (entry->type == type) {
            return entry->name;
        }
    }
    auto* const entry = new Entry{type, message.GetTypeName()};
    // Each list reads its own link only, so that writing the second one races with nobody.
    Push(BucketOf(entry->name), entry, entry->nextOfName);
    Push(bucket, entry, entry->nextOfType);
    return entry->name;
}

std::string const* FindMessageTypeName(std::string_view name) {
    for (Entry const* entry = BucketOf(name).load(std::memory_order_acquire); entry != nullptr;
         entry = entry->nextOfName) {
        // The same object in the common case of a text that came from here.
        if (entry->name.data() == name.data() || entry->name == name) {
            return &entry->name;
        }
    }
    return nullptr;
}
