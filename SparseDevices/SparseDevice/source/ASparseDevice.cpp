#include "SparseDevice/ASparseDevice.h"

#include "ChannelData.pb.h"
#include "Logging/Log.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/ChannelObserver.h"
#include "Messaging/MessageTypeName.h"

namespace {

SparseDeviceDescriptor* MakeUnknownDescriptor(SparseDeviceType type) {
    return new SparseDeviceDescriptor{"UnknownSparseDevice", type, "Unknown Device", 0, 0};
}

std::string const& HelloTypeName() {
    return MessageTypeName(vq::ch::HelloDataEvent::default_instance());
}

bool BelongsTo(ChannelObserver& observer, AvailableReaderMessage const& entry,
               AChannelMessage const* message) {
    return message != nullptr && entry.reader == observer.GetListenerPipe() &&
           message->GetChannelName() == observer.GetName() &&
           observer.HandlesWireMessageType(message->Type());
}

}  // namespace

ASparseDevice::ASparseDevice(SparseDeviceType type) : ASparseDevice(MakeUnknownDescriptor(type)) {}

ASparseDevice::ASparseDevice(SparseDeviceDescriptor* descriptor)
    : m_descriptor(descriptor),
      m_creationTime(std::chrono::steady_clock::now()),
      m_unconsumedTypes{HelloTypeName()} {}

ASparseDevice::~ASparseDevice() = default;

bool ASparseDevice::Start() {
    m_started = true;
    return true;
}

bool ASparseDevice::Stop() {
    m_started = false;
    return true;
}

void ASparseDevice::UpdateObserverChannelMapping() {
    m_readers.clear();
    m_unconsumedTypes.clear();
    // The greetings of other devices are never worth a report.
    m_unconsumedTypes.insert(HelloTypeName());
}

std::vector<AChannelMessage*> ASparseDevice::FilterChannelMessages(
    ChannelObserver* observer, std::list<AvailableReaderMessage>& messages) {
    std::vector<AChannelMessage*> taken = std::move(m_takenMessages);
    taken.clear();
    for (auto entry = messages.begin(); entry != messages.end();) {
        auto* const message = dynamic_cast<AChannelMessage*>(entry->message);
        if (!BelongsTo(*observer, *entry, message)) {
            ++entry;
            continue;
        }
        LOG_T("Consuming message %s for channel %s", message->Type().c_str(),
              message->GetChannelName().c_str());
        taken.push_back(message);
        entry->message = nullptr;
        m_takenEntries.splice(m_takenEntries.end(), messages, entry++);
    }
    return taken;
}
