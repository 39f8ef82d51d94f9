#include "CommandReply.h"
#include "DataTypes/ChannelDescriptor.h"
#include "DeviceEvents.pb.h"
#include "DeviceRequests.pb.h"
#include "Logging/Log.h"
#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "SparseDevice/SparseDevice.h"
#include "SparseDevice/SparseDeviceCommandHandler.h"

// What a device does by default when a recorder or a player turns to it: it tells which channels it has.

namespace {

/// The data of these channels lie in shared memory, where a recorder of events does not see them.
constexpr char kSharedBufferType[] = "Shared Buffer Data";

template <class Channels>
void AddEntries(Channels const& channels, vq::sd::AddChannelsEvent& event) {
    for (auto const& [name, channel] : channels) {
        std::string const& type = channel->GetDescriptor()->dataType;
        if (type != kSharedBufferType) {
            vq::sd::RecorderChannelEntry& entry = *event.add_channels();
            entry.set_channel(name);
            entry.set_type(type);
        }
    }
}

}  // namespace

bool SparseDeviceCommandHandler::OnStartRecording(AMessage* message) {
    LOG_V("OnStartRecording begin");
    auto const request = DecodeCommand<vq::sd::StartRecording>(RequestPipe(), message);
    bool const sent = SendReply(RequestPipe(), vq::sd::StartRecording::Reply());
    if (sent) {
        LOG_T("Recording '%s'", request.text().c_str());
        vq::sd::AddChannelsEvent event;
        AddEntries(Device()->Producers(), event);
        AddEntries(Device()->Observers(), event);
        Device()->QueueSparseDeviceEvent(event);
    }
    LOG_V("OnStartRecording end");
    return sent;
}

bool SparseDeviceCommandHandler::OnStopRecording(AMessage* /*message*/) {
    vq::sd::StopRecording::Reply reply;
    reply.set_flag_1(true);
    return SendReply(RequestPipe(), reply);
}

bool SparseDeviceCommandHandler::OnStartPlayback(AMessage* /*message*/) {
    return SendReply(RequestPipe(), vq::sd::StartPlayback::Reply());
}

bool SparseDeviceCommandHandler::OnStopPlayback(AMessage* /*message*/) {
    vq::sd::StopPlayback::Reply reply;
    reply.set_flag_1(true);
    return SendReply(RequestPipe(), reply);
}
