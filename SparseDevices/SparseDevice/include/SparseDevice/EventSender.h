#pragma once

#include <memory>

class SparseDevice;

namespace google::protobuf {
class MessageLite;
}

/// Where an object that belongs to a device sends the events that it wants published.
class IEventSender {
public:
    virtual ~IEventSender() = default;

    /// Hands the event over for publication; the device sends it to the server in its next step. Any thread.
    /// @param event  complete (an event that lacks a required field is logged and dropped); copied.
    virtual void SendEvent(google::protobuf::MessageLite const& event) = 0;
};

/// For a holder that may outlive the device: events sent after its end are dropped.
class SparseDeviceEventSender : public IEventSender {
public:
    explicit SparseDeviceEventSender(std::weak_ptr<SparseDevice> device);
    void SendEvent(google::protobuf::MessageLite const& event) override;

private:
    std::weak_ptr<SparseDevice> m_device;
};

/// For the device itself and what it owns.
class RawSparseDeviceEventSender : public IEventSender {
public:
    /// @param device  not owned; must outlive this object.
    explicit RawSparseDeviceEventSender(SparseDevice* device);
    void SendEvent(google::protobuf::MessageLite const& event) override;

private:
    SparseDevice* m_device;
};
