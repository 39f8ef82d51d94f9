// Typed exchange and events against the same frames written by hand on libzmq and protobuf.

#include <unistd.h>
#include <zmq.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "ByHand.h"
#include "ChannelData.pb.h"
#include "Identity.pb.h"
#include "Logging/LogConfig.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "Messaging/ZMQMessageContext.h"
#include "Messaging/ZMQMessagePipeBase.h"
#include "ServerRequests.pb.h"
#include "Twin.h"

namespace {

using bench::Checked;
using bench::HearOfReads;
using bench::Join;
using bench::Places;
using bench::ReceiveBody;
using bench::SendBody;
using bench::Socket;
using Request = vq::sd::VQIdentityGetAttributeNames;
using Reply = Request::Reply;
using Event = vq::ch::Vec3ChannelDataEvent;
using Transport = MessageAddress::Transport;

constexpr std::chrono::milliseconds kTimeout{5000};
constexpr std::size_t kBatch = 100;
constexpr char kChannel[] = "position";
constexpr std::uint32_t kChannelId = 7;

// ---- The base: what one would write for these messages alone.

bool SendByHand(void* socket, std::string_view type, google::protobuf::MessageLite const& message) {
    return zmq_send(socket, "", 0, ZMQ_SNDMORE) >= 0 &&
           zmq_send(socket, type.data(), type.size(), ZMQ_SNDMORE) >= 0 && SendBody(socket, message);
}

bool ReceiveByHand(void* socket, std::string_view type, google::protobuf::MessageLite& message) {
    char name[256];
    if (zmq_recv(socket, name, sizeof name, 0) < 0) {
        return false;
    }
    int const size = zmq_recv(socket, name, sizeof name, 0);
    return size >= 0 && std::string_view(name, static_cast<std::size_t>(size)) == type &&
           ReceiveBody(socket, message);
}

constexpr std::string_view kRequestType = "vq.sd.VQIdentityGetAttributeNames";
constexpr std::string_view kReplyType = "vq.sd.VQIdentityGetAttributeNames.Reply";
constexpr std::string_view kEventType = "vq.ch.Vec3ChannelDataEvent";

bool PublishByHand(void* socket, Event const& event) {
    char header[sizeof kChannel + 64];
    char* cursor = header;
    std::memcpy(cursor, kEventType.data(), kEventType.size());
    cursor += kEventType.size();
    *cursor++ = 0;
    std::memcpy(cursor, kChannel, sizeof kChannel);
    cursor += sizeof kChannel;
    std::memcpy(cursor, &kChannelId, sizeof kChannelId);
    cursor += sizeof kChannelId;
    return zmq_send(socket, header, static_cast<std::size_t>(cursor - header), ZMQ_SNDMORE) >= 0 &&
           SendBody(socket, event);
}

bool TakeByHand(void* socket, Event& event) {
    char header[256];
    int const size = zmq_recv(socket, header, sizeof header, 0);
    return size == static_cast<int>(kEventType.size() + 1 + sizeof kChannel + 4) &&
           std::string_view(header) == kEventType && ReceiveBody(socket, event);
}

// ---- Both ends.

Reply ReplyOf(int attributes) {
    Reply reply;
    reply.set_result(0);
    reply.mutable_profile()->set_attribute_count(static_cast<std::uint32_t>(attributes));
    for (int i = 0; i < attributes; ++i) {
        auto& attribute = *reply.mutable_profile()->add_attributes();
        attribute.set_key(static_cast<vq::sd::VQIdentityAttributeKey>(i % 8));
        attribute.set_name("attribute " + std::to_string(i));
        attribute.set_value("value of the attribute " + std::to_string(i));
        attribute.set_is_requested(true);
        attribute.set_is_granted(i % 2 == 0);
    }
    return reply;
}

class Exchange {
public:
    explicit Exchange(Transport transport) : m_places(transport), m_context(m_places.ours, &m_zmq) {
        joined = Join(m_baseServer.Get(), m_baseClient.Get(), m_places.base);
        m_server = Pipes().GetRequestReplyServer(m_places.ours, "bench");
        joined = joined && m_server != nullptr;
        if (joined) {
            m_client = Pipes().GetRequestReplyClient(m_server->GetRemote(), "bench");
        }
    }

    bool AskByHand() { return SendByHand(m_baseClient.Get(), kRequestType, Request()); }
    bool AnswerByHand(Reply const& reply) {
        Request request;
        return ReceiveByHand(m_baseServer.Get(), kRequestType, request) &&
               SendByHand(m_baseServer.Get(), kReplyType, reply);
    }
    bool TakeAnswerByHand() {
        Reply reply;
        return ReceiveByHand(m_baseClient.Get(), kReplyType, reply) && reply.has_profile();
    }

    bool Ask() { return MessageUtils::Send(m_client, Request(), kTimeout, nullptr); }
    bool Answer(Reply const& reply) {
        Request request;
        return MessageUtils::Receive(m_server, request, std::chrono::milliseconds::max(), nullptr) &&
               MessageUtils::Send(m_server, reply, kTimeout, nullptr);
    }
    bool TakeAnswer() {
        Reply reply;
        vq::vds::Error error;
        return MessageUtils::ReceiveOneOf(m_client, reply, error, kTimeout, nullptr) && reply.has_profile();
    }
    bool AskAndTakeAnswer() {
        Reply reply;
        return MessageUtils::SendReceive(m_client, Request(), reply, kTimeout, nullptr) &&
               reply.has_profile();
    }

    /// Makes every wait of the servers fail.
    void EndWaits() { zmq_ctx_shutdown(m_zmq.handle()); }

    bool joined = false;

private:
    AMessagePipeProvider& Pipes() { return *m_context.GetPipeProvider(); }

    Places m_places;
    zmq::context_t m_zmq;
    ZMQMessageContext m_context;
    Socket m_baseServer{m_zmq.handle(), ZMQ_REP};
    Socket m_baseClient{m_zmq.handle(), ZMQ_REQ};
    AMessagePipeRequestReply* m_server = nullptr;
    AMessagePipeRequestReply* m_client = nullptr;
};

template <int Attributes>
void OnOneThread(benchmark::State& state) {
    Exchange exchange(Transport::LOOPBACK);
    Reply const reply = ReplyOf(Attributes);
    bench::RunTwin(
        state, kBatch,
        Checked(state,
                [&] {
                    return exchange.AskByHand() && exchange.AnswerByHand(reply) &&
                           exchange.TakeAnswerByHand();
                }),
        Checked(state, [&] { return exchange.Ask() && exchange.Answer(reply) && exchange.TakeAnswer(); }));
}

void OnOneThreadQuiet(benchmark::State& state) {
    Exchange exchange(Transport::LOOPBACK);
    Reply const reply = ReplyOf(8);
    bench::RunQuiet(state, kBatch, Checked(state, [&] {
                        return exchange.AskByHand() && exchange.AnswerByHand(reply) &&
                               exchange.TakeAnswerByHand();
                    }));
}

template <Transport transport>
void BetweenThreads(benchmark::State& state) {
    bench::OneProcessor const pinned;
    Exchange exchange(transport);
    if (!exchange.joined) {
        state.SkipWithError("the sockets could not be joined");
        return;
    }
    Reply const reply = ReplyOf(8);
    std::thread byHand([&] {
        while (exchange.AnswerByHand(reply)) {
        }
    });
    std::thread ours([&] {
        while (exchange.Answer(reply)) {
        }
    });
    bench::RunTwin(state, kBatch,
                   Checked(state, [&] { return exchange.AskByHand() && exchange.TakeAnswerByHand(); }),
                   Checked(state, [&] { return exchange.AskAndTakeAnswer(); }));
    LogLevel const level = LogConfig::Instance().SetLevel(LogLevel::Fatal);
    exchange.EndWaits();
    byHand.join();
    ours.join();
    LogConfig::Instance().SetLevel(level);
}

template <Transport transport>
void Publish(benchmark::State& state) {
    bench::OneProcessor const pinned;
    Places const places(transport);
    zmq::context_t zmq;
    ZMQMessageContext context(places.ours, &zmq);
    Socket const publisher(zmq.handle(), ZMQ_PUB);
    Socket const subscriber(zmq.handle(), ZMQ_SUB);
    AMessagePipeProvider& pipes = *context.GetPipeProvider();
    AMessagePipeEventSender* const sender = pipes.GetEventSender(places.ours, "", SocketRole::Bind);
    AMessagePipeEventListener* const listener = pipes.GetEventListener(places.ours, "", SocketRole::Connect);
    if (!Join(publisher.Get(), subscriber.Get(), places.base) || sender == nullptr || listener == nullptr) {
        state.SkipWithError("the sockets could not be joined");
        return;
    }
    listener->ListenTo("");
    Event event;
    event.set_x(1);
    event.set_y(2);
    event.set_z(3);
    std::string const channel = kChannel;
    auto const publish = [&] {
        return MessageUtils::SendEvent(sender, kChannelId, channel, event, kTimeout, nullptr);
    };
    auto const take = [&](std::chrono::milliseconds timeout) {
        std::unique_ptr<AMessage> const message(listener->ReceiveNext(timeout, nullptr));
        Event received;
        return message != nullptr && context.DecodeMessage(message.get(), received) && received.z() == 3;
    };

    // A subscription takes a moment to arrive; what is published before is lost.
    constexpr int kPollMs = 5;
    zmq_pollitem_t item{subscriber.Get(), 0, ZMQ_POLLIN, 0};
    do {
        PublishByHand(publisher.Get(), event);
    } while (zmq_poll(&item, 1, kPollMs) == 0);
    while (zmq_poll(&item, 1, kPollMs) > 0) {
        Event ignored;
        TakeByHand(subscriber.Get(), ignored);
    }
    do {
        publish();
    } while (!take(std::chrono::milliseconds(kPollMs)));
    while (take(std::chrono::milliseconds(kPollMs))) {
    }

    void* const oursPublisher = dynamic_cast<ZMQMessagePipeBase&>(*sender).GetSocket()->handle();
    bench::RunTwin(state, kBatch,
                   Checked(state,
                           [&, count = 0]() mutable {
                               HearOfReads(publisher.Get(), count);
                               Event received;
                               return PublishByHand(publisher.Get(), event) &&
                                      TakeByHand(subscriber.Get(), received) && received.z() == 3;
                           }),
                   Checked(state, [&, count = 0]() mutable {
                       HearOfReads(oursPublisher, count);
                       return publish() && take(kTimeout);
                   }));
}

VQ_TWIN("exchange_8_inproc", OnOneThread<8>);
VQ_TWIN("exchange_50_inproc", OnOneThread<50>);
VQ_TWIN("exchange_8_inproc_quiet", OnOneThreadQuiet);
VQ_TWIN("exchange_threads_ipc", BetweenThreads<Transport::IPC>);
VQ_TWIN("exchange_threads_tcp", BetweenThreads<Transport::SOCKET>);
VQ_TWIN("publish_vec3_inproc", Publish<Transport::LOOPBACK>);
VQ_TWIN("publish_vec3_ipc", Publish<Transport::IPC>);

}  // namespace
