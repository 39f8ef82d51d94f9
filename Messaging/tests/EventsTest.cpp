#include "Messaging/EventDispatcher.h"
#include "Messaging/EventMonitor.h"
#include "Messaging/ZMQMessage.h"
#include "MessagingFixture.h"
#include "TestSupport/Test.h"

namespace {

AMessage* NewEvent(std::string const& type, int id = 0) {
    auto* const event = new ZMQChannelMessage;
    event->SetType(type);
    event->SetChannelId(id);
    return event;
}

int IdOf(std::shared_ptr<AMessage> const& event) {
    return event == nullptr ? -1 : dynamic_cast<AChannelMessage&>(*event).GetChannelId();
}

TEST(EventDispatcherTest, EveryHandlerOfEveryEventRunsWhateverTheOthersSay) {
    EventQueue queue;
    EventDispatcher dispatcher(nullptr);
    std::string calls;
    auto const handler = [&calls](char name, bool result) {
        return std::make_shared<EventHandler>([&calls, name, result](AMessage* event) {
            calls += event->Type() + name + ' ';
            return result;
        });
    };
    dispatcher.RegisterEventHandler("b", handler('1', false));
    EventHandlerRegistration const twice = dispatcher.RegisterEventHandler("b", handler('2', true));
    dispatcher.RegisterEventHandler("b", twice.handler);
    // Moves the list that is being walked.
    dispatcher.RegisterEventHandler("a", std::make_shared<EventHandler>([&](AMessage*) {
                                        dispatcher.RegisterEventHandler("a", handler('3', true));
                                        return true;
                                    }));
    for (char const* type : {"b", "c", "a", "b"}) {
        queue.QueueEvent(NewEvent(type));
    }
    vq::test::LogCapture log;
    EXPECT_FALSE(dispatcher.ProcessEvents(queue));
    EXPECT_EQ(calls, "a3 b1 b2 b2 b1 b2 b2 ");
    EXPECT_EQ(log.Count(LogLevel::Error, "Failed to process event message b"), 2u);
    EXPECT_NE(queue.TakeNextEvent("c"), nullptr);

    calls.clear();
    dispatcher.UnregisterEventHandler(twice.type, twice.handler);
    std::unique_ptr<AMessage> const event(NewEvent("b"));
    EXPECT_FALSE(dispatcher.ProcessEvent(event.get()));
    EXPECT_EQ(calls, "b1 b2 ");
}

class EventMonitorTest : public MessagingTest {
protected:
    void SetUp() override { TakeSubscriptions(m_sender); }

    AMessagePipeEventSender* m_sender = Sender("events");
    EventMonitor m_monitor{Listener("events")};
};

TEST_F(EventMonitorTest, WaitsForOneTypeAndYieldsWhatIsQueuedAfterTheEnd) {
    vq::test::LogCapture log;
    EXPECT_EQ(m_monitor.TakeOrWaitForEvent("a", kNoWait), nullptr);
    EXPECT_EQ(m_monitor.TakeOrWaitForEvent("a", kShort), nullptr);
    std::thread publisher([&] {
        Publish(m_sender, "b", std::string(100, 'c'), 1);
        Publish(m_sender, "b", "", 2);
        Publish(m_sender, "a", "", 3);
    });
    EXPECT_EQ(IdOf(m_monitor.TakeOrWaitForEvent("a", kUnlimited)), 3);
    publisher.join();
    EXPECT_TRUE(m_monitor.ConsumeEvents(kShort));
    Pipes()->DisposePipes();
    EXPECT_FALSE(m_monitor.ConsumeEvents(kUnlimited));
    EXPECT_EQ(m_monitor.TakeOrWaitForEvent("a", kUnlimited), nullptr);
    EXPECT_EQ(IdOf(m_monitor.TakeOrWaitForEvent("b", kUnlimited)), 1);
    EXPECT_EQ(IdOf(m_monitor.GetQueue().TakeNextEvent("")), 2);
    EXPECT_TRUE(m_monitor.GetQueue().TakeAllEvents("b").empty());
    EXPECT_TRUE(m_monitor.GetQueue().TakeAllEvents("unknown").empty());
    EXPECT_EQ(log.Lines(), Lines{});
}

/// Has one more event whenever it is asked.
class EndlessListener : public AMessagePipeEventListener {
public:
    EndlessListener() : AMessagePipeEventListener(nullptr, MessageAddress()) {}
    AMessage* ReceiveNext(std::chrono::milliseconds, bool*) override { return NewEvent("a"); }
    void ListenTo(std::string const&) override {}
};

TEST(EndlessEventsTest, DoNotKeepTheMonitor) {
    EndlessListener listener;
    EXPECT_TRUE(EventMonitor(&listener).ConsumeEvents(0ms));
}

TEST_F(EventMonitorTest, ABrokenEventIsAFailureAndNotATimeout) {
    RawSocket peer = Raw(ZMQ_XPUB, "broken");
    EventMonitor monitor(Listener("broken"));
    peer.Receive();
    vq::test::LogCapture log;
    peer.Send({"no header", ""});
    EXPECT_FALSE(monitor.ConsumeEvents(kLimit));
    EXPECT_TRUE(log.Has(LogLevel::Error, "Error on event listener waiting for events"));
}

}  // namespace
