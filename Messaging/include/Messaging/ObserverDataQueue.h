#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "Logging/Log.h"
#include "Messaging/ChannelData.h"
#include "Messaging/CircularBuffer.h"

/// The locked front of a queue of samples: the device's thread pushes, application threads pop. The lock is
/// held for one operation, which moves pointers and frees the samples that it drops.
/// @tparam Q  the queue behind it, with an operation "...Implementation" for each of these.
template <class Q>
class ObserverDataQueueBase {
public:
    explicit ObserverDataQueueBase(std::size_t capacity) : m_queue(capacity) {}

    /// The oldest or the newest sample, removed; null when there is none.
    std::shared_ptr<IData> PopOldestData() {
        std::lock_guard const lock(m_mutex);
        return m_queue.PopOldestDataImplementation();
    }
    std::shared_ptr<IData> PopNewestData() {
        std::lock_guard const lock(m_mutex);
        return m_queue.PopNewestDataImplementation();
    }
    /// Appends all samples, oldest first, and empties the queue. True if there was one.
    bool PopAllData(std::vector<std::shared_ptr<IData>>& list) {
        std::lock_guard const lock(m_mutex);
        return m_queue.PopAllDataImplementation(list);
    }
    void PushNewData(std::shared_ptr<IData> sample) {
        std::lock_guard const lock(m_mutex);
        m_queue.PushNewDataImplementation(std::move(sample));
    }
    void ResizeCapacity(std::size_t capacity) {
        std::lock_guard const lock(m_mutex);
        m_queue.ResizeCapacityImplementation(capacity);
    }
    void ClearData() {
        std::lock_guard const lock(m_mutex);
        m_queue.ClearDataImplementation();
    }

private:
    std::mutex m_mutex;
    Q m_queue;
};

/// A bounded queue: when the reader falls behind, the oldest samples are dropped, since for a stream of
/// values the newest is what counts. Not locked.
class CircularBufferDataQueue {
public:
    explicit CircularBufferDataQueue(std::size_t capacity) : m_buffer(capacity) {}

    std::shared_ptr<IData> PopOldestDataImplementation();
    std::shared_ptr<IData> PopNewestDataImplementation();
    bool PopAllDataImplementation(std::vector<std::shared_ptr<IData>>& list);
    void PushNewDataImplementation(std::shared_ptr<IData>&& sample) {
        if (m_buffer.IsFull()) {
            LOG_V("Observer buffer full - older data will be discarded.");
        }
        m_buffer.Write(std::move(sample));
    }
    void ResizeCapacityImplementation(std::size_t capacity) { m_buffer.Resize(capacity); }
    void ClearDataImplementation() { m_buffer.Clear(); }

private:
    CircularBuffer<std::shared_ptr<IData>> m_buffer;
};
