#include "Messaging/ObserverDataQueue.h"

#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"

namespace {

using IntegerData = ProtoMessageDataTemplate<vq::ch::IntegerChannelDataEvent>;
using Queue = ObserverDataQueueBase<CircularBufferDataQueue>;

std::shared_ptr<IData> Sample(int value) {
    vq::ch::IntegerChannelDataEvent event;
    event.set_value(value);
    return std::make_shared<IntegerData>(event);
}

int ValueOf(std::shared_ptr<IData> const& sample) {
    return sample == nullptr ? -1 : static_cast<IntegerData const&>(*sample).GetMessage().value();
}

void Push(Queue& queue, int first, int last) {
    for (int value = first; value <= last; ++value) {
        queue.PushNewData(Sample(value));
    }
}

std::string Drain(Queue& queue) {
    std::vector<std::shared_ptr<IData>> list;
    std::string text = queue.PopAllData(list) ? "" : "none";
    for (auto const& sample : list) {
        text += text.empty() ? "" : " ";
        text += std::to_string(ValueOf(sample));
    }
    return text;
}

TEST(ObserverDataQueueTest, OnlyTheStatedSamplesAreLost) {
    for (auto const& [what, capacity, script, left] : Rows<4>("ObserverDataQueue", "steps")) {
        Queue queue(std::stoul(capacity));
        int pushed = 0;
        std::istringstream steps(script);
        for (std::string step; steps >> step;) {
            int const number = std::atoi(step.c_str() + (std::isdigit(step[0]) == 0));
            switch (step[0]) {
                case 'o':
                    EXPECT_EQ(ValueOf(queue.PopOldestData()), number) << what;
                    break;
                case 'n':
                    EXPECT_EQ(ValueOf(queue.PopNewestData()), number) << what;
                    break;
                case 'a':
                    Drain(queue);
                    break;
                case 'c':
                    queue.ClearData();
                    break;
                case '=':
                    queue.ResizeCapacity(static_cast<std::size_t>(number));
                    break;
                default:
                    Push(queue, std::exchange(pushed, number) + 1, number);
            }
        }
        EXPECT_EQ(Drain(queue), left) << what;
        EXPECT_EQ(Drain(queue), "none") << what;
    }
}

TEST(ObserverDataQueueTest, AResizeWithoutEffectSaysWhyAndALossIsOnlyVerbose) {
    vq::test::LogCapture log(LogLevel::Verbose);
    Queue queue(2);
    queue.ResizeCapacity(0);
    queue.ResizeCapacity(2);
    Push(queue, 1, 3);
    std::vector<std::string> const expected = {
        "W Resize ignored. Reason: capacity is zero",
        "W Resize ignored. Reason: new capacity is identical to current",
        "V Observer buffer full - older data will be discarded.",
    };
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(Drain(queue), "2 3");
}

TEST(ObserverDataQueueTest, SamplesReleasedByTheRingAreFreed) {
    std::weak_ptr<IData> overwritten;
    std::weak_ptr<IData> cleared;
    Queue queue(1);
    auto const push = [&queue](std::weak_ptr<IData>& watch) {
        auto sample = Sample(1);
        watch = sample;
        queue.PushNewData(std::move(sample));
    };
    push(overwritten);
    push(cleared);
    EXPECT_TRUE(overwritten.expired());
    EXPECT_FALSE(cleared.expired());
    queue.ClearData();
    EXPECT_TRUE(cleared.expired());
}

TEST(ObserverDataQueueTest, AReaderSeesAnOrderedSubsetOfWhatAnotherThreadPushes) {
    constexpr int kSamples = 5000;
    Queue queue(20);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        Push(queue, 1, kSamples);
        done = true;
    });
    int last = 0;
    for (bool finished = false; !finished;) {
        finished = done;
        std::vector<std::shared_ptr<IData>> list;
        queue.PopAllData(list);
        for (auto const& sample : list) {
            EXPECT_GT(ValueOf(sample), last);
            last = ValueOf(sample);
        }
        std::this_thread::yield();
    }
    writer.join();
    EXPECT_EQ(last, kSamples);
}

}  // namespace
