#include <thread>

#include "MessagingFixture.h"
#include "ServerRequests.pb.h"

namespace {

using namespace std::string_literals;

constexpr char kText[] = "\n\4text";  // an error message's payload

/// A client and, as its server, a bare socket that already has an answer for the next request.
class TypedExchangeTest : public MessagingTest {
protected:
    /// Sends GetDeviceInfo while the peer answers with a type and a payload.
    bool Exchange(std::string const& type, std::string const& payload) {
        std::thread peer([&] {
            ReceiveFrames(m_peer);
            SendFrames(m_peer, {"", type, payload});
        });
        vq::vds::GetDeviceInfo request;
        request.set_device("d");
        m_reply.Clear();
        m_error.Clear();
        bool const result =
            MessageUtils::SendReceive(m_client, request, m_reply, m_error, kLimit, &m_timedOut);
        peer.join();
        return result;
    }

    zmq::socket_t m_peer = Bind(ZMQ_REP, "server");
    AMessagePipeRequestReply* m_client = Client("server");
    vq::vds::GetDeviceInfo::Reply m_reply;
    vq::vds::GetDeviceInfo::Error m_error;
    bool m_timedOut = true;
};

TEST_F(TypedExchangeTest, TheThreeLevelsOfAnAnswerAreToldApart) {
    vq::test::LogCapture log;
    EXPECT_TRUE(Exchange("vq.vds.GetDeviceInfo.Reply", ""));
    EXPECT_FALSE(m_error.IsInitialized());
    EXPECT_TRUE(Exchange("vq.vds.GetDeviceInfo.Error", kText));
    EXPECT_EQ(m_error.message(), "text");
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_FALSE(Exchange("vq.vds.Error", kText));
    EXPECT_FALSE(m_timedOut);
    EXPECT_EQ(log.Lines(), (Frames{"E got protocol error from vq.vds.GetDeviceInfo: text"}));
}

TEST_F(TypedExchangeTest, AnUnexpectedAnswerIsNamedAndLost) {
    struct Case {
        char const* type;
        std::string payload;
    };
    for (Case const& c : {Case{"vq.vds.Ping.Reply", ""}, Case{"vq.vds.GetDeviceInfo.Error", ""},
                          Case{"vq.vds.Error", "\xFF\xFF"}}) {
        vq::test::LogCapture log;
        EXPECT_FALSE(Exchange(c.type, c.payload));
        EXPECT_EQ(log.Lines(), (Frames{"E Unexpected message received, wanted vq.vds.GetDeviceInfo.Reply or "
                                       "vq.vds.GetDeviceInfo.Error or vq.vds.Error got "s +
                                       c.type}));
    }
    EXPECT_TRUE(Exchange("vq.vds.GetDeviceInfo.Reply", ""));
}

TEST_F(TypedExchangeTest, APeersErrorIsReportedUnderTheUnexpectedMessage) {
    AMessagePipeRequestReply* server = Server("receive");
    zmq::socket_t peer = Connect(ZMQ_DEALER, "receive");
    vq::vds::GetVersion::Reply version;
    vq::vds::GetDeviceInfo::Error error;
    vq::test::LogCapture log;
    SendFrames(peer, {"", "", "vq.vds.Error", kText});
    EXPECT_FALSE(MessageUtils::Receive(server, version, kLimit, nullptr));
    EXPECT_EQ(log.Lines(),
              (Frames{"E Unexpected message received, wanted vq.vds.GetVersion.Reply, got vq.vds.Error",
                      "E (text)"}));
    log.Clear();
    ASSERT_TRUE(MessageUtils::SendErrorAndLog<vq::vds::Error>(server, "next"));
    EXPECT_EQ(log.Lines(), (Frames{"E next"}));
    log.Clear();
    SendFrames(peer, {"", "", "x", ""});
    EXPECT_FALSE(MessageUtils::ReceiveOneOf(server, version, error, kLimit, nullptr));
    EXPECT_EQ(log.Lines(), (Frames{"E Unexpected message received, wanted vq.vds.GetVersion.Reply or "
                                   "vq.vds.GetDeviceInfo.Error, got x"}));
}

TEST_F(TypedExchangeTest, AMessageWithoutARequiredFieldIsNotSent) {
    vq::test::LogCapture log;
    EXPECT_FALSE(MessageUtils::Send(m_client, vq::vds::Error(), kLimit, nullptr));
    EXPECT_EQ(log.Lines(), (Frames{"E protoMessage 'vq.vds.Error' is not initialized",
                                   "E Failed to encode message to vq.vds.Error"}));
    EXPECT_TRUE(HasNothing(m_peer));
    EXPECT_TRUE(Exchange("vq.vds.GetDeviceInfo.Reply", ""));

    AMessagePipeEventSender* sender = Sender("events");
    EXPECT_FALSE(MessageUtils::SendEvent(sender, 1, "c", vq::vds::Error(), kLimit, nullptr));
}

TEST_F(TypedExchangeTest, ATimeoutIsALineOnlyForWhoAskedForIt) {
    vq::vds::GetVersion const request;
    vq::vds::GetVersion::Reply reply;
    {
        vq::test::LogCapture log;
        EXPECT_FALSE(MessageUtils::SendReceive(m_client, request, reply, kShort, nullptr));
        EXPECT_TRUE(log.Lines().empty());
    }
    {
        // The reply to the first request is still missing.
        vq::test::LogCapture log;
        bool timedOut = false;
        EXPECT_FALSE(MessageUtils::SendReceive(m_client, request, reply, kShort, &timedOut));
        EXPECT_TRUE(timedOut);
        EXPECT_EQ(log.Count(LogLevel::Error, ""), 1u);
        EXPECT_TRUE(log.Has(LogLevel::Error, "timedOut to send command vq.vds.GetVersion"));
    }
    AMessagePipeRequestReply* fresh = Pipes()->GetRequestReplyClient(Loopback("server"), "fresh");
    vq::test::LogCapture log;
    EXPECT_FALSE(MessageUtils::SendReceive(fresh, request, reply, kShort, &m_timedOut));
    EXPECT_TRUE(m_timedOut);
    EXPECT_EQ(log.Lines(), (Frames{"E timedOut to receive expected reply for vq.vds.GetVersion"}));
}

TEST_F(TypedExchangeTest, NullEndsAreRefusedWithALine) {
    vq::test::LogCapture log;
    vq::vds::GetVersion message;
    EXPECT_FALSE(MessageUtils::Send(nullptr, message, kLimit, &m_timedOut));
    EXPECT_FALSE(m_timedOut);
    EXPECT_FALSE(MessageUtils::SendEvent(nullptr, 0, "", message, kLimit, nullptr));
    EXPECT_FALSE(MessageUtils::Receive(nullptr, message, kLimit, nullptr));
    EXPECT_FALSE(m_context->EncodeMessage(message, nullptr));
    EXPECT_FALSE(m_context->DecodeMessage(nullptr, message));
    EXPECT_EQ(log.Lines(),
              (Frames{"E Message writer for send is nullptr", "E Message sender for send is nullptr",
                      "E Message reader for receive command is nullptr", "E wireMessage is null"}));
}

TEST_F(TypedExchangeTest, PollReadersDrainsEveryReaderInOneCall) {
    AMessagePipeEventSender* firstSender = Sender("first");
    AMessagePipeEventSender* secondSender = Sender("second");
    AMessagePipeEventListener* first = Listener("first");
    AMessagePipeEventListener* second = Listener("second");
    AMessagePipeEventListener* idle = Listener("idle");
    TakeSubscriptions(firstSender);
    TakeSubscriptions(secondSender);
    for (char const* type : {"a", "b", "c"}) {
        ASSERT_TRUE(Publish(secondSender, type));
    }
    ASSERT_TRUE(Publish(firstSender, "d"));

    vq::test::LogCapture log;
    std::vector<MessageReaderContext> const readers = {{first}, {idle}, {nullptr}, {second}, {first}};
    std::list<AvailableReaderMessage> available;
    ASSERT_TRUE(m_context->PollReaders(readers, available, kLimit, &m_timedOut));
    EXPECT_FALSE(m_timedOut);
    std::string types;
    for (AvailableReaderMessage const& entry : available) {
        std::unique_ptr<AMessage> const message(entry.message);
        types += message->Type();
        EXPECT_EQ(entry.reader, types == "d" ? first : second);
    }
    EXPECT_EQ(types, "dabc");
    EXPECT_EQ(log.Count(LogLevel::Warning, "Ignoring non-ZMQ reader: "), 1u);

    bool timedOut = true;
    EXPECT_TRUE(m_context->PollReaders({{first}, {second}}, available, kShort, &timedOut));
    EXPECT_FALSE(timedOut);
    EXPECT_TRUE(available.empty());
    EXPECT_FALSE(m_context->PollReaders({}, available, kUnlimited, nullptr));
}

}  // namespace
