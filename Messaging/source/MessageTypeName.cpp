#include "Messaging/MessageTypeName.h"

#include <google/protobuf/message_lite.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <typeinfo>

namespace {

struct Entry {
    std::type_info const* type;
    std::string name;
    Entry const* next;
};

// Lists that only grow. Constant-initialised and never freed, so that they serve threads of a process that is
// ending; there is one entry a message class, or two when threads met at its first use.
constexpr std::size_t kBuckets = 256;
std::atomic<Entry const*> g_buckets[kBuckets];

}  // namespace

std::string const& MessageTypeName(google::protobuf::MessageLite const& message) {
    std::type_info const* type = &typeid(message);
    // Objects of this kind lie at least 16 bytes apart.
    std::atomic<Entry const*>& bucket = g_buckets[(reinterpret_cast<std::uintptr_t>(type) >> 4) % kBuckets];
    Entry const* head = bucket.load(std::memory_order_acquire);
    for (Entry const* entry = head; entry != nullptr; entry = entry->next) {
        if (entry->type == type) {
            return entry->name;
        }
    }
    auto fresh = std::make_unique<Entry>(Entry{type, message.GetTypeName(), head});
    while (!bucket.compare_exchange_weak(fresh->next, fresh.get(), std::memory_order_acq_rel)) {
    }
    return fresh.release()->name;
}
