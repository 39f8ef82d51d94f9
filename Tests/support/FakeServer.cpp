#include "TestSupport/FakeServer.h"

#include <cstdlib>

#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "Messaging/ZMQMessage.h"
#include "ServerEvents.pb.h"

namespace vq::test {

namespace {

constexpr std::chrono::milliseconds kPass{5};
constexpr std::chrono::milliseconds kHeartbeatInterval{500};
constexpr std::chrono::milliseconds kNoWait{0};

std::string PayloadOf(AMessage const& message) {
    return ZMQMessageBody::Of(&message)->GetBody().to_string();
}

}  // namespace

FakeServer::FakeServer(std::string const& location, std::int32_t firstDeviceId)
    : m_address{location, MessageAddress::Transport::IPC, ""}, m_nextDeviceId(firstDeviceId) {
    setenv("VQ_VDS_ADDRESS", m_address.ToString().c_str(), 1);
    SetupAnswers();
    m_thread = std::thread([this] { Run(); });
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_open; });
}

FakeServer::~FakeServer() {
    {
        std::lock_guard const lock(m_mutex);
        m_stop = true;
    }
    m_thread.join();
}

FakeServer::Reply FakeServer::Refuse(std::string const& text) {
    auto error = std::make_unique<vq::vds::Error>();
    error->set_message(text);
    return error;
}

void FakeServer::OpenPipes() {
    AMessagePipeProvider* const provider = m_manager.GetContext(m_address)->GetPipeProvider();
    auto const part = [this](char const* name) {
        return MessageAddress{m_address.location, m_address.transport, name};
    };
    m_requests = provider->GetRequestReplyServer(m_address, "");
    m_events = provider->GetEventSender(part("events"), "", SocketRole::Bind);
    m_data = provider->GetEventSender(part("data"), "", SocketRole::Bind);
    m_heartbeat = provider->GetEventSender(part("heartbeat"), "", SocketRole::Bind);
}

void FakeServer::Run() {
    OpenPipes();
    {
        std::lock_guard const lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    auto nextHeartbeat = std::chrono::steady_clock::now();
    for (;;) {
        bool beats = false;
        {
            std::lock_guard const lock(m_mutex);
            if (m_stop) {
                break;
            }
            beats = m_beats;
        }
        if (m_deaf) {
            std::this_thread::sleep_for(kPass);
        } else if (std::unique_ptr<AMessage> const message{m_requests->ReceiveNext(kPass, nullptr)}) {
            ServeOne(*message);
        }
        SendQueued();
        ReadDataEvents();
        if (auto const now = std::chrono::steady_clock::now(); beats && now >= nextHeartbeat) {
            nextHeartbeat = now + kHeartbeatInterval;
            MessageUtils::SendEvent(m_heartbeat, 0, "", vq::vds::ServerHeartbeat(), kNoWait, nullptr);
        }
    }
    m_manager.Cleanup();
}

void FakeServer::ServeOne(AMessage& message) {
    std::string const payload = PayloadOf(message);
    std::function<Reply(std::string const&)> answer;
    {
        std::lock_guard const lock(m_mutex);
        m_received.push_back({message.Type(), payload});
        m_changed.notify_all();
        if (auto const found = m_answers.find(message.Type()); found != m_answers.end()) {
            answer = found->second;
        }
    }
    Reply const reply = answer ? answer(payload) : Refuse("no answer for " + message.Type());
    if (reply == nullptr) {
        m_deaf = true;
        return;
    }
    MessageUtils::Send(m_requests, *reply, std::chrono::seconds(1), nullptr);
}

void FakeServer::SendQueued() {
    std::deque<Outgoing> outgoing;
    {
        std::lock_guard const lock(m_mutex);
        outgoing.swap(m_outgoing);
    }
    for (Outgoing const& item : outgoing) {
        MessageUtils::SendEvent(item.isData ? m_data : m_events, item.channelId, item.channel, *item.event,
                                kNoWait, nullptr);
    }
}

void FakeServer::ReadDataEvents() {
    for (AMessagePipeEventListener* const listener : m_dataListeners) {
        while (std::unique_ptr<AMessage> const message{listener->ReceiveNext(kNoWait, nullptr)}) {
            auto const& event = dynamic_cast<AChannelMessage const&>(*message);
            std::lock_guard const lock(m_mutex);
            m_dataEvents.push_back(
                {event.Type(), event.GetChannelName(), event.GetChannelId(), PayloadOf(event)});
            m_changed.notify_all();
        }
    }
}

void FakeServer::QueueEvent(google::protobuf::MessageLite const& event, std::string channel, int channelId,
                            bool isData) {
    std::unique_ptr<google::protobuf::MessageLite> copy(event.New());
    copy->CheckTypeAndMergeFrom(event);
    std::lock_guard const lock(m_mutex);
    m_outgoing.push_back({std::move(copy), std::move(channel), channelId, isData});
}

void FakeServer::Publish(google::protobuf::MessageLite const& event) {
    QueueEvent(event, "", 0, false);
}

void FakeServer::PublishData(google::protobuf::MessageLite const& event, std::string const& channel,
                             int channelId) {
    QueueEvent(event, channel, channelId, true);
}

void FakeServer::SetMappings(std::vector<std::pair<std::string, std::string>> mappings) {
    std::lock_guard const lock(m_mutex);
    m_mappings = std::move(mappings);
}

void FakeServer::SetAutoStats(bool enable) {
    std::lock_guard const lock(m_mutex);
    m_autoStats = enable;
}

void FakeServer::StopHeartbeat() {
    std::lock_guard const lock(m_mutex);
    m_beats = false;
}

void FakeServer::SetDataPath(std::string path) {
    std::lock_guard const lock(m_mutex);
    m_dataPath = std::move(path);
}

void FakeServer::SetProtocolVersion(std::int32_t version) {
    std::lock_guard const lock(m_mutex);
    m_protocolVersion = version;
}

void FakeServer::SetDeviceAddress(std::string const& device, std::string const& address) {
    std::lock_guard const lock(m_mutex);
    m_deviceAddresses[device] = address;
}

std::string FakeServer::DeviceAddress(std::string const& device) const {
    std::lock_guard const lock(m_mutex);
    auto const found = m_deviceAddresses.find(device);
    return found == m_deviceAddresses.end() ? std::string() : found->second;
}

std::vector<FakeServer::Request> FakeServer::Requests() const {
    std::lock_guard const lock(m_mutex);
    return m_received;
}

std::vector<std::string> FakeServer::RequestTypes() const {
    std::vector<std::string> types;
    for (Request const& request : Requests()) {
        types.push_back(request.type.substr(request.type.rfind('.') + 1));
    }
    return types;
}

void FakeServer::ClearRequests() {
    std::lock_guard const lock(m_mutex);
    m_received.clear();
}

bool FakeServer::WaitForType(std::string const& type, std::size_t count, std::chrono::milliseconds limit) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, limit, [&] {
        std::size_t seen = 0;
        for (Request const& request : m_received) {
            seen += request.type == type;
        }
        return seen >= count;
    });
}

std::vector<FakeServer::DataEvent> FakeServer::DataEvents() const {
    std::lock_guard const lock(m_mutex);
    return m_dataEvents;
}

}  // namespace vq::test
