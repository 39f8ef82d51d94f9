#include <thread>

#include "ChannelData.pb.h"
#include "Messaging/ZMQMessage.h"
#include "MessagingFixture.h"
#include "ServerRequests.pb.h"

namespace {

using namespace std::string_literals;

class PipeFramesTest : public MessagingTest {};

TEST_F(PipeFramesTest, ARequestAndItsReplyAreThreeFramesEach) {
    zmq::socket_t peer = Bind(ZMQ_REP, "version");
    AMessagePipeRequestReply* client = Client("version");
    ASSERT_TRUE(MessageUtils::Send(client, vq::vds::GetVersion(), kLimit, nullptr));
    EXPECT_EQ(ReceiveFrames(peer), (Frames{"", "vq.vds.GetVersion", ""}));

    // Major 3, minor 7, and a field that nobody knows.
    SendFrames(peer, {"any\0identity"s, "vq.vds.GetVersion.Reply", "\x08\x03\x10\x07\xA0\x06\x05"s});
    std::unique_ptr<AMessage> const message = Next(client);
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->GetSenderIdentity(), "any\0identity"s);
    vq::vds::GetVersion::Reply reply;
    ASSERT_TRUE(m_context->DecodeMessage(message.get(), reply));
    EXPECT_EQ(reply.major(), 3);
    EXPECT_EQ(reply.minor(), 7);
    EXPECT_EQ(reply.SerializeAsString(), "\x08\x03\x10\x07\xA0\x06\x05"s);
}

TEST_F(PipeFramesTest, AServerReadsAndWritesTheSameFrames) {
    AMessagePipeRequestReply* server = Server("version");
    zmq::socket_t peer = Connect(ZMQ_REQ, "version");
    SendFrames(peer, {"me", "vq.vds.GetVersion", ""});
    std::unique_ptr<AMessage> const request = Next(server);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->Type(), "vq.vds.GetVersion");

    server->SetSenderIdentity("us");
    vq::vds::GetVersion::Reply reply;
    reply.set_major(300);
    ASSERT_TRUE(MessageUtils::Send(server, reply, kUnlimited, nullptr));
    EXPECT_EQ(ReceiveFrames(peer), (Frames{"us", "vq.vds.GetVersion.Reply", "\x08\xAC\x02"}));
}

TEST_F(PipeFramesTest, AnEventIsAHeaderAndAPayloadBothWays) {
    AMessagePipeEventSender* sender = Sender("events");
    zmq::socket_t peer = Connect(ZMQ_SUB, "events");
    TakeSubscriptions(sender);
    vq::ch::IntegerChannelDataEvent event;
    event.set_value(5);
    std::string const golden = "vq.ch.IntegerChannelDataEvent\0count\0\7\0\0\0"s;
    for (std::chrono::milliseconds const timeout : {kNoWait, kLimit, kUnlimited}) {
        ASSERT_TRUE(MessageUtils::SendEvent(sender, 7, "count", event, timeout, nullptr));
        EXPECT_EQ(ReceiveFrames(peer), (Frames{golden, "\x08\x05"}));
    }
    ASSERT_TRUE(MessageUtils::SendEvent(sender, -2, "", event, kLimit, nullptr));
    EXPECT_EQ(ReceiveFrames(peer)[0], "vq.ch.IntegerChannelDataEvent\0\0\xFE\xFF\xFF\xFF"s);

    AMessagePipeEventListener* listener = Listener("events");
    TakeSubscriptions(sender);
    ASSERT_TRUE(MessageUtils::SendEvent(sender, 0x01020304, "count", event, kLimit, nullptr));
    std::unique_ptr<AMessage> const received = Next(listener);
    auto const* const message = dynamic_cast<AChannelMessage*>(received.get());
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->GetChannelId(), 0x01020304);
    EXPECT_EQ(message->GetChannelName(), "count");
    vq::ch::IntegerChannelDataEvent decoded;
    ASSERT_TRUE(m_context->DecodeMessage(message, decoded));
    EXPECT_EQ(decoded.value(), 5);
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
    zmq::socket_t peer = Bind(ZMQ_XPUB, "events");
    AMessagePipeEventListener* listener = Listener("events");
    ASSERT_EQ(ReceiveFrames(peer), (Frames{"\1"}));  // the subscription
    struct Case {
        Frames frames;
        char const* line;
    };
    Case const cases[] = {
        {{""s, "x"}, "invalid event message frame: "},
        {{"type", "x"}, "invalid event message frame: "},
        {{"type\0channel"s, "x"}, "invalid event message frame: "},
        {{"type\0channel\0\1\0\0"s, "x"}, "invalid event message frame: "},
        {{"type\0channel\0\1\0\0\0\0"s, "x"}, "invalid event message frame: "},
        {{"type\0\0"s, "x"}, "invalid event message frame: "},
        {{"type\0channel\0\1\0\0\0"s}, "expected MORE after frame:  74 79 70 65 00"},
    };
    for (Case const& c : cases) {
        for (std::chrono::milliseconds const timeout : {kNoWait, kLimit}) {
            vq::test::LogCapture log;
            SendFrames(peer, c.frames);
            SendFrames(peer, {"\0\0\0\0\0\0"s, ""});
            bool timedOut = true;
            EXPECT_EQ(Next(listener, timeout, &timedOut), nullptr);
            // A short message counts as nothing to do for a call that does not wait.
            EXPECT_EQ(timedOut, timeout == kNoWait && c.frames.size() == 1);
            ASSERT_EQ(log.Lines().size(), 1u) << testing::PrintToString(c.frames);
            EXPECT_TRUE(log.Has(LogLevel::Error, c.line)) << log.Lines()[0];
            // The next event is read from its beginning.
            std::unique_ptr<AMessage> const next = Next(listener);
            ASSERT_NE(next, nullptr);
            EXPECT_EQ(next->Type(), "");
        }
    }
}

TEST_F(PipeFramesTest, AServerAnswersARequestOfTooFewFramesAndGoesOn) {
    AMessagePipeRequestReply* server = Server("short");
    zmq::socket_t peer = Connect(ZMQ_REQ, "short");
    for (Frames const& frames : {Frames{""}, Frames{"", "vq.vds.GetVersion"}}) {
        vq::test::LogCapture log;
        SendFrames(peer, frames);
        EXPECT_EQ(Next(server), nullptr);
        EXPECT_EQ(log.Count(LogLevel::Error, "expected MORE after frame: "), 1u);
        ASSERT_TRUE(server->OwesAnswerToMalformed());
        ASSERT_TRUE(MessageUtils::SendError<vq::vds::Error>(server, "bad"));
        EXPECT_FALSE(server->OwesAnswerToMalformed());
        EXPECT_EQ(ReceiveFrames(peer), (Frames{"", "vq.vds.Error", "\n\3bad"}));
    }
    SendFrames(peer, {"", "vq.vds.GetVersion", ""});
    EXPECT_NE(Next(server), nullptr);
}

TEST_F(PipeFramesTest, FramesBehindTheThirdStayUntilDrained) {
    AMessagePipeRequestReply* server = Server("long");
    zmq::socket_t peer = Connect(ZMQ_REQ, "long");
    for (Frames const& frames : {Frames{"", "a", "b", "c"}, Frames{"", "a", "b", "c", "d", "e", "f", "g"}}) {
        SendFrames(peer, frames);
        ASSERT_NE(Next(server), nullptr);
        EXPECT_TRUE(server->DrainExtraFrames());
        EXPECT_FALSE(server->DrainExtraFrames());
        EXPECT_TRUE(MessageUtils::SendError<vq::vds::Error>(server, "bad"));
        EXPECT_EQ(ReceiveFrames(peer).size(), 3u);
    }
    // Whoever does not drain finds the fourth frame as a message of its own.
    vq::test::LogCapture log;
    SendFrames(peer, {"", "a", "b", "c"});
    ASSERT_NE(Next(server), nullptr);
    EXPECT_FALSE(MessageUtils::SendError<vq::vds::Error>(server, "too early"));
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to send message: "));
    EXPECT_EQ(Next(server), nullptr);
    EXPECT_TRUE(server->OwesAnswerToMalformed());
    EXPECT_TRUE(MessageUtils::SendError<vq::vds::Error>(server, "bad"));
}

TEST_F(PipeFramesTest, AnIdleReaderTimesOutWithoutALine) {
    vq::test::LogCapture log;
    for (AMessageReader* reader :
         {static_cast<AMessageReader*>(Server("idle")), static_cast<AMessageReader*>(Listener("idle2"))}) {
        for (std::chrono::milliseconds const timeout : {kNoWait, kShort}) {
            bool timedOut = false;
            auto const start = std::chrono::steady_clock::now();
            EXPECT_EQ(Next(reader, timeout, &timedOut), nullptr);
            EXPECT_GE(std::chrono::steady_clock::now() - start, timeout);
            EXPECT_TRUE(timedOut);
            EXPECT_EQ(Next(reader, timeout, nullptr), nullptr);
        }
    }
    // Also where nothing can come: a client that has not asked.
    bool timedOut = false;
    EXPECT_EQ(Next(Client("idle"), kShort, &timedOut), nullptr);
    EXPECT_TRUE(timedOut);
    EXPECT_TRUE(log.Lines().empty()) << testing::PrintToString(log.Lines());
}

TEST_F(PipeFramesTest, ATimedReceiveLeavesTheLimitOfAnUnlimitedOneAlone) {
    AMessagePipeRequestReply* client = Client("limit");
    zmq::socket_t peer = Bind(ZMQ_REP, "limit");
    ASSERT_TRUE(MessageUtils::Send(client, vq::vds::GetVersion(), kLimit, nullptr));
    EXPECT_EQ(Next(client, std::chrono::milliseconds(1)), nullptr);
    std::thread other([&] {
        ReceiveFrames(peer);
        std::this_thread::sleep_for(kShort);  // longer than the limit just used
        SendFrames(peer, {"", "late", ""});
    });
    EXPECT_NE(Next(client, kUnlimited), nullptr);
    other.join();
}

TEST_F(PipeFramesTest, AnUnansweredRequestBlocksTheClientUntilItsReplyWasRead) {
    zmq::socket_t peer = Bind(ZMQ_REP, "late");
    AMessagePipeRequestReply* client = Client("late");
    vq::vds::GetVersion const request;
    bool timedOut = false;
    ASSERT_TRUE(MessageUtils::Send(client, request, kLimit, &timedOut));
    EXPECT_EQ(Next(client, kShort, &timedOut), nullptr);
    EXPECT_TRUE(timedOut);

    struct Case {
        std::chrono::milliseconds timeout;
        bool timedOut;
        LogLevel level;
        char const* line;
    };
    Case const cases[] = {
        {kShort, true, LogLevel::Warning, "ZMQ_POLLOUT timed out for LOOPBACK:late"},
        {kNoWait, true, LogLevel::Error, "Failed to send message: "},
        {kUnlimited, false, LogLevel::Error, "Failed to send message: "},
    };
    for (Case const& c : cases) {
        vq::test::LogCapture log;
        EXPECT_FALSE(MessageUtils::Send(client, request, c.timeout, &timedOut));
        EXPECT_EQ(timedOut, c.timedOut);
        EXPECT_EQ(log.Lines().size(), 1u);
        EXPECT_TRUE(log.Has(c.level, c.line)) << testing::PrintToString(log.Lines());
    }
    ReceiveFrames(peer);
    SendFrames(peer, {"", "late", ""});
    ASSERT_NE(Next(client), nullptr);
    EXPECT_TRUE(MessageUtils::Send(client, request, kShort, nullptr));
}

TEST_F(PipeFramesTest, AMessageCanBeSentOnceAndOnlyOnItsKindOfPipe) {
    zmq::socket_t peer = Bind(ZMQ_ROUTER, "once");
    AMessagePipeRequestReply* first = Client("once");
    AMessagePipeRequestReply* second = Pipes()->GetRequestReplyClient(Loopback("once"), "second");
    std::unique_ptr<AMessage> const message(first->NewMessage());
    EXPECT_EQ(message->Type(), "<unset>");
    message->SetType("t");
    ZMQMessageBody::Of(message.get())->GetBody() = zmq::message_t("body"s);
    ASSERT_TRUE(first->SendNext(message.get(), kLimit, nullptr));
    ASSERT_TRUE(second->SendNext(message.get(), kLimit, nullptr));
    EXPECT_EQ(ReceiveFrames(peer).back(), "body");
    EXPECT_EQ(ReceiveFrames(peer).back(), "");

    vq::test::LogCapture log;
    AMessagePipeEventSender* sender = Sender("events");
    std::unique_ptr<AMessage> const plain(sender->NewMessage());
    std::unique_ptr<AMessage> const event(sender->NewChannelMessage());
    EXPECT_FALSE(sender->SendNext(plain.get(), kLimit, nullptr));
    EXPECT_FALSE(sender->SendNext(nullptr, kLimit, nullptr));
    AMessagePipeRequestReply* third = Pipes()->GetRequestReplyClient(Loopback("once"), "third");
    EXPECT_FALSE(third->SendNext(event.get(), kLimit, nullptr));
    EXPECT_FALSE(third->SendNext(nullptr, kLimit, nullptr));
    EXPECT_TRUE(log.Has(LogLevel::Error, "expected ZMQChannelMessage for message " + plain->Dump()));
    EXPECT_TRUE(log.Has(LogLevel::Error, "expected ZMQChannelMessage for message <null>"));
    EXPECT_TRUE(log.Has(LogLevel::Error, "expected ZMQMessage for message " + event->Dump()));
    EXPECT_TRUE(log.Has(LogLevel::Error, "expected ZMQMessage for message <null>"));
}

TEST_F(PipeFramesTest, TheSenderNamesWhatItPublishesUnlessItWouldFloodTheLog) {
    AMessagePipeEventSender* sender = Sender("events");
    vq::ch::SharedBufferChannelDataUpdatedEvent update;
    update.set_server_memory_id("mem1");
    update.mutable_descriptor();
    update.set_generation(1);
    update.set_updated_offset(16);
    update.set_updated_size(4294967296);
    vq::test::LogCapture log(LogLevel::Trace);
    Publish(sender, "vq.ch.HelloDataEvent");
    Publish(sender, "vq.vds.DeviceHeartbeatEvent");
    EXPECT_FALSE(log.Has(LogLevel::Verbose, "Sending"));
    EXPECT_TRUE(log.Has(LogLevel::Trace, " 76 71 2e 63 68 2e 48 65 6c 6c 6f"));
    Publish(sender, "vq.vds.ServerStoppingEvent");
    EXPECT_TRUE(log.Has(LogLevel::Verbose, "Sending vq.vds.ServerStoppingEvent to LOOPBACK:events"));
    ASSERT_TRUE(MessageUtils::SendEvent(sender, 1, "c", update, kLimit, nullptr));
    EXPECT_TRUE(log.Has(LogLevel::Verbose,
                        "Sending vq.ch.SharedBufferChannelDataUpdatedEvent to "
                        "LOOPBACK:events: mem1 [16...+4294967296))"));
}

TEST_F(PipeFramesTest, SamplesAreTracedInReadableFormOnTheirWayOutAndIn) {
    AMessagePipeEventSender* sender = Sender("samples");
    AMessagePipeEventListener* listener = Listener("samples");
    vq::ch::IntegerChannelDataEvent sample;
    sample.set_value(42);
    vq::test::LogCapture log(LogLevel::Trace);
    TakeSubscriptions(sender);
    ASSERT_TRUE(MessageUtils::SendEvent(sender, 7, "count", sample, kLimit, nullptr));
    ASSERT_NE(Next(listener), nullptr);
    std::string const line = "vq.ch.IntegerChannelDataEvent on channel 'count' (7): value=42 ";
    EXPECT_TRUE(log.Has(LogLevel::Trace, "Sample out: " + line));
    EXPECT_TRUE(log.Has(LogLevel::Trace, "Sample in: " + line));
    log.Clear();
    Publish(sender, "vq.ch.HelloDataEvent");
    EXPECT_FALSE(log.Has(LogLevel::Trace, "Sample"));
}

TEST_F(PipeFramesTest, APipeServesAnotherThreadWithANote) {
    constexpr int kExchanges = 100;
    AMessagePipeRequestReply* server = Server("threads");
    AMessagePipeRequestReply* client = Client("threads");
    vq::test::LogCapture log(LogLevel::Verbose);
    std::thread other([server] {
        for (int i = 0; i < kExchanges; ++i) {
            vq::vds::GetDeviceInfo request;
            EXPECT_TRUE(MessageUtils::Receive(server, request, kLimit, nullptr));
            EXPECT_TRUE(MessageUtils::SendError<vq::vds::GetDeviceInfo::Error>(server, request.device()));
        }
    });
    for (int i = 0; i < kExchanges; ++i) {
        // From what fits into the socket library's own record to what does not.
        vq::vds::GetDeviceInfo request;
        request.set_device(std::string(static_cast<std::size_t>(i) * 10, 'x'));
        vq::vds::GetDeviceInfo::Reply reply;
        vq::vds::GetDeviceInfo::Error error;
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
