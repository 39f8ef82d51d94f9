#include "Messaging/ObserverDataQueue.h"

std::shared_ptr<IData> CircularBufferDataQueue::PopOldestDataImplementation() {
    std::shared_ptr<IData> sample;
    m_buffer.ReadFront(sample);
    return sample;
}

std::shared_ptr<IData> CircularBufferDataQueue::PopNewestDataImplementation() {
    std::shared_ptr<IData> sample;
    m_buffer.ReadBack(sample);
    return sample;
}

bool CircularBufferDataQueue::PopAllDataImplementation(std::vector<std::shared_ptr<IData>>& list) {
    if (m_buffer.IsEmpty()) {
        return false;
    }
    std::shared_ptr<IData> sample;
    while (m_buffer.ReadFront(sample)) {
        list.push_back(std::move(sample));
    }
    return true;
}
