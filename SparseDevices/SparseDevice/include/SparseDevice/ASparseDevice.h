#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "DataTypes/SparseDeviceDescriptor.h"
#include "Messaging/AMessageContext.h"

class AChannelMessage;
class AMessageManager;
class AMessagePipeRequestReply;
class ChannelObserver;

/// What every device has, whatever server it talks to. All of it belongs to the one thread that steps the
/// device, unless an operation says otherwise.
class ASparseDevice {
public:
    /// A device with a descriptor of its own: "UnknownSparseDevice", "Unknown Device" and the type.
    explicit ASparseDevice(SparseDeviceType type);
    /// @param descriptor  taken over; not null.
    explicit ASparseDevice(SparseDeviceDescriptor* descriptor);
    virtual ~ASparseDevice();
    ASparseDevice(ASparseDevice const&) = delete;
    ASparseDevice& operator=(ASparseDevice const&) = delete;

    /// Marks the device as started. An override returns false when it cannot start; the device is then ended.
    virtual bool Start();
    virtual bool Stop();

    /// One step.
    virtual bool Update() = 0;

    /// Rebuilds the list of readers that a step looks at; here: empties it, and forgets which unconsumed
    /// message types have been reported.
    virtual void UpdateObserverChannelMapping();

    /// Takes the messages for one observer (its reader, its channel name, a type it accepts) out of the list.
    /// A step offers each message to the observer of its channel name alone.
    /// @return the messages in order of arrival; the caller owns them.
    virtual std::vector<AChannelMessage*> FilterChannelMessages(ChannelObserver* observer,
                                                                std::list<AvailableReaderMessage>& messages);

    /// Ends every channel of the device.
    virtual void ClearChannels() = 0;

    /// Given by the server at each registration; 0 before the first.
    std::int32_t DeviceId() const { return m_deviceId; }
    /// Never null; lives as long as the device. Name, label and process ids are set by initialisation and
    /// may be read from any thread after it.
    SparseDeviceDescriptor const* Descriptor() const { return m_descriptor.get(); }
    AMessageManager* MessageManager() const { return m_messageManager; }
    /// The context of the server's address; null before the first initialisation.
    AMessageContext* MessageContext() const { return m_messageContext; }
    /// The device's own request pipe; null before the first initialisation.
    AMessagePipeRequestReply* DevicePipe() const { return m_devicePipe; }
    /// Cleared for good by a failure to reach the server.
    bool IsEnabled() const { return m_enabled; }
    bool IsStarted() const { return m_started; }
    /// The report of readiness has gone out to the server.
    bool HasReportedInitialized() const { return m_reportedInitialized; }
    std::chrono::steady_clock::time_point CreationTime() const { return m_creationTime; }

protected:
    std::int32_t m_deviceId = 0;
    /// One for each observer; what a step polls.
    std::vector<MessageReaderContext> m_readers;
    std::unique_ptr<SparseDeviceDescriptor> m_descriptor;
    std::string m_serverName;
    AMessageManager* m_messageManager = nullptr;
    AMessageContext* m_messageContext = nullptr;
    AMessagePipeRequestReply* m_devicePipe = nullptr;
    bool m_enabled = true;
    bool m_started = false;
    bool m_reportedInitialized = false;
    std::chrono::steady_clock::time_point m_creationTime;
    /// Message types that raise no report when no observer takes them.
    std::unordered_set<std::string> m_unconsumedTypes;
    /// Entries whose messages FilterChannelMessages took, and the room of its last result, which the step
    /// gives back: both only kept to be used again.
    std::list<AvailableReaderMessage> m_takenEntries;
    std::vector<AChannelMessage*> m_takenMessages;
};
