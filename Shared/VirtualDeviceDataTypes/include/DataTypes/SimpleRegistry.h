#pragma once

#include <cstddef>
#include <memory>
#include <unordered_map>
#include <utility>

/// Named items, each owned by the registry. Copies are deep; a moved-from registry is empty.
///
/// Subclasses decide about redefinitions and look at what comes in. No lock: one thread at a time.
/// Pointers from Find stay good until their item is replaced, taken out, or the registry ends.
template <typename K, typename V>
class SimpleRegistry {
public:
    using Map = std::unordered_map<K, std::unique_ptr<V>>;

    SimpleRegistry() = default;

    SimpleRegistry(SimpleRegistry const& other) {
        m_items.reserve(other.m_items.size());
        for (auto const& [key, item] : other.m_items) {
            m_items.emplace(key, std::make_unique<V>(*item));
        }
    }

    SimpleRegistry(SimpleRegistry&& other) noexcept : m_items(std::move(other.m_items)) {
        other.m_items.clear();
    }

    SimpleRegistry& operator=(SimpleRegistry const& other) {
        if (this != &other) {
            SimpleRegistry copy(other);
            m_items.swap(copy.m_items);
        }
        return *this;
    }

    SimpleRegistry& operator=(SimpleRegistry&& other) noexcept {
        if (this != &other) {
            m_items = std::move(other.m_items);
            other.m_items.clear();
        }
        return *this;
    }

    virtual ~SimpleRegistry() = default;

    /// Asked when a key is defined again. True refuses the incoming item. Both stay borrowed, but for what
    /// the override merges into the existing one.
    virtual bool OverrideItem(V* /*existing*/, V* /*incoming*/) { return false; }

    /// Told of each item after it has been stored.
    virtual void HandleRegisteredItem(V* /*item*/) {}

    /// Stores an item and takes it over, unless OverrideItem refuses it.
    /// @return the item that was stored under the key before, now owned by the caller; null when the key is
    ///         new, and also when the incoming item was refused and so still belongs to the caller (then Find
    ///         gives another one). Prefer Add, which leaves nothing to delete.
    V* Register(K const& key, V* item) {
        auto const [position, isNew] = m_items.try_emplace(key);
        std::unique_ptr<V>& slot = position->second;
        if (!isNew && OverrideItem(slot.get(), item)) {
            return nullptr;
        }
        V* const old = slot.release();
        slot.reset(item);
        HandleRegisteredItem(item);
        return old;
    }

    /// Register with its ownership in the types: a refused item is destroyed.
    /// @return the item that was stored under the key before, or null.
    std::unique_ptr<V> Add(K const& key, std::unique_ptr<V> item) {
        V* const incoming = item.get();
        std::unique_ptr<V> old(Register(key, incoming));
        if (Find(key) == incoming) {
            static_cast<void>(item.release());
        }
        return old;
    }

    /// The item of that key, or null.
    V* Find(K const& key) const {
        auto const found = m_items.find(key);
        return found == m_items.end() ? nullptr : found->second.get();
    }

    bool Contains(K const& key) const { return m_items.find(key) != m_items.end(); }

    /// Takes an item out; null when the key is unknown. `key` may be a part of the item.
    std::unique_ptr<V> Take(K const& key) {
        auto const found = m_items.find(key);
        if (found == m_items.end()) {
            return nullptr;
        }
        std::unique_ptr<V> item = std::move(found->second);
        m_items.erase(found);
        return item;
    }

    std::size_t Size() const { return m_items.size(); }

    /// All items by key, in no particular order.
    Map const& Items() const { return m_items; }

private:
    Map m_items;
};
