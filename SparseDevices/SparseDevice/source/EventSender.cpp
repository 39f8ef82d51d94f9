#include "SparseDevice/EventSender.h"

#include <utility>

#include "SparseDevice/SparseDevice.h"

SparseDeviceEventSender::SparseDeviceEventSender(std::weak_ptr<SparseDevice> device)
    : m_device(std::move(device)) {}

void SparseDeviceEventSender::SendEvent(google::protobuf::MessageLite const& event) {
    if (std::shared_ptr<SparseDevice> const device = m_device.lock()) {
        device->QueueSparseDeviceEvent(event);
    }
}

RawSparseDeviceEventSender::RawSparseDeviceEventSender(SparseDevice* device) : m_device(device) {}

void RawSparseDeviceEventSender::SendEvent(google::protobuf::MessageLite const& event) {
    m_device->QueueSparseDeviceEvent(event);
}
