#include "Messaging/SharedBufferChannel.h"

#include "Messaging/ChannelFactory.h"
#include "SharedMemoryStandIn.h"

namespace {

using SharedBufferChannelTest = SharedMemoryTest;

TEST_F(SharedBufferChannelTest, AWriteReachesTheObserverAsASampleThatLeadsToTheData) {
    AMessagePipeProvider& pipes = *m_context->GetPipeProvider();
    MessageAddress const address{"buffers", MessageAddress::Transport::LOOPBACK, "events"};
    AMessagePipeEventSender* const sender = pipes.GetEventSender(address, "", SocketRole::Bind);
    AMessagePipeEventListener* const listener = pipes.GetEventListener(address, "", SocketRole::Connect);
    ChannelFactory factory(m_context, sender, listener);
    factory.CreateChannelDescriptor("camera", "Shared Buffer Data", "")->resizable = true;
    std::unique_ptr<Channel> const made(factory.CreateChannel("camera", vq::ch::ChannelRole_Producer));
    std::unique_ptr<Channel> const taken(factory.CreateChannel("camera", vq::ch::ChannelRole_Observer));
    auto* const producer = dynamic_cast<SharedBufferChannelProducer*>(made.get());
    auto* const observer = dynamic_cast<SharedBufferChannelObserver*>(taken.get());
    ASSERT_TRUE(producer != nullptr && observer != nullptr);
    producer->SetChannelId(5);

    ASSERT_TRUE(producer->GetAccessor().Create(100, nullptr));
    EXPECT_TRUE(producer->GetAccessor().IsResizable());
    std::unique_ptr<AMessage> message;
    std::uint64_t written = 0;
    while (message == nullptr && written < 1000) {
        Write(producer->GetAccessor(), "picture " + std::to_string(++written), producer);
        message.reset(listener->ReceiveNext(std::chrono::milliseconds(20), nullptr));
    }
    auto* const event = dynamic_cast<AChannelMessage*>(message.get());
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->Type(), "vq.ch.SharedBufferChannelDataUpdatedEvent");
    EXPECT_EQ(event->GetChannelName(), "camera");
    EXPECT_EQ(event->GetChannelId(), 5);
    ASSERT_TRUE(observer->HandleWireMessage(event));
    auto const sample =
        std::dynamic_pointer_cast<SharedBufferDataChannelData const>(observer->PopNewestData());
    ASSERT_NE(sample, nullptr);
    EXPECT_EQ(sample->GetMemoryId(), "camera");
    EXPECT_EQ(sample->GetSharedMemoryId(), "");
    EXPECT_EQ(sample->GetGeneration(), written);
    EXPECT_EQ(sample->GetOffset(), 0u);
    EXPECT_EQ(sample->GetSize(), 100u);

    auto const* const memory = static_cast<char const*>(
        observer->GetAccessor().Lock(SharedMemory::Access::Read, std::chrono::seconds(30), nullptr));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(std::string(memory), "picture " + std::to_string(written));
    EXPECT_FALSE(observer->GetAccessor().Unlock());
}

}  // namespace
