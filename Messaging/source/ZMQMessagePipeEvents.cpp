#include <zmq.h>

#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>

#include "ChannelData.pb.h"
#include "Logging/Log.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/MessageTypeName.h"
#include "Messaging/ZMQMessagePipes.h"
#include "Utils/ProtoDump.h"
#include "Utils/TextUtils.h"

namespace {

constexpr std::size_t kIdSize = 4;
constexpr std::size_t kHeaderOverhead = 2 + kIdSize;  // two NULs and the channel id

std::size_t SizeOfHeader(std::string const& type, std::string const& channel) {
    return type.size() + channel.size() + kHeaderOverhead;
}

void WriteHeader(void* header, std::string const& type, std::string const& channel, int channelId) {
    auto* cursor = static_cast<std::uint8_t*>(header);
    // With the terminators of the strings.
    std::memcpy(cursor, type.c_str(), type.size() + 1);
    cursor += type.size() + 1;
    std::memcpy(cursor, channel.c_str(), channel.size() + 1);
    cursor += channel.size() + 1;
    ZMQMessagePipeBase::WriteUInt32(cursor, static_cast<std::uint32_t>(channelId));
}

/// A header that a thread saw lately, and where its texts end.
struct SeenHeader {
    std::size_t size;  // 0 for none
    std::size_t typeSize;
    std::size_t channelSize;
    int channelId;
    std::string const* heldType;
    char bytes[96];
};

/// Without constructor and destructor, so that it serves a thread to its very end. By the lowest bits of the
/// channel's id.
constinit thread_local SeenHeader t_seenHeaders[8] = {};

SeenHeader& PlaceOf(std::string_view frame) {
    return t_seenHeaders[static_cast<std::uint8_t>(frame[frame.size() - kIdSize]) % std::size(t_seenHeaders)];
}

/// @return null when this thread has not seen the header lately
SeenHeader const* FindSeen(std::string_view frame) {
    if (frame.size() < kHeaderOverhead) {
        return nullptr;
    }
    SeenHeader const& seen = PlaceOf(frame);
    return seen.size == frame.size() && std::memcmp(seen.bytes, frame.data(), frame.size()) == 0 ? &seen
                                                                                                 : nullptr;
}

void Remember(std::string_view frame, EventHeader const& header) {
    if (SeenHeader& seen = PlaceOf(frame); header.heldType != nullptr && frame.size() <= sizeof seen.bytes) {
        seen = {frame.size(),     header.type.size(), header.channel.size(),
                header.channelId, header.heldType,    {}};
        frame.copy(seen.bytes, frame.size());
    }
}

std::optional<EventHeader> ParseOrReport(zmq::message_t const& header) {
    std::optional<EventHeader> const parsed = EventHeader::Parse(header.to_string_view());
    if (!parsed) {
        LOG_E("invalid event message frame: %s", ZMQMessagePipeBase::DumpBadFrame(header).c_str());
    }
    return parsed;
}

/// Traces a channel sample in readable form, beside its bytes; nothing for an event of another kind. Costly:
/// only at trace level.
void TraceSample(char const* what, ZMQChannelMessage const& message) {
    zmq::message_t const& body = message.GetBody();
    std::string text;
    ProtoUtils::DumpToString(message.Type(), {body.data<char>(), body.size()}, text);
    if (!text.empty()) {
        LOG_T("%s %s on channel '%s' (%d): %s", what, message.Type().c_str(),
              message.GetChannelName().c_str(), message.GetChannelId(), text.c_str());
    }
}

}  // namespace

std::optional<EventHeader> EventHeader::Parse(std::string_view frame) {
    if (SeenHeader const* const seen = FindSeen(frame)) {
        return EventHeader{frame.substr(0, seen->typeSize),
                           frame.substr(seen->typeSize + 1, seen->channelSize), seen->channelId,
                           seen->heldType};
    }
    std::size_t const typeEnd = frame.find('\0');
    if (typeEnd == std::string_view::npos) {
        return std::nullopt;
    }
    std::size_t const channelEnd = frame.find('\0', typeEnd + 1);
    if (channelEnd == std::string_view::npos || frame.size() - channelEnd - 1 != kIdSize) {
        return std::nullopt;
    }
    auto const* id = reinterpret_cast<std::uint8_t const*>(frame.data() + channelEnd + 1);
    std::string_view const type = frame.substr(0, typeEnd);
    EventHeader const header{type, frame.substr(typeEnd + 1, channelEnd - typeEnd - 1),
                             static_cast<int>(ZMQMessagePipeBase::ReadUInt32(id)), FindMessageTypeName(type)};
    Remember(frame, header);
    return header;
}

ZMQMessagePipeEventSender::ZMQMessagePipeEventSender(AMessageContext* context, MessageAddress remote,
                                                     zmq::socket_t* socket, bool ownsSocket)
    : AMessagePipeEventSender(context, std::move(remote)), ZMQMessagePipeBase(socket, ownsSocket) {}

bool ZMQMessagePipeEventSender::SendNext(AMessage const* message, std::chrono::milliseconds timeout,
                                         bool* timedOut) {
    if (IsDisposed()) {
        return false;
    }
    if (message == nullptr || typeid(*message) != typeid(ZMQChannelMessage)) {
        LOG_E("expected ZMQChannelMessage for message %s",
              message != nullptr ? message->Dump().c_str() : "<null>");
        return false;
    }
    auto const& event = static_cast<ZMQChannelMessage const&>(*message);
    zmq::message_t header(SizeOfHeader(event.Type(), event.GetChannelName()));
    WriteHeader(header.data(), event.Type(), event.GetChannelName(), event.GetChannelId());
    Frames const frames = {&header, &event.GetBody()};
    if (!IsLogged(LogLevel::Verbose)) {
        return Send(frames, timeout, timedOut, GetRemote());
    }
    int flags = 0;
    if (!PollForSend(flags, timeout, timedOut, GetRemote())) {
        return false;
    }
    LogSending(event);
    LOG_T("%s", HexDump(header.data(), header.size()).c_str());
    if (IsLogged(LogLevel::Trace)) {
        TraceSample("Sample out:", event);
    }
    return FinishSend(flags, frames, timedOut);
}

bool ZMQMessagePipeEventSender::SendProto(int channelId, std::string const& channelName,
                                          google::protobuf::MessageLite const& proto,
                                          std::chrono::milliseconds timeout, bool* timedOut) {
    if (IsDisposed() || IsLogged(LogLevel::Verbose)) {
        return AMessagePipeEventSender::SendProto(channelId, channelName, proto, timeout, timedOut);
    }
    std::string const& type = MessageTypeName(proto);
    std::optional<zmq::message_t> body = ZMQMessageBody::Encode(proto);
    if (!body) {
        LOG_E("Failed to encode message to %s", type.c_str());
        return false;
    }
    char shortHeader[256];
    std::size_t const size = SizeOfHeader(type, channelName);
    if (size <= sizeof shortHeader) {
        WriteHeader(shortHeader, type, channelName, channelId);
        return Send({shortHeader, size}, *body, timeout, timedOut, GetRemote());
    }
    zmq::message_t header(size);
    WriteHeader(header.data(), type, channelName, channelId);
    return Send({&header, &*body}, timeout, timedOut, GetRemote());
}

bool ZMQMessagePipeEventSender::ForwardFrames(zmq::message_t& header, zmq::message_t& body) {
    return !IsDisposed() && SendMessages(ZMQ_DONTWAIT, {&header, &body});
}

void ZMQMessagePipeEventSender::LogSending(ZMQChannelMessage const& message) const {
    std::string const& type = message.Type();
    // What comes many times a second would flood the log.
    if (type.find("Hello") != std::string::npos || type.find("Heartbeat") != std::string::npos) {
        return;
    }
    if (type.find("SharedBufferChannelDataUpdatedEvent") != std::string::npos) {
        vq::ch::SharedBufferChannelDataUpdatedEvent event;
        GetContext()->DecodeMessage(&message, event);
        LOG_V("Sending %s to %s: %s [%llu...+%llu))", type.c_str(), GetRemote().ToString().c_str(),
              event.server_memory_id().c_str(), static_cast<unsigned long long>(event.updated_offset()),
              static_cast<unsigned long long>(event.updated_size()));
        return;
    }
    LOG_V("Sending %s to %s", type.c_str(), GetRemote().ToString().c_str());
}

ZMQMessagePipeEventListener::ZMQMessagePipeEventListener(AMessageContext* context, MessageAddress remote,
                                                         zmq::socket_t* socket, bool ownsSocket)
    : AMessagePipeEventListener(context, std::move(remote)), ZMQMessagePipeBase(socket, ownsSocket) {}

void ZMQMessagePipeEventListener::ListenTo(std::string const& prefix) {
    Subscribe(prefix);
}

std::optional<EventHeader> ZMQMessagePipeEventListener::ReceiveFrames(zmq::message_t& header,
                                                                      zmq::message_t& body,
                                                                      std::chrono::milliseconds timeout,
                                                                      bool* timedOut) {
    if (IsDisposed() || !Receive({&header, &body}, timeout, timedOut)) {
        return std::nullopt;
    }
    return ParseOrReport(header);
}

AMessage* ZMQMessagePipeEventListener::ReceiveNext(std::chrono::milliseconds timeout, bool* timedOut) {
    if (IsDisposed()) {
        return nullptr;
    }
    // Not by make_unique, which would clear its memory first.
    std::unique_ptr<ZMQChannelMessage> message(new ZMQChannelMessage);
    zmq::message_t header;
    if (!Receive({&header, &message->GetBody()}, timeout, timedOut)) {
        return nullptr;
    }
    // As a rule the thread knows the header, and nothing has to be made of it.
    std::string_view const frame = header.to_string_view();
    if (SeenHeader const* const seen = FindSeen(frame)) {
        message->SetHeader(seen->heldType, frame.substr(seen->typeSize + 1, seen->channelSize),
                           seen->channelId);
    } else if (!ReadHeader(header, *message)) {
        return nullptr;
    }
    if (IsLogged(LogLevel::Trace)) {
        TraceReceived(*message);
    }
    return message.release();
}

bool ZMQMessagePipeEventListener::ReadHeader(zmq::message_t const& header, ZMQChannelMessage& message) {
    std::optional<EventHeader> const parsed = ParseOrReport(header);
    if (parsed) {
        message.SetTypeText(parsed->type);
        message.SetChannelName(parsed->channel);
        message.SetChannelId(parsed->channelId);
    }
    return parsed.has_value();
}

void ZMQMessagePipeEventListener::TraceReceived(ZMQChannelMessage const& message) const {
    LOG_T("Read event data from %s:\n\t%s", GetRemote().ToString().c_str(),
          HexDump(message.GetBody().data(), message.GetBody().size()).c_str());
    TraceSample("Sample in:", message);
}
