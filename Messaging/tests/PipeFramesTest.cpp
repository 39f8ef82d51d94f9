#include "ChannelData.pb.h"
#include "Messaging/MessageTypeName.h"
#include "Messaging/ZMQMessage.h"
#include "MessagingFixture.h"
#include "ServerRequests.pb.h"
#include "TestSupport/Test.h"

namespace {

using namespace std::string_literals;
using vq::ch::IntegerChannelDataEvent;
using vq::vds::GetVersion;

class PipeFramesTest : public MessagingTest {
protected:
    static IntegerChannelDataEvent Integer(int value) {
        IntegerChannelDataEvent event;
        event.set_value(value);
        return event;
    }
    /// What an event came with; empty without one.
    static std::string HeaderOf(AChannelMessage const* event) {
        int const id = event != nullptr ? event->GetChannelId() : 0;
        return event == nullptr ? ""
                                : event->Type() + '\0' + event->GetChannelName() + '\0' +
                                      std::string(reinterpret_cast<char const*>(&id), sizeof id);
    }
};

TEST_F(PipeFramesTest, ARequestAndItsReplyAreThreeFramesEach) {
    RawSocket replier = Raw(ZMQ_REP, "there");
    AMessagePipeRequestReply* client = Client("there");
    ASSERT_TRUE(MessageUtils::Send(client, GetVersion(), kLimit, nullptr));
    EXPECT_EQ(replier.Receive(), (Frames{"", "vq.vds.GetVersion", ""}));
    // Major 3, minor 7, and a field that nobody knows.
    replier.Send({"any\0identity"s, "vq.vds.GetVersion.Reply", "\x08\x03\x10\x07\xA0\x06\x05"s});
    std::unique_ptr<AMessage> const message = Next(client);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->GetSenderIdentity(), "any\0identity"s);
    GetVersion::Reply reply;
    ASSERT_TRUE(m_context->DecodeMessage(message.get(), reply));
    EXPECT_EQ(reply.minor(), 7);
    EXPECT_EQ(reply.SerializeAsString(), "\x08\x03\x10\x07\xA0\x06\x05"s);

    AMessagePipeRequestReply* server = Server("here");
    RawSocket asker = Raw(ZMQ_REQ, "here");
    asker.Send({"me", "vq.vds.GetVersion", ""});
    ASSERT_NE(Next(server), nullptr);
    server->SetSenderIdentity("us");
    reply.Clear();
    reply.set_major(300);
    ASSERT_TRUE(MessageUtils::Send(server, reply, kUnlimited, nullptr));
    EXPECT_EQ(asker.Receive(), (Frames{"us", "vq.vds.GetVersion.Reply", "\x08\xAC\x02"}));
}

TEST_F(PipeFramesTest, AnEventIsAHeaderAndAPayloadBothWays) {
    AMessagePipeEventSender* sender = Sender("events");
    RawSocket peer = Raw(ZMQ_SUB, "events");
    AMessagePipeEventListener* listener = Listener("events");
    TakeSubscriptions(sender);
    for (std::chrono::milliseconds const timeout : {kNoWait, kLimit, kUnlimited}) {
        ASSERT_TRUE(MessageUtils::SendEvent(sender, -2, "count", Integer(5), timeout, nullptr));
        EXPECT_EQ(peer.Receive(),
                  (Frames{"vq.ch.IntegerChannelDataEvent\0count\0\xFE\xFF\xFF\xFF"s, "\x08\x05"}));
        auto const message = NextEvent(listener);
        EXPECT_EQ(HeaderOf(message.get()), "vq.ch.IntegerChannelDataEvent\0count\0\xFE\xFF\xFF\xFF"s);
        IntegerChannelDataEvent decoded;
        ASSERT_TRUE(m_context->DecodeMessage(message.get(), decoded));
        EXPECT_EQ(decoded.value(), 5);
    }
}

TEST_F(PipeFramesTest, ASubscriptionIsAPrefixOfTypeNames) {
    AMessagePipeEventSender* sender = Sender("events");
    AMessagePipeEventListener* listener = Listener("events", "vq.ch.Hello");
    listener->ListenTo("vq.vds");
    TakeSubscriptions(sender);
    for (char const* type : {"vq.ch.Other", "vq.ch.HelloDataEvent", "vq.vds.X", "vq.vd", "vq.vdsX"}) {
        ASSERT_TRUE(Publish(sender, type, "vq.vds"));
    }
    for (char const* type : {"vq.ch.HelloDataEvent", "vq.vds.X", "vq.vdsX"}) {
        EXPECT_EQ(Next(listener)->Type(), type);
    }
    EXPECT_EQ(Next(listener, kNoWait), nullptr);
}

TEST_F(PipeFramesTest, ABadEventIsConsumedWithALine) {
    RawSocket peer = Raw(ZMQ_XPUB, "events");
    AMessagePipeEventListener* listener = Listener("events");
    ASSERT_EQ(peer.Receive(), (Frames{"\1"}));  // the subscription
    for (Frames const& frames : {Frames{"", "x"},
                                 {"type", "x"},
                                 {"type\0channel"s, "x"},
                                 {"type\0channel\0\1\0\0"s, "x"},
                                 {"type\0channel\0\1\0\0\0\0"s, "x"},
                                 {"type\0\0"s, "x"},
                                 {std::string(1 << 20, 't'), "x"},
                                 {"type\0channel\0\1\0\0\0"s}}) {
        for (std::chrono::milliseconds const timeout : {kNoWait, kLimit}) {
            vq::test::LogCapture log;
            peer.Send(frames);
            peer.Send({"next\0\0\0\0\0\0"s, ""});
            bool timedOut = true;
            EXPECT_EQ(Next(listener, timeout, &timedOut), nullptr);
            // A short message counts as nothing to do for a call that does not wait.
            EXPECT_EQ(timedOut, timeout == kNoWait && frames.size() == 1);
            ASSERT_EQ(log.Lines().size(), 1u) << frames[0];
            EXPECT_LT(log.Lines()[0].size(), std::size_t{300} << 10);
            EXPECT_TRUE(log.Has(LogLevel::Error, frames.size() == 1
                                                     ? "expected MORE after frame:  74 79 70 65 00"
                                                     : "invalid event message frame: "));
            std::unique_ptr<AMessage> const next = Next(listener);
            ASSERT_NE(next, nullptr);
            EXPECT_EQ(next->Type(), "next");
        }
    }
}

TEST_F(PipeFramesTest, HeadersAreToldApartThatDifferInOneByte) {
    RawSocket peer = Raw(ZMQ_XPUB, "events");
    AMessagePipeEventListener* listener = Listener("events");
    ASSERT_EQ(peer.Receive(), (Frames{"\1"}));  // the subscription
    std::string const header = MessageTypeName(Integer(0)) + "\0count\0\7\0\0\0"s;
    vq::test::LogCapture const quiet;
    for (std::size_t place = 0; place < header.size(); ++place) {
        for (char const byte :
             {'\0', static_cast<char>(header[place] ^ 1), static_cast<char>(header[place] ^ 0x80)}) {
            std::string changed = header;
            changed[place] = byte;
            for (std::string const& sent : {header, changed, changed, header}) {
                peer.Send({sent, ""});
                std::size_t const channelEnd = sent.find('\0', sent.find('\0') + 1);
                bool const valid = channelEnd + 1 + sizeof(int) == sent.size();
                EXPECT_EQ(HeaderOf(NextEvent(listener).get()), valid ? sent : "") << place;
            }
        }
    }
}

TEST_F(PipeFramesTest, AnUnansweredRequestBlocksTheClientUntilItsReplyWasRead) {
    RawSocket peer = Raw(ZMQ_REP, "late");
    AMessagePipeRequestReply* client = Client("late");
    bool timedOut = false;
    ASSERT_TRUE(MessageUtils::Send(client, GetVersion(), kLimit, &timedOut));
    EXPECT_EQ(Next(client, kShort, &timedOut), nullptr);
    EXPECT_TRUE(timedOut);
    for (std::chrono::milliseconds const timeout : {kShort, kNoWait, kUnlimited}) {
        vq::test::LogCapture log;
        EXPECT_FALSE(MessageUtils::Send(client, GetVersion(), timeout, &timedOut));
        EXPECT_EQ(timedOut, timeout != kUnlimited);
        ASSERT_EQ(log.Lines().size(), 1u);
        EXPECT_EQ(log.Lines()[0].find(timeout == kShort ? "W ZMQ_POLLOUT timed out for LOOPBACK:late"
                                                        : "E Failed to send message: "),
                  0u);
    }
    std::thread other([&] {
        peer.Receive();
        std::this_thread::sleep_for(kShort * 2);  // longer than the limit that the client used last
        peer.Send({"", "late", ""});
    });
    ASSERT_NE(Next(client, kUnlimited), nullptr);
    other.join();
    EXPECT_TRUE(MessageUtils::Send(client, GetVersion(), kShort, nullptr));
}

TEST_F(PipeFramesTest, EventsAndSamplesAreTracedUnlessTheyWouldFloodTheLog) {
    AMessagePipeEventSender* sender = Sender("events");
    AMessagePipeEventListener* listener = Listener("events");
    TakeSubscriptions(sender);
    vq::test::LogCapture log(LogLevel::Trace);
    Publish(sender, "vq.ch.HelloDataEvent");
    Publish(sender, "vq.vds.DeviceHeartbeatEvent");
    EXPECT_TRUE(Next(listener) != nullptr && Next(listener) != nullptr);
    EXPECT_FALSE(log.Has(LogLevel::Verbose, "Sending") || log.Has(LogLevel::Trace, "Sample"));
    EXPECT_TRUE(log.Has(LogLevel::Trace, " 76 71 2e 63 68 2e 48 65 6c 6c 6f"));
    Publish(sender, "vq.vds.ServerStoppingEvent");
    ASSERT_NE(Next(listener), nullptr);
    EXPECT_TRUE(log.Has(LogLevel::Verbose, "Sending vq.vds.ServerStoppingEvent to LOOPBACK:events"));

    ASSERT_TRUE(MessageUtils::SendEvent(sender, 7, "count", Integer(42), kLimit, nullptr));
    ASSERT_NE(Next(listener), nullptr);
    for (char const* direction : {"out", "in"}) {
        EXPECT_TRUE(log.Has(LogLevel::Trace, "Sample "s + direction +
                                                 ": vq.ch.IntegerChannelDataEvent on channel "
                                                 "'count' (7): value=42 "));
    }
    vq::ch::SharedBufferChannelDataUpdatedEvent update;
    update.set_server_memory_id("mem1");
    update.mutable_descriptor();
    update.set_generation(1);
    update.set_updated_offset(16);
    update.set_updated_size(4294967296);
    ASSERT_TRUE(MessageUtils::SendEvent(sender, 1, "c", update, kLimit, nullptr));
    EXPECT_TRUE(log.Has(LogLevel::Verbose,
                        "Sending vq.ch.SharedBufferChannelDataUpdatedEvent to "
                        "LOOPBACK:events: mem1 [16...+4294967296))"));
}

TEST_F(PipeFramesTest, APipeServesAnotherThreadWithANote) {
    using vq::vds::GetDeviceInfo;
    constexpr int kExchanges = 100;
    AMessagePipeRequestReply* server = Server("threads");
    AMessagePipeRequestReply* client = Client("threads");
    vq::test::LogCapture log(LogLevel::Verbose);
    std::thread other([server] {
        for (int i = 0; i < kExchanges; ++i) {
            GetDeviceInfo request;
            EXPECT_TRUE(MessageUtils::Receive(server, request, kLimit, nullptr));
            EXPECT_TRUE(MessageUtils::SendError<GetDeviceInfo::Error>(server, request.device()));
        }
    });
    for (int i = 0; i < kExchanges; ++i) {
        // From what fits into the socket library's own record to what does not.
        GetDeviceInfo request;
        request.set_device(std::string(static_cast<std::size_t>(i) * 10, 'x'));
        GetDeviceInfo::Reply reply;
        GetDeviceInfo::Error error;
        EXPECT_TRUE(MessageUtils::SendReceive(client, request, reply, error, kLimit, nullptr));
        EXPECT_EQ(error.message(), request.device());
    }
    other.join();
    LogConfig::Instance().SetLevel(LogLevel::Trace);
    std::thread([server] { EXPECT_EQ(Next(server, kNoWait), nullptr); }).join();
    EXPECT_EQ(Next(server, kShort), nullptr);
    EXPECT_EQ(log.Count(LogLevel::Trace, "Accessing message pipe "), 1u);
}

}  // namespace
