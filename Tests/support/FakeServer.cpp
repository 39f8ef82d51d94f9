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
    m_opened.wait(lock, [this] { return m_open; });
}

FakeServer::~FakeServer() {
    Set(m_stop, true);
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
        m_opened.notify_all();
    }
    auto nextHeartbeat = std::chrono::steady_clock::now();
    while (!Get(m_stop)) {
        if (m_deaf) {
            std::this_thread::sleep_for(kPass);
        } else if (std::unique_ptr<AMessage> const message{m_requests->ReceiveNext(kPass, nullptr)}) {
            ServeOne(*message);
        }
        SendQueued();
        ReadDataEvents();
        if (auto const now = std::chrono::steady_clock::now(); now >= nextHeartbeat) {
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

std::vector<std::string> FakeServer::RequestTypes() const {
    std::vector<std::string> types;
    for (Request const& request : Requests()) {
        types.push_back(request.type.substr(request.type.rfind('.') + 1));
    }
    return types;
}

}  // namespace vq::test
