#include <thread>

#include "Messaging/EventDispatcher.h"
#include "Messaging/EventMonitor.h"
#include "Messaging/ZMQMessage.h"
#include "MessagingFixture.h"

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

TEST(EventQueueTest, EventsAreKeptApartByType) {
    EventQueue queue;
    queue.QueueEvent(NewEvent("a", 1));
    queue.QueueEvent(NewEvent("a", 2));
    EXPECT_EQ(queue.TakeNextEvent("b"), nullptr);
    EXPECT_TRUE(queue.TakeAllEvents("b").empty());
    EXPECT_EQ(IdOf(queue.TakeNextEvent("")), 1);
    queue.QueueEvent(NewEvent("b", 3));
    queue.QueueEvent(NewEvent("b", 4));
    EXPECT_EQ(IdOf(queue.TakeNextEvent("a")), 2);
    EXPECT_EQ(queue.TakeNextEvent("a"), nullptr);
    std::list<std::shared_ptr<AMessage>> const events = queue.TakeAllEvents("");
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(IdOf(events.front()), 3);
    queue.QueueEvent(NewEvent("b"));
    queue.Clear();
    EXPECT_EQ(queue.TakeNextEvent(""), nullptr);
}

TEST(EventDispatcherTest, EveryHandlerOfEveryEventRunsWhateverTheOthersSay) {
    EventQueue queue;
    EventDispatcher dispatcher(nullptr);
    EXPECT_TRUE(dispatcher.ProcessEvents(queue));
    std::string calls;
    auto const log = [&calls](char name, bool result) {
        return std::make_shared<EventHandler>([&calls, name, result](AMessage* event) {
            calls += event->Type() + name + ' ';
            return result;
        });
    };
    dispatcher.RegisterEventHandler("b", log('1', false));
    EventHandlerRegistration const twice = dispatcher.RegisterEventHandler("b", log('2', true));
    dispatcher.RegisterEventHandler("b", twice.handler);
    dispatcher.RegisterEventHandler("a", log('3', true));
    for (char const* type : {"b", "c", "a", "b"}) {
        queue.QueueEvent(NewEvent(type));
    }
    vq::test::LogCapture capture;
    EXPECT_FALSE(dispatcher.ProcessEvents(queue));
    EXPECT_EQ(calls, "a3 b1 b2 b2 b1 b2 b2 ");
    EXPECT_EQ(capture.Count(LogLevel::Error, "Failed to process event message b"), 2u);
    EXPECT_NE(queue.TakeNextEvent("c"), nullptr);

    calls.clear();
    dispatcher.UnregisterEventHandler(twice.type, twice.handler);
    dispatcher.UnregisterEventHandler("none", twice.handler);
    std::unique_ptr<AMessage> const event(NewEvent("b"));
    EXPECT_FALSE(dispatcher.ProcessEvent(event.get()));
    EXPECT_EQ(calls, "b1 b2 ");
    std::unique_ptr<AMessage> const unknown(NewEvent("x"));
    EXPECT_TRUE(dispatcher.ProcessEvent(unknown.get()));
}

TEST(EventDispatcherTest, AHandlerMayRegisterMoreForItsOwnType) {
    EventDispatcher dispatcher(nullptr);
    int calls = 0;
    auto const counting = std::make_shared<EventHandler>([&](AMessage*) { return ++calls > 0; });
    dispatcher.RegisterEventHandler("a", std::make_shared<EventHandler>([&](AMessage*) {
                                        for (int i = 0; i < 100; ++i) {
                                            dispatcher.RegisterEventHandler("a", counting);
                                        }
                                        return true;
                                    }));
    std::unique_ptr<AMessage> const event(NewEvent("a"));
    EXPECT_TRUE(dispatcher.ProcessEvent(event.get()));
    EXPECT_EQ(calls, 100);
}

class EventMonitorTest : public MessagingTest {
protected:
    void SetUp() override { TakeSubscriptions(m_sender); }

    AMessagePipeEventSender* m_sender = Sender("events");
    AMessagePipeEventListener* m_listener = Listener("events");
    EventMonitor m_monitor{m_listener};
};

TEST_F(EventMonitorTest, WaitsForOneTypeAndKeepsTheOthers) {
    vq::test::LogCapture log;
    EXPECT_EQ(m_monitor.TakeOrWaitForEvent("a", kNoWait), nullptr);
    EXPECT_EQ(m_monitor.TakeOrWaitForEvent("a", kShort), nullptr);
    std::string const channel(100, 'c');
    std::thread publisher([&] {
        Publish(m_sender, "b", channel, 1);
        Publish(m_sender, "b", channel, 2);
        Publish(m_sender, "a", channel, 3);
    });
    EXPECT_EQ(IdOf(m_monitor.TakeOrWaitForEvent("a", kUnlimited)), 3);
    publisher.join();
    EXPECT_EQ(m_monitor.GetQueue().TakeAllEvents("b").size(), 2u);
    EXPECT_TRUE(m_monitor.ConsumeEvents(kShort));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(EventMonitorTest, ADisposedListenerStillYieldsWhatIsQueued) {
    Publish(m_sender, "a", "", 1);
    Publish(m_sender, "b", "", 2);
    ASSERT_TRUE(m_monitor.ConsumeEvents(kLimit));
    Pipes()->DisposePipes();
    EXPECT_FALSE(m_monitor.ConsumeEvents(kUnlimited));
    EXPECT_EQ(IdOf(m_monitor.TakeOrWaitForEvent("a", kUnlimited)), 1);
    EXPECT_EQ(m_monitor.TakeOrWaitForEvent("a", kUnlimited), nullptr);
    EXPECT_EQ(IdOf(m_monitor.TakeOrWaitForEvent("b", kNoWait)), 2);
}

TEST_F(EventMonitorTest, ABrokenEventIsAFailureAndNotATimeout) {
    zmq::socket_t peer = Bind(ZMQ_XPUB, "broken");
    EventMonitor monitor(Listener("broken"));
    ReceiveFrames(peer);
    vq::test::LogCapture log;
    SendFrames(peer, {"no header", ""});
    EXPECT_FALSE(monitor.ConsumeEvents(kLimit));
    EXPECT_TRUE(log.Has(LogLevel::Error, "Error on event listener waiting for events"));
}

}  // namespace
