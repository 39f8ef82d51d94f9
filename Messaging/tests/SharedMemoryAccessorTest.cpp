#include <cstdint>
#include <limits>

#include "BufferDescriptors.pb.h"
#include "SharedMemoryStandIn.h"
#include "TestSupport/LogCapture.h"

namespace {

using std::chrono::milliseconds;
using Access = SharedMemory::Access;
using SharedMemoryAccessorTest = SharedMemoryTest;

constexpr std::uint64_t kAll = SharedMemoryAccessor::kToEnd;
constexpr milliseconds kLimit{30000};

TEST_F(SharedMemoryAccessorTest, AWriteIsCountedAndAnnouncedAndSeenByWhoWaitsForIt) {
    auto const configuration = Configuration();
    SharedMemoryAccessor writer(m_pipe, "left", true);
    ASSERT_TRUE(writer.HasEventSender());
    SharedMemoryAccessor reader(m_pipe, "left", false);
    EXPECT_FALSE(reader.Exists());
    EXPECT_EQ(reader.Size(), 0u);
    ASSERT_TRUE(writer.Create(5000, &configuration));
    EXPECT_EQ(reader.Size(), 5000u);
    EXPECT_TRUE(reader.IsPortable());
    EXPECT_TRUE(reader.IsResizable());

    // The first ones go nowhere: the link to the server takes its time.
    std::uint64_t written = 0;
    vq::vds::SharedMemoryModifiedEvent event;
    for (bool arrived = false; !arrived && written < 1000;) {
        Write(writer, "picture " + std::to_string(++written));
        arrived = MessageUtils::Receive(m_writes, event, milliseconds(20), nullptr);
    }
    ASSERT_TRUE(event.IsInitialized());
    EXPECT_EQ(event.memory_id(), "left");
    EXPECT_EQ(event.offset(), 0u);
    EXPECT_EQ(event.size(), 5000u);
    EXPECT_GE(event.generation(), 1u);
    EXPECT_LE(event.generation(), written);

    std::uint64_t observed = 0;
    bool timedOut = true;
    auto const* const picture =
        static_cast<char const*>(reader.Lock(Access::Read, written, &observed, kLimit, &timedOut));
    ASSERT_NE(picture, nullptr);
    EXPECT_FALSE(timedOut);
    EXPECT_EQ(observed, written);
    EXPECT_EQ(reader.Generation(), written);
    EXPECT_EQ(std::string(picture), "picture " + std::to_string(written));
    EXPECT_FALSE(reader.Unlock());
}

TEST_F(SharedMemoryAccessorTest, AWaitEndsAtTheGenerationOrBehindItOrInTimeOrNeverBegins) {
    auto const configuration = Configuration();
    SharedMemoryAccessor writer(m_pipe, "b", false);
    ASSERT_TRUE(writer.Create(100, &configuration));
    for (int i = 0; i < 7; ++i) {
        Write(writer, "x");
    }
    SharedMemoryAccessor reader(m_pipe, "b", false);
    SharedMemoryAccessor other(m_pipe, "b", false);
    ASSERT_TRUE(reader.Exists() && other.Exists());
    struct Case {
        char const* what;
        std::uint64_t wanted;
        milliseconds timeout;
        std::uint64_t observed;
        bool locks;
    };
    Case const cases[] = {
        {"reached", 7, kLimit, 7, true},
        {"passed", 5, kLimit, 7, true},
        {"out of time", 8, milliseconds(0), 7, false},
        {"none wanted", 0, milliseconds(0), 0, true},
    };
    for (Case const& c : cases) {
        vq::test::LogCapture log;
        std::uint64_t observed = 99;
        bool timedOut = c.locks;
        void const* const memory = reader.Lock(Access::Read, c.wanted, &observed, c.timeout, &timedOut);
        EXPECT_EQ(memory != nullptr, c.locks) << c.what;
        EXPECT_EQ(timedOut, !c.locks) << c.what;
        EXPECT_EQ(observed, c.observed) << c.what;
        EXPECT_EQ(reader.IsLocked(), c.locks) << c.what;
        EXPECT_EQ(log.Count(LogLevel::Error, "timed out waiting to see generation 8 at 0"),
                  c.locks ? 0u : 1u);
        // Somebody else gets in exactly when the reader does not hold the mutex.
        bool taken = false;
        other.Lock(Access::Read, milliseconds(0), &taken);
        EXPECT_EQ(taken, c.locks) << c.what;
        EXPECT_FALSE(other.IsLocked() && other.Unlock()) << c.what;
        EXPECT_FALSE(reader.IsLocked() && reader.Unlock()) << c.what;
    }
    // Without a configuration nobody waits.
    ASSERT_TRUE(writer.SetConfiguration(nullptr));
    ASSERT_TRUE(reader.Reset());
    EXPECT_FALSE(reader.IsPortable());
    std::uint64_t observed = 99;
    EXPECT_NE(reader.Lock(Access::Read, 1000, &observed, kLimit, nullptr), nullptr);
    EXPECT_EQ(observed, 0u);
    EXPECT_EQ(reader.Generation(), 7u);
}

TEST_F(SharedMemoryAccessorTest, ALockThatTimesOutMapsAllTheSameAndHoldsNothing) {
    SharedMemoryAccessor holder(m_pipe, "b", false);
    ASSERT_TRUE(holder.Create(100, nullptr));
    SharedMemoryAccessor late(m_pipe, "b", false);
    ASSERT_NE(holder.Lock(Access::ReadWrite, kLimit, nullptr), nullptr);
    vq::test::LogCapture log;
    bool timedOut = false;
    EXPECT_NE(late.Lock(Access::Read, milliseconds(0), &timedOut), nullptr);
    EXPECT_TRUE(timedOut);
    EXPECT_FALSE(late.IsLocked());
    EXPECT_FALSE(late.Unlock());
    EXPECT_FALSE(late.Unlock(nullptr, {}, 0, 1));
    EXPECT_EQ(late.Generation(), 0u);
    EXPECT_EQ(late.NextGeneration(), 0u);
    std::vector<std::string> const expected = {
        "E SharedMemoryAccessor was not Lock'ed for b.memory",
        "E SharedMemoryAccessor was not Lock'ed for b.memory",
        "W Shared memory 'b' is not Lock()'ed",
        "W Shared memory 'b' is not Lock()'ed for writing",
    };
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(holder.NextGeneration(), 1u);
    EXPECT_EQ(holder.Generation(), 0u);
}

TEST_F(SharedMemoryAccessorTest, OnlyASpanInsideTheBufferCanBePublishedAndOnlyByAWriter) {
    SharedMemoryAccessor accessor(m_pipe, "b", false);
    ASSERT_TRUE(accessor.Create(100, nullptr));
    constexpr std::uint64_t kHuge = std::numeric_limits<std::uint64_t>::max() - 1;
    struct Case {
        Access access;
        std::uint64_t offset;
        std::uint64_t size;
        char const* refusal;  // null when it passes
    };
    Case const cases[] = {
        {Access::ReadWrite, 0, 100, nullptr},
        {Access::ReadWrite, 0, kAll, nullptr},
        {Access::ReadWrite, 40, kAll, nullptr},
        {Access::ReadWrite, 100, 0, nullptr},
        {Access::ReadWrite, 100, kAll, nullptr},
        {Access::ReadWrite, 1, 100, "Invalid offset or size used in Unlock() call (1 + 100 > 100)"},
        {Access::ReadWrite, 101, 0, "Invalid offset or size used in Unlock() call (101 + 0 > 100)"},
        {Access::ReadWrite, 101, kAll, "Invalid offset or size used in Unlock() call (101 + "},
        {Access::ReadWrite, 2, kHuge, "Invalid offset or size used in Unlock() call (2 + "},
        {Access::Read, 0, 1, "Used inappropriate Unlock() call for memory opened in read-only mode"},
    };
    std::uint64_t generation = 0;
    for (Case const& c : cases) {
        vq::test::LogCapture log;
        ASSERT_NE(accessor.Lock(c.access, kLimit, nullptr), nullptr);
        EXPECT_FALSE(accessor.Unlock(nullptr, {}, c.offset, c.size));
        generation += c.refusal == nullptr;
        EXPECT_EQ(accessor.IsLocked(), c.refusal != nullptr) << c.offset << "+" << c.size;
        EXPECT_EQ(log.Count(LogLevel::Error, c.refusal != nullptr ? c.refusal : ""), c.refusal != nullptr);
        if (!accessor.IsLocked()) {
            accessor.Lock(Access::Read, kLimit, nullptr);
        }
        EXPECT_EQ(accessor.Generation(), generation) << c.offset << "+" << c.size;
        EXPECT_FALSE(accessor.Unlock());
    }
}

TEST_F(SharedMemoryAccessorTest, ABufferIsMadeOnceJoinedByOthersAndResized) {
    vq::test::LogCapture log;
    SharedMemoryAccessor first(m_pipe, "b", true);
    ASSERT_TRUE(first.Resize(64)) << "made, since there was none";
    EXPECT_TRUE(
        log.Has(LogLevel::Info, "Shared memory b did not exist, so Resize() will call Create() instead"));
    Write(first, "kept");
    SharedMemoryAccessor second(m_pipe, "b", false);
    auto const configuration = Configuration();
    ASSERT_TRUE(second.Create(10, &configuration)) << "joined";
    EXPECT_EQ(second.Size(), 64u);
    EXPECT_TRUE(second.IsResizable());

    vq::vds::PortableSharedMemoryConfiguration found;
    EXPECT_FALSE(first.IsPortable());
    EXPECT_TRUE(first.GetConfiguration(found));
    EXPECT_EQ(found.SerializeAsString(), configuration.SerializeAsString());
    ASSERT_TRUE(second.SetConfiguration(nullptr));
    EXPECT_FALSE(first.GetConfiguration(found));
    EXPECT_FALSE(found.has_id_1());

    // Resized while locked: the lock is given back first.
    ASSERT_NE(first.Lock(Access::ReadWrite, kLimit, nullptr), nullptr);
    ASSERT_TRUE(first.Resize(9000));
    EXPECT_FALSE(first.IsLocked());
    EXPECT_EQ(first.Size(), 9000u);
    bool timedOut = true;
    auto const* const memory = static_cast<char const*>(second.Lock(Access::Read, kLimit, &timedOut));
    ASSERT_FALSE(timedOut);
    EXPECT_EQ(std::string(memory), "kept");
    EXPECT_FALSE(second.Unlock());

    EXPECT_FALSE(first.Resize(1 << 30));
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to resize shared memory for b to 1073741824: no room"));
    SharedMemoryAccessor rigid(m_pipe, "rigid", false);
    EXPECT_FALSE(rigid.Resize(10));
    EXPECT_TRUE(log.Has(LogLevel::Error, "Shared memory buffer rigid is not resizable"));
    EXPECT_FALSE(rigid.GetConfiguration(found));
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to fetch portable configuration for 'rigid'"));
}

TEST_F(SharedMemoryAccessorTest, ABufferThatADeadWriterLeftLockedIsHealed) {
    SharedMemoryAccessor writer(m_pipe, "b", false);
    ASSERT_TRUE(writer.Create(100, nullptr));
    Write(writer, "before");
    {
        SharedMutex dead("b.mutex");
        ASSERT_TRUE(dead.Open() && dead.Lock());
    }
    bool timedOut = false;
    writer.Lock(Access::ReadWrite, milliseconds(20), &timedOut);
    ASSERT_TRUE(timedOut) << "closing frees nothing";
    SharedMemoryAccessor healer(m_pipe, "b", false);
    ASSERT_TRUE(healer.Recover());
    Write(healer, "after");
    ASSERT_TRUE(writer.Reset());
    auto const* const memory = static_cast<char const*>(writer.Lock(Access::Read, kLimit, &timedOut));
    ASSERT_FALSE(timedOut);
    EXPECT_EQ(std::string(memory), "after");
    EXPECT_EQ(writer.Generation(), 2u);
    EXPECT_FALSE(SharedMemoryAccessor(m_pipe, "none", false).Recover());
}

TEST_F(SharedMemoryAccessorTest, WithoutAServerTheNamesMustLeadSomewhere) {
    SharedMemoryAccessor owner(m_pipe, "b", false);
    ASSERT_TRUE(owner.Create(100, nullptr));
    Write(owner, "shared");
    SharedMemoryAccessor direct("b", "b.memory", 100, "b.generation", "b.mutex", false);
    EXPECT_TRUE(direct.Exists());
    auto const* const memory = static_cast<char const*>(direct.Lock(Access::Read, kLimit, nullptr));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(std::string(memory), "shared");
    EXPECT_EQ(direct.Generation(), 1u);
    EXPECT_FALSE(direct.Unlock());

    vq::test::LogCapture log;
    SharedMemoryAccessor nowhere("b", "b.memory", 100, "b.generation", "", false);
    EXPECT_FALSE(nowhere.Exists());
    EXPECT_EQ(nowhere.Lock(Access::Read, kLimit, nullptr), nullptr);
    EXPECT_TRUE(log.Has(LogLevel::Error,
                        "invalid SharedMemoryAccessor state: need valid Memory and Generation and Mutex "
                        "names"));
    EXPECT_EQ(log.Count(LogLevel::Error,
                        "Invalid SharedMemoryAccessor setup: neither requestReplyPipe nor "
                        "server memory id provided"),
              2u);
    SharedMemoryAccessor lost("b", "b.memory", 100, "none", "b.mutex", false);
    EXPECT_EQ(lost.Size(), 100u);
    ASSERT_TRUE(lost.Init("b.memory", 100, "b.generation", "b.mutex")) << "after a failure";

    SharedMemoryAccessor unnamed(nullptr, "", true);
    EXPECT_FALSE(unnamed.Exists() || unnamed.Create(10, nullptr) || unnamed.Resize(10));
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(SharedMemoryAccessor(nullptr, "b", true).Create(10, nullptr), "CHECK FAILED");
}

}  // namespace
