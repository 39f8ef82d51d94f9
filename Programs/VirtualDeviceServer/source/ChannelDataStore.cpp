#include "VirtualDeviceServer/ChannelDataStore.h"

#include <set>
#include <utility>

#include "ChannelData.pb.h"
#include "Messaging/MessageTypeName.h"
#include "ServerEvents.pb.h"

namespace vq::server {

ChannelDataStore::ChannelDataStore(EventSink sink, IsChannel isChannel)
    : m_sink(std::move(sink)), m_isChannel(std::move(isChannel)) {}

void ChannelDataStore::Keep(EventHeader const& parsed, zmq::message_t& header, zmq::message_t& body) {
    if (parsed.type == MessageTypeName(vq::ch::HelloDataEvent::default_instance())) {
        return;
    }
    auto place = m_latest.find(parsed.channel);
    if (place == m_latest.end()) {
        if (!m_isChannel(parsed.channel)) {
            return;
        }
        place = m_latest.try_emplace(std::string(parsed.channel)).first;
    }
    // Shares the bytes, unless they are few.
    place->second.header.copy(header);
    place->second.body.copy(body);
}

void ChannelDataStore::ForEachLatest(Send const& send) {
    DropUnregistered();
    for (auto& [channel, sample] : m_latest) {
        zmq::message_t header;
        zmq::message_t body;
        header.copy(sample.header);
        body.copy(sample.body);
        send(header, body);
    }
}

void ChannelDataStore::Fill(std::string const& channel, Sample const& sample,
                            vq::ch::NamedChannelData& data) {
    data.set_channel(channel);
    data.set_type(std::string(EventHeader::Parse(sample.header.to_string_view())->type));
    data.set_data(sample.body.data(), sample.body.size());
}

void ChannelDataStore::GetLatest(google::protobuf::RepeatedPtrField<std::string> const& channels,
                                 NamedData& data) {
    DropUnregistered();
    if (channels.empty()) {
        for (auto const& [channel, sample] : m_latest) {
            Fill(channel, sample, *data.Add());
        }
    }
    // Each once, so that a short request cannot ask for any amount of data.
    std::set<std::string_view> seen;
    for (std::string const& channel : channels) {
        auto const found = m_latest.find(channel);
        if (found != m_latest.end() && seen.insert(channel).second) {
            Fill(channel, found->second, *data.Add());
        }
    }
}

ChannelDataStore::Refusal ChannelDataStore::RefuseUnknown(std::string const& channel) const {
    return m_isChannel(channel) ? Refusal() : "there is no channel '" + channel + "'";
}

ChannelDataStore::Refusal ChannelDataStore::SetAbsolute(vq::ch::NamedChannelData const* data) {
    if (data == nullptr || !data->has_type() || !data->has_data()) {
        return "there is no data to set";
    }
    if (auto refusal = RefuseUnknown(data->channel()); refusal) {
        return refusal;
    }
    m_absolute[data->channel()] = *data;
    vq::vds::ChannelAbsoluteDataChangedEvent event;
    *event.mutable_data() = *data;
    m_sink(event);
    return std::nullopt;
}

ChannelDataStore::Refusal ChannelDataStore::GetAbsolute(std::string const& channel,
                                                        vq::ch::NamedChannelData const*& data) const {
    auto const found = m_absolute.find(channel);
    data = found != m_absolute.end() ? &found->second : nullptr;
    return RefuseUnknown(channel);
}

ChannelDataStore::Refusal ChannelDataStore::ResetAbsolute(std::string const& channel) {
    if (auto refusal = RefuseUnknown(channel); refusal) {
        return refusal;
    }
    if (m_absolute.erase(channel) != 0) {
        // The channel alone: there is no data any more.
        vq::vds::ChannelAbsoluteDataChangedEvent event;
        event.mutable_data()->set_channel(channel);
        m_sink(event);
    }
    return std::nullopt;
}

void ChannelDataStore::DropUnregistered() {
    auto const isGone = [this](auto const& entry) { return !m_isChannel(entry.first); };
    std::erase_if(m_latest, isGone);
    std::erase_if(m_absolute, isGone);
}

}  // namespace vq::server
