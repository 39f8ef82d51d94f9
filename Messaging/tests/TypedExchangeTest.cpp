#include <list>

#include "MessagingFixture.h"
#include "ServerRequests.pb.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"

namespace {

using namespace std::string_literals;
using vq::vds::GetVersion;

constexpr char kText[] = "\n\4text";  // an error message's payload

/// A client and, as its server, a bare socket that already has an answer for the next request.
class TypedExchangeTest : public MessagingTest {
protected:
    /// Sends GetDeviceInfo while the peer answers with a type and a payload.
    bool Exchange(std::string const& type, std::string const& payload) {
        std::thread peer([&] {
            m_peer.Receive();
            m_peer.Send({"", type, payload});
        });
        vq::vds::GetDeviceInfo request;
        request.set_device("d");
        m_error.Clear();
        bool const result =
            MessageUtils::SendReceive(m_client, request, m_reply, m_error, kLimit, &m_timedOut);
        peer.join();
        EXPECT_FALSE(m_timedOut);
        return result;
    }

    static std::string TextOf(AMessage const& message) {
        std::ostringstream text;
        text << message;
        return text.str();
    }

    RawSocket m_peer = Raw(ZMQ_REP, "server");
    AMessagePipeRequestReply* m_client = Client("server");
    vq::vds::GetDeviceInfo::Reply m_reply;
    vq::vds::GetDeviceInfo::Error m_error;
    bool m_timedOut = true;
};

TEST_F(TypedExchangeTest, TheLevelsOfAnAnswerAreToldApartAndTheUnexpectedIsNamedAndLost) {
    for (auto const& [type, payload, result, error, line] : Rows<5>("TypedExchange", "levels")) {
        vq::test::LogCapture log;
        EXPECT_EQ(Exchange(type, wire::Bytes(payload)), result == "true") << type;
        EXPECT_EQ(m_error.message(), error);
        EXPECT_EQ(log.Lines(), line.empty() ? Lines() : Lines{line});
    }
    EXPECT_TRUE(Exchange("vq.vds.GetDeviceInfo.Reply", ""));
}

TEST_F(TypedExchangeTest, APeersErrorIsReportedUnderTheUnexpectedMessage) {
    AMessagePipeRequestReply* server = Server("receive");
    RawSocket peer = Raw(ZMQ_DEALER, "receive");
    GetVersion::Reply version;
    vq::test::LogCapture log;
    peer.Send({"", "", "vq.vds.Error", kText});
    EXPECT_FALSE(MessageUtils::Receive(server, version, kLimit, nullptr));
    ASSERT_TRUE(MessageUtils::SendErrorAndLog<vq::vds::Error>(server, "next"));
    peer.Send({"", "", "x", ""});
    EXPECT_FALSE(MessageUtils::ReceiveOneOf(server, version, m_error, kLimit, nullptr));
    EXPECT_EQ(log.Lines(),
              (Lines{"E Unexpected message received, wanted vq.vds.GetVersion.Reply, got vq.vds.Error",
                     "E (text)", "E next",
                     "E Unexpected message received, wanted vq.vds.GetVersion.Reply or "
                     "vq.vds.GetDeviceInfo.Error, got x"}));
}

TEST_F(TypedExchangeTest, WhatCannotBeSentOrReadIsRefusedWithALine) {
    vq::test::LogCapture log;
    GetVersion message;
    EXPECT_FALSE(MessageUtils::Send(nullptr, message, kLimit, &m_timedOut));
    EXPECT_FALSE(m_timedOut);
    EXPECT_FALSE(MessageUtils::SendEvent(nullptr, 0, "", message, kLimit, nullptr));
    EXPECT_FALSE(MessageUtils::Receive(nullptr, message, kLimit, nullptr));
    EXPECT_FALSE(m_context->EncodeMessage(message, nullptr));
    EXPECT_FALSE(m_context->DecodeMessage(nullptr, message));
    EXPECT_FALSE(MessageUtils::Send(m_client, vq::vds::Error(), kLimit, nullptr));
    EXPECT_EQ(log.Lines(),
              (Lines{"E Message writer for send is nullptr", "E Message sender for send is nullptr",
                     "E Message reader for receive command is nullptr", "E wireMessage is null",
                     "E protoMessage 'vq.vds.Error' is not initialized",
                     "E Failed to encode message to vq.vds.Error"}));
    AMessagePipeEventSender* const sender = Sender("events");
    EXPECT_FALSE(MessageUtils::SendEvent(sender, 1, "c", vq::vds::Error(), kLimit, nullptr));
    log.Clear();
    std::unique_ptr<AMessage> const plain(sender->NewMessage());
    std::unique_ptr<AMessage> const event(sender->NewChannelMessage());
    EXPECT_FALSE(sender->SendNext(plain.get(), kLimit, nullptr) ||
                 sender->SendNext(nullptr, kLimit, nullptr));
    EXPECT_FALSE(m_client->SendNext(event.get(), kLimit, nullptr));
    EXPECT_EQ(log.Lines(), (Lines{"E expected ZMQChannelMessage for message " + TextOf(*plain),
                                  "E expected ZMQChannelMessage for message <null>",
                                  "E expected ZMQMessage for message " + TextOf(*event)}));
    EXPECT_THAT(TextOf(*plain), EndsWith(": (<unset>)\n\t\n\t"));
    EXPECT_THAT(TextOf(*event), EndsWith(": (<unset>) ->  : 0\n\t\n\t"));
    EXPECT_FALSE(m_peer.Poll());
    EXPECT_TRUE(Exchange("vq.vds.GetDeviceInfo.Reply", ""));
}

TEST_F(TypedExchangeTest, ATimeoutIsALineOnlyForWhoAskedForIt) {
    GetVersion::Reply reply;
    vq::test::LogCapture log;
    EXPECT_FALSE(MessageUtils::SendReceive(m_client, GetVersion(), reply, kShort, nullptr));
    EXPECT_EQ(log.Lines(), Lines{});
    EXPECT_FALSE(MessageUtils::SendReceive(Client("server", "2"), GetVersion(), reply, kShort, &m_timedOut));
    EXPECT_TRUE(m_timedOut);
    // The reply to the first request is still missing.
    EXPECT_FALSE(MessageUtils::SendReceive(m_client, GetVersion(), reply, kShort, &m_timedOut));
    EXPECT_TRUE(m_timedOut);
    EXPECT_TRUE(log.Has(LogLevel::Error, "timedOut to receive expected reply for vq.vds.GetVersion"));
    EXPECT_TRUE(log.Has(LogLevel::Error, "timedOut to send command vq.vds.GetVersion"));
    EXPECT_EQ(log.Count(LogLevel::Error, ""), 2u);
}

TEST_F(TypedExchangeTest, PollReadersDrainsEveryReaderInOneCall) {
    AMessagePipeEventSender* senders[] = {Sender("0"), Sender("1")};
    AMessagePipeEventListener* first = Listener("0");
    AMessagePipeEventListener* second = Listener("1");
    TakeSubscriptions(senders[0]);
    TakeSubscriptions(senders[1]);
    for (auto const& [sender, type] : {std::pair{1, "a"}, {1, "b"}, {1, "c"}, {0, "d"}}) {
        ASSERT_TRUE(Publish(senders[sender], type));
    }
    vq::test::LogCapture log;
    std::list<AvailableReaderMessage> available;
    ASSERT_TRUE(m_context->PollReaders({{first}, {Listener("idle")}, {nullptr}, {second}, {first}}, available,
                                       kLimit, &m_timedOut));
    EXPECT_FALSE(m_timedOut);
    std::string types;
    for (AvailableReaderMessage const& entry : available) {
        std::unique_ptr<AMessage> const message(entry.message);
        types += message->Type();
        EXPECT_EQ(entry.reader, message->Type() == "d" ? first : second);
    }
    EXPECT_EQ(types, "dabc");
    EXPECT_EQ(log.Count(LogLevel::Warning, "Ignoring non-ZMQ reader: "), 1u);

    m_timedOut = true;
    EXPECT_TRUE(m_context->PollReaders({{first}, {second}}, available, kShort, &m_timedOut));
    EXPECT_FALSE(m_timedOut);
    EXPECT_TRUE(available.empty());
    EXPECT_FALSE(m_context->PollReaders({}, available, kUnlimited, nullptr));
}

}  // namespace
