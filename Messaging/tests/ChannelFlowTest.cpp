#include <string>
#include <vector>

#include "ChannelTestContext.h"
#include "Messaging/ChannelFactory.h"
#include "TestSupport/LogCapture.h"

namespace {

class ChannelFlowTest : public ChannelTest {
protected:
    ChannelFlowTest() {
        m_factory.CreateChannelDescriptor("c", "Integer", "");
        m_producer.reset(
            dynamic_cast<ChannelProducer*>(m_factory.CreateChannel("c", vq::ch::ChannelRole_Producer)));
        m_observer.reset(
            dynamic_cast<ChannelObserver*>(m_factory.CreateChannel("c", vq::ch::ChannelRole_Observer)));
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

    ChannelFactory m_factory{m_context, m_sender, m_listener};
    std::unique_ptr<ChannelProducer> m_producer;
    std::unique_ptr<ChannelObserver> m_observer;
};

TEST_F(ChannelFlowTest, AHelloActivatesTheObserverAndSamplesReachItsQueueInOrder) {
    m_producer->SetChannelId(7);
    auto const hello = SendUntilReceived([this] { EXPECT_TRUE(m_producer->SendHelloEvent()); });
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
        owned.push_back(Receive());
        ASSERT_NE(owned.back(), nullptr);
        messages.push_back(owned.back().get());
    }
    EXPECT_TRUE(m_observer->HandlesWireMessageType(messages[0]->Type()));
    EXPECT_TRUE(m_observer->UpdateFromEvents(messages));
    EXPECT_EQ(ValueOf(m_observer->PopNewestData()), 3);
    EXPECT_EQ(ValueOf(m_observer->PopOldestData()), 1);
    EXPECT_EQ(ValueOf(m_observer->PopOldestData()), 2);
}

TEST_F(ChannelFlowTest, WhatIsNoSampleOfTheChannelIsRefused) {
    ASSERT_NE(SendUntilReceived([this] { m_producer->SendHelloEvent(); }), nullptr);
    vq::test::LogCapture log;
    vq::ch::FeatureChannelDataEvent const feature;
    EXPECT_FALSE(m_producer->SetDataFromMessage(&feature));
    EXPECT_FALSE(m_producer->SetDataFromMessage(nullptr));
    // Bytes that make no whole message are set all the same, and fail in the send.
    EXPECT_TRUE(m_producer->SetDataFromMessageArray("\xff", 1));
    EXPECT_EQ(
        log.Count(LogLevel::Error,
                  "Unexpected data type: vq.ch.FeatureChannelDataEvent != vq.ch.IntegerChannelDataEvent"),
        1u);
    EXPECT_EQ(log.Count(LogLevel::Error, "FAILED to send event vq.ch.IntegerChannelDataEvent to LOOPBACK:"),
              1u);

    EXPECT_TRUE(m_producer->SetDataFromMessageArray("\x08\x05\xff", 3));
    auto const read = Receive();
    ASSERT_NE(read, nullptr) << "the first event that went out";
    EXPECT_TRUE(m_observer->HandleWireMessage(read.get()));
    EXPECT_EQ(ValueOf(m_observer->PopOldestData()), 5);

    // The right type with a broken body, and a foreign type: neither is queued.
    std::unique_ptr<AChannelMessage> const broken(m_sender->NewChannelMessage());
    broken->SetType("vq.ch.IntegerChannelDataEvent");
    EXPECT_FALSE(m_observer->HandleWireMessage(broken.get()));
    broken->SetType("vq.ch.IntegerChannelDataEventX");
    EXPECT_FALSE(m_observer->HandlesWireMessageType(broken->Type()));
    EXPECT_FALSE(m_observer->HandleWireMessage(broken.get()));
    EXPECT_EQ(m_observer->PopOldestData(), nullptr);
}

TEST_F(ChannelFlowTest, BytesThatAreNoMessageStillMakeASampleOfATypeWithoutRequiredFields) {
    ASSERT_NE(SendUntilReceived([this] { m_producer->SendHelloEvent(); }), nullptr);
    m_factory.CreateChannelDescriptor("sound", "Audio Buffer Data", "");
    m_listener->ListenTo("vq.ch.AudioBufferChannelDataEvent");
    std::unique_ptr<Channel> const channel(m_factory.CreateChannel("sound", vq::ch::ChannelRole_Producer));
    auto& producer = dynamic_cast<ChannelProducer&>(*channel);
    EXPECT_NE(SendUntilReceived([&] { EXPECT_TRUE(producer.SetDataFromMessageArray("\xff\xff", 2)); }),
              nullptr);
}

TEST_F(ChannelFlowTest, ChannelsOfOneNameAreToldApartByTheirIds) {
    ASSERT_NE(SendUntilReceived([this] { m_producer->SendHelloEvent(); }), nullptr);
    std::unique_ptr<Channel> const twin(m_factory.CreateChannel("c", vq::ch::ChannelRole_Producer));
    m_producer->SetChannelId(1);
    twin->SetChannelId(-2);
    auto const event = Integer(1);
    for (ChannelProducer* const producer : {m_producer.get(), dynamic_cast<ChannelProducer*>(twin.get())}) {
        ASSERT_TRUE(producer->SetDataFromMessage(&event));
        auto const message = Receive();
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(message->GetChannelName(), "c");
        EXPECT_EQ(message->GetChannelId(), producer->GetChannelId());
    }
}

TEST_F(ChannelFlowTest, AProducerWithoutAPipeIsAProgrammingError) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const event = Integer(1);
    EXPECT_DEATH(
        {
            m_producer->SetDataEventPipe(nullptr);
            m_producer->SetDataFromMessage(&event);
        },
        "CHECK FAILED");
}

}  // namespace
