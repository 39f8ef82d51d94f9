// Access to the shared memory of a server that runs inside this process.

#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/ChannelFactory.h"
#include "Messaging/SharedBufferChannel.h"
#include "Messaging/ZMQMessageManager.h"
#include "RawDevice.h"
#include "RunningServer.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"

namespace vq::server {
namespace {

using std::chrono::milliseconds;
using Access = SharedMemory::Access;

constexpr milliseconds kLimit{30000};

class SharedMemoryTest : public testing::Test {
public:
    ~SharedMemoryTest() override {
        m_manager.Cleanup();
        m_server.reset();
        AMessageManager::Instance().Cleanup();
    }
    vq::vds::FindServerSharedMemory::Reply Find(std::string const& id) {
        return test::RawSocket(ZMQ_REQ, m_server->Address())
            .Get<vq::vds::FindServerSharedMemory>("1:'" + id + "'");
    }
    /// Writes a text and publishes it as the whole buffer.
    static void Write(SharedMemoryAccessor& accessor, std::string const& text,
                      ISharedBufferProducer* producer = nullptr) {
        void* const memory = accessor.Lock(Access::ReadWrite, kLimit, nullptr);
        ASSERT_NE(memory, nullptr);
        std::memcpy(memory, text.c_str(), text.size() + 1);
        EXPECT_FALSE(accessor.Unlock(producer, {}, 0, SharedMemoryAccessor::kToEnd));
        EXPECT_FALSE(accessor.IsLocked());
    }
    static std::string Read(SharedMemoryAccessor& accessor) {
        bool timedOut = true;
        auto const* const memory = static_cast<char const*>(accessor.Lock(Access::Read, kLimit, &timedOut));
        EXPECT_FALSE(memory == nullptr || timedOut);
        std::string text = memory == nullptr ? "" : memory;
        EXPECT_FALSE(accessor.Unlock());
        return text;
    }

    std::optional<RunningServer> m_server{Options("IPC:" + test::HomeDirectory() + "memory")};
    ZMQMessageManager m_manager;
    AMessagePipeProvider& m_pipes =
        *m_manager.GetContext(MessageAddress::FromString(m_server->Address()))->GetPipeProvider();
    AMessagePipeRequestReply* m_pipe =
        m_pipes.GetRequestReplyClient(MessageAddress::FromString(m_server->Address()), "test");
    vq::vds::PortableSharedMemoryConfiguration const m_configuration =
        wire::Parsed<vq::vds::PortableSharedMemoryConfiguration>("1:3 2:{1:4 2:1}");
};

TEST_F(SharedMemoryTest, AWaitEndsAtTheGenerationOrBehindItOrInTimeOrNeverBegins) {
    SharedMemoryAccessor writer(m_pipe, "b", false);
    SharedMemoryAccessor reader(m_pipe, "b", false);
    EXPECT_FALSE(reader.Exists());
    ASSERT_TRUE(writer.Create(100, &m_configuration));
    for (int i = 0; i < 7; ++i) {
        Write(writer, "x");
    }
    SharedMemoryAccessor other(m_pipe, "b", false);
    ASSERT_TRUE(reader.Exists() && other.Exists());
    EXPECT_TRUE(reader.IsPortable() && !reader.IsResizable() && reader.Size() == 100);
    // Just below "no limit" is no representable number of the clock's units.
    std::map<std::string, milliseconds> const limits = {
        {"none", milliseconds(0)}, {"some", kLimit}, {"long", milliseconds::max() - milliseconds(1)}};
    for (auto const& [what, wanted, limit, seen, outcome] : Rows<5>("SharedMemory", "waits")) {
        SCOPED_TRACE(what);
        bool const locks = outcome == "locked";
        test::LogCapture log(LogLevel::Info);
        std::jthread const late([&, &what = what] {
            if (what == "to come" && log.WaitFor(LogLevel::Info, "Waiting for memory update")) {
                Write(writer, "x");
            }
        });
        std::uint64_t observed = 99;
        bool timedOut = locks;
        void const* const memory =
            reader.Lock(Access::Read, std::stoull(wanted), &observed, limits.at(limit), &timedOut);
        EXPECT_TRUE((memory != nullptr) == locks && reader.IsLocked() == locks && timedOut != locks);
        EXPECT_EQ(observed, std::stoull(seen));
        EXPECT_EQ(log.Has(LogLevel::Error, "timed out waiting to see generation 8 at 0"), !locks);
        // Somebody else gets in exactly when the reader does not hold the mutex.
        bool taken = false;
        other.Lock(Access::Read, milliseconds(0), &taken);
        EXPECT_EQ(taken, locks);
        EXPECT_FALSE(other.IsLocked() && other.Unlock());
        EXPECT_FALSE(reader.IsLocked() && reader.Unlock());
    }
    // Without a configuration nobody waits.
    ASSERT_TRUE(writer.SetConfiguration(nullptr));
    ASSERT_TRUE(reader.Reset());
    std::uint64_t observed = 99;
    EXPECT_NE(reader.Lock(Access::Read, 1000, &observed, kLimit, nullptr), nullptr);
    EXPECT_EQ(observed, 0u);
    EXPECT_EQ(reader.Generation(), 8u);
}

TEST_F(SharedMemoryTest, ALockThatTimesOutMapsAllTheSameAndHoldsNothing) {
    SharedMemoryAccessor holder(m_pipe, "b", false);
    ASSERT_TRUE(holder.Create(100, nullptr));
    SharedMemoryAccessor late(m_pipe, "b", false);
    ASSERT_NE(holder.Lock(Access::ReadWrite, kLimit, nullptr), nullptr);
    std::string const noLock = "E SharedMemoryAccessor was not Lock'ed for " + Find("b").memory_name();
    test::LogCapture log;
    bool timedOut = false;
    EXPECT_NE(late.Lock(Access::Read, milliseconds(0), &timedOut), nullptr);
    EXPECT_TRUE(timedOut);
    EXPECT_FALSE(late.IsLocked() || late.Unlock() || late.Unlock(nullptr, {}, 0, 1));
    EXPECT_EQ(late.Generation() + late.NextGeneration(), 0u);
    EXPECT_EQ(log.Lines(), (Lines{noLock, noLock, "W Shared memory 'b' is not Lock()'ed",
                                  "W Shared memory 'b' is not Lock()'ed for writing"}));
    EXPECT_EQ(holder.NextGeneration(), 1u);
    EXPECT_EQ(holder.Generation(), 0u);
}

TEST_F(SharedMemoryTest, OnlyASpanInsideTheBufferCanBePublishedAndOnlyByAWriter) {
    SharedMemoryAccessor accessor(m_pipe, "b", false);
    ASSERT_TRUE(accessor.Create(100, nullptr));
    constexpr std::uint64_t kAll = SharedMemoryAccessor::kToEnd;
    std::uint64_t generation = 0;
    for (auto const& [mode, from, count, refusal] : Rows<4>("SharedMemory", "spans")) {
        Access const access = mode == "write" ? Access::ReadWrite : Access::Read;
        std::uint64_t const offset = std::stoull(from);
        std::uint64_t const size = count == "rest" ? kAll : std::stoull(count);
        bool const refused = !refusal.empty();
        test::LogCapture log;
        ASSERT_NE(accessor.Lock(access, kLimit, nullptr), nullptr);
        EXPECT_FALSE(accessor.Unlock(nullptr, {}, offset, size));
        generation += !refused;
        EXPECT_EQ(accessor.IsLocked(), refused) << offset << "+" << size;
        EXPECT_EQ(log.Count(LogLevel::Error, refusal), refused);
        if (!accessor.IsLocked()) {
            accessor.Lock(Access::Read, kLimit, nullptr);
        }
        EXPECT_EQ(accessor.Generation(), generation) << offset << "+" << size;
        EXPECT_FALSE(accessor.Unlock());
    }
}

TEST_F(SharedMemoryTest, ABufferIsMadeOnceJoinedByOthersAndResized) {
    test::LogCapture log(LogLevel::Info);
    SharedMemoryAccessor first(m_pipe, "b", true);
    ASSERT_TRUE(first.Resize(64)) << "made, since there was none";
    EXPECT_TRUE(
        log.Has(LogLevel::Info, "Shared memory b did not exist, so Resize() will call Create() instead"));
    Write(first, "kept");
    SharedMemoryAccessor second(m_pipe, "b", false);
    ASSERT_TRUE(second.Create(10, &m_configuration)) << "joined";
    EXPECT_EQ(second.Size(), 64u);

    vq::vds::PortableSharedMemoryConfiguration found;
    EXPECT_TRUE(first.GetConfiguration(found));
    EXPECT_EQ(found.SerializeAsString(), m_configuration.SerializeAsString());
    ASSERT_TRUE(second.SetConfiguration(nullptr));
    EXPECT_FALSE(first.GetConfiguration(found) || found.has_id_1());

    // Resized while locked: the lock is given back first.
    ASSERT_NE(first.Lock(Access::ReadWrite, kLimit, nullptr), nullptr);
    ASSERT_TRUE(first.Resize(9000));
    EXPECT_FALSE(first.IsLocked());
    EXPECT_EQ(first.Size(), 9000u);
    EXPECT_EQ(Read(second), "kept");
    SharedMemoryAccessor rigid(m_pipe, "rigid", false);
    EXPECT_FALSE(first.Resize(0) || rigid.Resize(10) || rigid.Create(0, nullptr) ||
                 rigid.GetConfiguration(found));
    for (char const* line :
         {"Failed to create shared memory: shared memory needs a name and a size",
          "Failed to resize shared memory for b to 0: ", "Shared memory buffer rigid is not resizable",
          "Failed to fetch portable configuration for 'rigid'"}) {
        EXPECT_TRUE(log.Has(LogLevel::Error, line)) << line;
    }
}

TEST_F(SharedMemoryTest, WithoutAServerTheNamesMustLeadSomewhere) {
    SharedMemoryAccessor owner(m_pipe, "b", false);
    ASSERT_TRUE(owner.Create(100, nullptr));
    Write(owner, "shared");
    auto const b = Find("b");
    SharedMemoryAccessor direct("b", b.memory_name(), 100, b.generation_name(), b.mutex_name(), false);
    EXPECT_TRUE(direct.Exists());
    EXPECT_EQ(Read(direct), "shared");

    test::LogCapture log;
    SharedMemoryAccessor nowhere("b", b.memory_name(), 100, b.generation_name(), "", false);
    EXPECT_FALSE(nowhere.Exists());
    EXPECT_EQ(nowhere.Lock(Access::Read, kLimit, nullptr), nullptr);
    std::string const noNames =
        "E invalid SharedMemoryAccessor state: need valid Memory and Generation and Mutex names";
    std::string const noWay =
        "E Invalid SharedMemoryAccessor setup: neither requestReplyPipe nor server memory id provided";
    EXPECT_EQ(log.Lines(), (Lines{noNames, noWay, noWay}));
    SharedMemoryAccessor lost("b", b.memory_name(), 100, "none", b.mutex_name(), false);
    EXPECT_EQ(lost.Size(), 100u);
    ASSERT_TRUE(lost.Init(b.memory_name(), 100, b.generation_name(), b.mutex_name())) << "after a failure";
    SharedMemoryAccessor unnamed(nullptr, "", true);
    EXPECT_FALSE(unnamed.Exists() || unnamed.Create(10, nullptr) || unnamed.Resize(10) || unnamed.Recover());
}

TEST_F(SharedMemoryTest, AWriteReachesTheServerAndTheObserverOfAChannelAsASampleThatLeadsToTheData) {
    MessageAddress const address{"buffers", MessageAddress::Transport::LOOPBACK, "events"};
    AMessagePipeEventSender* const sender = m_pipes.GetEventSender(address, "", SocketRole::Bind);
    AMessagePipeEventListener* const listener = m_pipes.GetEventListener(address, "", SocketRole::Connect);
    ChannelFactory factory(m_pipe->GetContext(), sender, listener);
    factory.CreateChannelDescriptor("camera", "Shared Buffer Data", "")->resizable = true;
    std::unique_ptr<Channel> const made(factory.CreateChannel("camera", vq::ch::ChannelRole_Producer));
    std::unique_ptr<Channel> const taken(factory.CreateChannel("camera", vq::ch::ChannelRole_Observer));
    auto* const producer = dynamic_cast<SharedBufferChannelProducer*>(made.get());
    auto* const observer = dynamic_cast<SharedBufferChannelObserver*>(taken.get());
    ASSERT_TRUE(producer != nullptr && observer != nullptr);
    producer->SetChannelId(5);
    ASSERT_TRUE(producer->GetAccessor().Create(100, &m_configuration));
    EXPECT_TRUE(producer->GetAccessor().IsResizable());
    std::unique_ptr<AMessage> message;
    std::uint64_t written = 0;
    test::LogCapture const log(LogLevel::Verbose);
    bool heard = false;  // by the server: the link takes its time
    while ((message == nullptr || !heard) && written < 1000) {
        Write(producer->GetAccessor(), "picture " + std::to_string(++written), producer);
        message.reset(listener->ReceiveNext(milliseconds(20), nullptr));
        heard = log.Has(LogLevel::Verbose, "Shared memory 'camera' is at generation");
    }
    EXPECT_TRUE(heard);
    auto* const event = dynamic_cast<AChannelMessage*>(message.get());
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->Type(), "vq.ch.SharedBufferChannelDataUpdatedEvent");
    EXPECT_EQ(event->GetChannelName() + "#" + std::to_string(event->GetChannelId()), "camera#5");
    ASSERT_TRUE(observer->HandleWireMessage(event));
    auto const sample =
        std::dynamic_pointer_cast<SharedBufferDataChannelData const>(observer->PopNewestData());
    ASSERT_NE(sample, nullptr);
    EXPECT_EQ(sample->GetMemoryId() + "," + sample->GetSharedMemoryId(), "camera,");
    EXPECT_EQ(sample->GetGeneration(), written);
    EXPECT_TRUE(sample->GetOffset() == 0 && sample->GetSize() == 100);
    EXPECT_EQ(Read(observer->GetAccessor()), "picture " + std::to_string(written));
}

}  // namespace
}  // namespace vq::server
