#include "Messaging/ChannelFactory.h"
#include "MessagingFixture.h"

namespace {

class ChannelFlowTest : public MessagingTest {
protected:
    ChannelFlowTest() {
        m_factory.CreateChannelDescriptor("c", "Integer", "");
        m_producer = Make<ChannelProducer>("c", vq::ch::ChannelRole_Producer);
        m_observer = Make<ChannelObserver>("c", vq::ch::ChannelRole_Observer);
        TakeSubscriptions(m_sender);
    }
    template <class End>
    std::unique_ptr<End> Make(char const* name, vq::ch::ChannelRole role) {
        return std::unique_ptr<End>(dynamic_cast<End*>(m_factory.CreateChannel(name, role)));
    }
    static vq::ch::IntegerChannelDataEvent Integer(int value) {
        vq::ch::IntegerChannelDataEvent event;
        event.set_value(value);
        return event;
    }
    static int ValueOf(std::shared_ptr<IData> const& sample) {
        using Data = ProtoMessageDataTemplate<vq::ch::IntegerChannelDataEvent>;
        return sample == nullptr ? -1 : static_cast<Data const&>(*sample).GetMessage().value();
    }

    AMessagePipeEventSender* m_sender = Sender("channels");
    AMessagePipeEventListener* m_listener =
        Pipes()->GetEventListener(Loopback("channels"), "", SocketRole::Connect);
    ChannelFactory m_factory{m_context.get(), m_sender, m_listener};
    std::unique_ptr<ChannelProducer> m_producer;
    std::unique_ptr<ChannelObserver> m_observer;
};

TEST_F(ChannelFlowTest, AHelloActivatesTheObserverAndSamplesReachItsQueueInOrder) {
    m_producer->SetChannelId(7);
    EXPECT_TRUE(m_producer->SendHelloEvent());
    auto const hello = NextEvent(m_listener);
    ASSERT_NE(hello, nullptr);
    EXPECT_EQ(hello->Type(), "vq.ch.HelloDataEvent");
    EXPECT_EQ(hello->GetChannelId(), 7);
    EXPECT_EQ(hello->GetChannelName(), "c");
    EXPECT_FALSE(m_observer->IsActive());
    EXPECT_TRUE(m_observer->UpdateFromEvents({hello.get()}));
    EXPECT_TRUE(m_observer->IsActive());
    EXPECT_EQ(m_observer->PopOldestData(), nullptr);

    m_producer->OnProducerDeactivated();  // recorded, and no reason to be silent
    std::vector<std::unique_ptr<AChannelMessage>> owned;
    std::vector<AChannelMessage*> messages;
    for (int value = 1; value <= 3; ++value) {
        auto const event = Integer(value);
        EXPECT_TRUE(m_producer->SetDataFromMessage(&event));
        owned.push_back(NextEvent(m_listener));
        ASSERT_NE(owned.back(), nullptr);
        EXPECT_EQ(owned.back()->GetChannelId(), 7);
        messages.push_back(owned.back().get());
    }
    EXPECT_TRUE(m_observer->UpdateFromEvents(messages));
    EXPECT_EQ(ValueOf(m_observer->PopNewestData()), 3);
    EXPECT_EQ(ValueOf(m_observer->PopOldestData()), 1);
    EXPECT_EQ(ValueOf(m_observer->PopOldestData()), 2);
}

TEST_F(ChannelFlowTest, WhatIsNoSampleOfTheChannelIsRefused) {
    vq::test::LogCapture log;
    vq::ch::FeatureChannelDataEvent const feature;
    EXPECT_FALSE(m_producer->SetDataFromMessage(&feature));
    EXPECT_FALSE(m_producer->SetDataFromMessage(nullptr));
    // Bytes that make no whole message are set all the same, and fail in the send.
    EXPECT_TRUE(m_producer->SetDataFromMessageArray("\xff", 1));
    for (char const* line :
         {"Unexpected data type: vq.ch.FeatureChannelDataEvent != vq.ch.IntegerChannelDataEvent",
          "FAILED to send event vq.ch.IntegerChannelDataEvent to LOOPBACK:"}) {
        EXPECT_EQ(log.Count(LogLevel::Error, line), 1u) << line;
    }
    EXPECT_TRUE(m_producer->SetDataFromMessageArray("\x08\x05\xff", 3));
    auto const read = NextEvent(m_listener);
    ASSERT_NE(read, nullptr) << "the first event that went out";
    EXPECT_TRUE(m_observer->HandleWireMessage(read.get()));
    EXPECT_EQ(ValueOf(m_observer->PopOldestData()), 5);

    // The right type with a broken body, and a foreign type: neither is queued.
    std::unique_ptr<AChannelMessage> const broken(m_sender->NewChannelMessage());
    for (char const* type : {"vq.ch.IntegerChannelDataEvent", "vq.ch.IntegerChannelDataEventX"}) {
        broken->SetType(type);
        EXPECT_FALSE(m_observer->HandleWireMessage(broken.get()));
    }
    EXPECT_EQ(m_observer->PopOldestData(), nullptr);
}

TEST_F(ChannelFlowTest, BytesThatAreNoMessageStillMakeASampleOfATypeWithoutRequiredFields) {
    m_factory.CreateChannelDescriptor("sound", "Audio Buffer Data", "");
    m_listener->ListenTo("vq.ch.AudioBufferChannelDataEvent");
    TakeSubscriptions(m_sender);
    EXPECT_TRUE(
        Make<ChannelProducer>("sound", vq::ch::ChannelRole_Producer)->SetDataFromMessageArray("\xff", 1));
    EXPECT_NE(NextEvent(m_listener), nullptr);
}

TEST_F(ChannelFlowTest, AProducerWithoutAPipeIsAProgrammingError) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const event = Integer(1);
    m_producer->SetDataEventPipe(nullptr);
    EXPECT_DEATH(m_producer->SetDataFromMessage(&event), "CHECK FAILED");
}

}  // namespace
