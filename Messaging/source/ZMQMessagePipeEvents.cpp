#include <zmq.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>

#include "ChannelData.pb.h"
#include "Logging/Log.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/ZMQMessagePipes.h"
#include "Utils/ProtoDump.h"
#include "Utils/TextUtils.h"

namespace {

/// Two NULs and the channel id.
constexpr std::size_t kHeaderOverhead = 2 + 4;

zmq::message_t BuildHeader(ZMQChannelMessage const& message) {
    std::string const& type = message.Type();
    std::string const& channel = message.GetChannelName();
    zmq::message_t header(type.size() + channel.size() + kHeaderOverhead);
    auto* cursor = header.data<std::uint8_t>();
    for (std::string const* text : {&type, &channel}) {
        std::memcpy(cursor, text->data(), text->size());
        cursor += text->size();
        *cursor++ = 0;
    }
    ZMQMessagePipeBase::WriteUInt32(cursor, static_cast<std::uint32_t>(message.GetChannelId()));
    return header;
}

/// Takes the text up to the next NUL and moves behind it; nothing when there is none before the end.
std::optional<std::string> ReadText(std::uint8_t const*& cursor, std::uint8_t const* end) {
    std::size_t const left = static_cast<std::size_t>(end - cursor);
    auto const* nul = left == 0 ? nullptr : static_cast<std::uint8_t const*>(std::memchr(cursor, 0, left));
    if (nul == nullptr) {
        return std::nullopt;
    }
    std::string text(cursor, nul);
    cursor = nul + 1;
    return text;
}

/// A message with what the header says and no payload yet; null when it is not exactly a header.
std::unique_ptr<ZMQChannelMessage> ParseHeader(zmq::message_t const& header) {
    auto const* cursor = header.data<std::uint8_t>();
    auto const* const end = cursor + header.size();
    std::optional<std::string> const type = ReadText(cursor, end);
    std::optional<std::string> const channel = type ? ReadText(cursor, end) : std::nullopt;
    if (!channel || end - cursor != 4) {
        return nullptr;
    }
    auto message = std::make_unique<ZMQChannelMessage>();
    message->SetType(*type);
    message->SetChannelName(*channel);
    message->SetChannelId(static_cast<int>(ZMQMessagePipeBase::ReadUInt32(cursor)));
    return message;
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
    zmq::message_t header = BuildHeader(event);
    Frames const frames = {&header, &event.GetBody()};

    if (!IsLogged(LogLevel::Verbose)) {
        if (std::optional<bool> const sent = TrySend(frames, timeout, timedOut)) {
            return *sent;
        }
    }
    int flags = 0;
    if (!PollFor(ZMQ_POLLOUT, flags, timeout, timedOut)) {
        LOG_W("ZMQ_POLLOUT timed out for %s", GetRemote().ToString().c_str());
        return false;
    }
    if (IsLogged(LogLevel::Verbose)) {
        LogSending(event);
    }
    LOG_T("%s", HexDump(header.data(), header.size()).c_str());
    if (IsLogged(LogLevel::Trace)) {
        TraceSample("Sample out:", event);
    }
    return FinishSend(flags, frames, timedOut);
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
    GetSocket()->set(zmq::sockopt::subscribe, prefix);
}

AMessage* ZMQMessagePipeEventListener::ReceiveNext(std::chrono::milliseconds timeout, bool* timedOut) {
    if (IsDisposed()) {
        return nullptr;
    }
    zmq::message_t header;
    zmq::message_t body;
    if (!Receive({&header, &body}, timeout, timedOut)) {
        return nullptr;
    }
    std::unique_ptr<ZMQChannelMessage> message = ParseHeader(header);
    if (message == nullptr) {
        LOG_E("invalid event message frame: %s", HexDump(header.data(), header.size()).c_str());
        return nullptr;
    }
    message->GetBody().swap(body);
    LOG_T("Read event data from %s:\n\t%s", GetRemote().ToString().c_str(),
          HexDump(message->GetBody().data(), message->GetBody().size()).c_str());
    if (IsLogged(LogLevel::Trace)) {
        TraceSample("Sample in:", *message);
    }
    return message.release();
}
