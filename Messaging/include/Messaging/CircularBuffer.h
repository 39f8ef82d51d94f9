#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "Logging/Log.h"

/// A ring of entries in one block: when it is full, a new entry takes the place of the oldest. An empty slot
/// holds a default-built entry. Not locked.
template <class E>
class CircularBuffer {
public:
    /// @param capacity  number of slots; 0 counts as 1.
    explicit CircularBuffer(std::size_t capacity)
        : m_capacity(std::max<std::size_t>(capacity, 1)), m_buffer(std::make_unique<E[]>(m_capacity)) {}

    bool IsEmpty() const { return m_size == 0; }
    bool IsFull() const { return m_size == m_capacity; }

    void Write(E&& entry) {
        m_buffer[m_tail] = std::move(entry);
        bool const wasFull = IsFull();
        m_tail = Next(m_tail);
        if (wasFull) {
            m_head = m_tail;
        } else {
            ++m_size;
        }
    }

    /// Takes the oldest entry; false when there is none.
    bool ReadFront(E& entry) {
        if (IsEmpty()) {
            return false;
        }
        entry = std::exchange(m_buffer[m_head], E());
        m_head = Next(m_head);
        --m_size;
        return true;
    }

    /// Takes the newest entry; false when there is none.
    bool ReadBack(E& entry) {
        if (IsEmpty()) {
            return false;
        }
        m_tail = Previous(m_tail);
        entry = std::exchange(m_buffer[m_tail], E());
        --m_size;
        return true;
    }

    void Clear() {
        for (; m_size != 0; --m_size, m_head = Next(m_head)) {
            m_buffer[m_head] = E();
        }
        m_head = m_tail = 0;
    }

    /// Keeps the newest entries that fit. A capacity of zero, or the present one, changes nothing (logged).
    void Resize(std::size_t capacity) {
        if (capacity == 0 || capacity == m_capacity) {
            LOG_W("Resize ignored. Reason: %s",
                  capacity == 0 ? "capacity is zero" : "new capacity is identical to current");
            return;
        }
        auto buffer = std::make_unique<E[]>(capacity);
        std::uint64_t const kept = std::min<std::uint64_t>(m_size, capacity);
        for (std::uint64_t slot = capacity; slot != capacity - kept;) {
            m_tail = Previous(m_tail);
            buffer[--slot] = std::move(m_buffer[m_tail]);
        }
        m_buffer = std::move(buffer);
        m_capacity = capacity;
        m_head = kept == 0 ? 0 : capacity - kept;
        m_tail = 0;
        m_size = kept;
    }

private:
    std::uint64_t Next(std::uint64_t slot) const { return slot + 1 == m_capacity ? 0 : slot + 1; }
    std::uint64_t Previous(std::uint64_t slot) const { return slot == 0 ? m_capacity - 1 : slot - 1; }

    std::uint64_t m_size = 0;
    std::uint64_t m_head = 0;  // the oldest entry
    std::uint64_t m_tail = 0;  // one past the newest
    std::uint64_t m_capacity;
    std::unique_ptr<E[]> m_buffer;
};
