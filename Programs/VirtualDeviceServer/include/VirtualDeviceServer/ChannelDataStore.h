#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>
#include <zmq.hpp>

#include "ChannelTypes.pb.h"
#include "Messaging/EventHeader.h"

namespace google::protobuf {
class MessageLite;
}

namespace vq::server {

/// What the server keeps of the data on the channels: the latest sample of each, whoever sent it, and the
/// absolute data that a client has set. Only channels that are registered have either.
///
/// Operations that can refuse give the reason as a text for the client, and nothing when all went well.
///
/// Threads: one.
class ChannelDataStore {
public:
    using EventSink = std::function<void(google::protobuf::MessageLite const&)>;
    /// Whether a channel of that name is registered.
    using IsChannel = std::function<bool(std::string_view name)>;
    using Refusal = std::optional<std::string>;

    /// @param sink  gets the events of changed absolute data; must not call back
    ChannelDataStore(EventSink sink, IsChannel isChannel);

    /// Keeps a sample, sharing its frames. Greetings are none.
    /// @param parsed  what the header says
    void Keep(EventHeader const& parsed, zmq::message_t& header, zmq::message_t& body);

    /// The frames of the latest sample of every channel, in the order of the names; they are shared.
    using Send = std::function<void(zmq::message_t& header, zmq::message_t& body)>;
    void ForEachLatest(Send const& send);

    /// The latest samples of the channels of those names that have one, each once; of all for no names.
    using NamedData = google::protobuf::RepeatedPtrField<vq::ch::NamedChannelData>;
    void GetLatest(google::protobuf::RepeatedPtrField<std::string> const& channels, NamedData& data);

    /// @param data  null, or without data, is refused
    Refusal SetAbsolute(vq::ch::NamedChannelData const* data);
    /// @param data  null when nothing is set; else valid until the next call
    Refusal GetAbsolute(std::string const& channel, vq::ch::NamedChannelData const*& data) const;
    Refusal ResetAbsolute(std::string const& channel);

    /// Forgets the channels that are not registered any more.
    void DropUnregistered();

private:
    struct Sample {
        zmq::message_t header;
        zmq::message_t body;
    };

    static void Fill(std::string const& channel, Sample const& sample, vq::ch::NamedChannelData& data);
    Refusal RefuseUnknown(std::string const& channel) const;

    EventSink m_sink;
    IsChannel m_isChannel;
    std::map<std::string, Sample, std::less<>> m_latest;
    std::map<std::string, vq::ch::NamedChannelData> m_absolute;
};

}  // namespace vq::server
