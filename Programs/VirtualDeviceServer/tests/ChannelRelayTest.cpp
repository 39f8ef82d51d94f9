// A server inside this process passes on what devices send, keeps the latest of it, and owns shared memory.

#include <gmock/gmock.h>

#include <cstring>

#include "BufferDescriptors.pb.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/SharedMemoryAccessor.h"
#include "Messaging/ZMQMessageManager.h"
#include "RawClient.h"
#include "RunningServer.h"
#include "TestSupport/LogCapture.h"
#include "Utils/OSUtils.h"

namespace vq::server {
namespace {

using Frames = std::vector<std::string>;
using testing::IsEmpty;
using testing::Not;

std::string Header(std::string const& type, std::string const& channel, char id) {
    return type + '\0' + channel + '\0' + std::string{id, 0, 0, 0};
}

/// Files of the buffers that lie in the user's temporary directory.
std::vector<std::string> BufferFiles() {
    std::vector<std::string> files = GetDirectoryEntries(GetUserTempDirectory());
    std::erase_if(files, [](std::string const& name) { return !name.starts_with("vqbuffer."); });
    return files;
}

class ChannelRelayTest : public testing::Test {
protected:
    ~ChannelRelayTest() override {
        m_server.reset();
        AMessageManager::Instance().Cleanup();
    }

    /// Hears the server's broadcast from the moment at which it returns.
    zmq::socket_t Listen() {
        zmq::socket_t socket = MakeSocket(m_context, ZMQ_SUB);
        socket.set(zmq::sockopt::subscribe, "");
        socket.connect(Url(m_client.Get(vq::vds::GetServerDataEventBroadcastAddress()).address()));
        EXPECT_THAT(ReceiveFrames(socket), Not(IsEmpty()));
        return socket;
    }
    /// The next event that is no greeting.
    static Frames Next(zmq::socket_t& socket) {
        Frames frames;
        do {
            frames = ReceiveFrames(socket);
        } while (!frames.empty() && frames[0].find("Hello") != std::string::npos);
        return frames;
    }
    /// Waits until the server hears the device.
    static void Join(RawDevice& device, zmq::socket_t& socket) {
        socket.set(zmq::sockopt::rcvtimeo, 20);
        for (int i = 0; i < 3000; ++i) {
            device.SayHello();
            Frames const frames = ReceiveFrames(socket);
            if (!frames.empty() && frames[0].starts_with("vq.ch.HelloDataEvent")) {
                break;
            }
        }
        socket.set(zmq::sockopt::rcvtimeo, kPatienceMs);
    }
    /// Channel, type and data of what the server has, each on a line.
    std::string Latest(Frames const& channels) {
        vq::vds::GetLatestChannelData request;
        request.mutable_channels()->Assign(channels.begin(), channels.end());
        auto const reply = m_client.Get(request);
        std::string text;
        for (auto const& data : reply.data()) {
            text += data.channel() + " " + data.type() + " " + data.data() + "\n";
        }
        return text;
    }

    zmq::context_t m_context;
    std::optional<RunningServer> m_server{Options("IPC:" + test::HomeDirectory() + "relay")};
    RawClient m_client{m_context, m_server->Address()};
};

TEST_F(ChannelRelayTest, EventsArePassedOnAsTheyAreAndInOrder) {
    RawDevice device(m_client, "d");
    device.ServeChannel("x");
    zmq::socket_t first = Listen();
    zmq::socket_t second = Listen();
    Join(device, first);
    std::vector<Frames> const events = {
        {Header("vq.ch.Vec3ChannelDataEvent", "x", 7), "payload"},
        {Header("vq.ch.Vec3ChannelDataEvent", "x", -1), ""},
        {Header("some.other.Type", "no channel of ours", 0), std::string(1 << 20, '\0')},
        {Header("vq.ch.SharedBufferChannelDataUpdatedEvent", "", 1), "garbage"},
    };
    test::LogCapture const log;
    device.Publish({"vq.ch.Vec3ChannelDataEvent", "no header"});
    for (Frames const& event : events) {
        device.Publish(event);
        EXPECT_EQ(Next(first), event);
        EXPECT_EQ(Next(second), event);
    }
    EXPECT_TRUE(log.Has(LogLevel::Error, "invalid event message frame"));
}

TEST_F(ChannelRelayTest, TheLatestSampleOfAChannelIsKeptAndSentAgainOnDemand) {
    RawDevice device(m_client, "d");
    device.ServeChannel("x");
    device.ServeChannel("y");
    zmq::socket_t socket = Listen();
    Join(device, socket);
    EXPECT_EQ(Latest({}), "");
    std::string const type = "vq.ch.IntegerChannelDataEvent";
    Frames const latestX = {Header(type, "x", 1), std::string(100, 'x')};
    Frames const latestY = {Header("vq.ch.Other", "y", 2), "y"};
    for (Frames const& event :
         {Frames{Header(type, "x", 1), "1"}, latestX, latestY, Frames{Header(type, "unknown", 3), "z"}}) {
        device.Publish(event);
        EXPECT_EQ(Next(socket), event);
    }
    std::string const x = "x " + type + " " + latestX[1] + "\n";
    EXPECT_EQ(Latest({}), x + "y vq.ch.Other y\n");
    EXPECT_EQ(Latest({"y", "unknown", "x"}), "y vq.ch.Other y\n" + x);
    m_client.Get(vq::vds::ResendLatestChannelData());
    EXPECT_EQ(Next(socket), latestX);
    EXPECT_EQ(Next(socket), latestY);

    vq::vds::PruneDevice prune;
    prune.set_device("d");
    m_client.Get(prune);
    EXPECT_EQ(Latest({}), "") << "nobody has the channels any more";
}

TEST_F(ChannelRelayTest, AbsoluteDataIsKeptUntilItIsResetAndEachChangeIsAnnounced) {
    RawDevice device(m_client, "d");
    device.ServeChannel("x");
    RawListener events(m_context, m_client.Get(vq::vds::GetServerEventAddress()).address());
    vq::vds::GetAbsoluteChannelData get;
    get.set_channel("x");
    EXPECT_FALSE(m_client.Get(get).has_data());
    vq::vds::SetAbsoluteChannelData set;
    set.mutable_data()->set_channel("x");
    EXPECT_EQ(m_client.Ask(set), "vq.vds.SetAbsoluteChannelData.Error") << "no data";
    set.mutable_data()->set_type("some.Type");
    set.mutable_data()->set_data("bytes");
    m_client.Get(set);
    std::string const data = set.data().SerializeAsString();
    EXPECT_EQ(m_client.Get(get).data().SerializeAsString(), data);
    EXPECT_EQ(events.Wait<vq::vds::ChannelAbsoluteDataChangedEvent>().data().SerializeAsString(), data);
    vq::vds::ResetAbsoluteChannelData reset;
    reset.set_channel("x");
    m_client.Get(reset);
    auto const event = events.Wait<vq::vds::ChannelAbsoluteDataChangedEvent>();
    EXPECT_EQ(event.data().channel(), "x");
    EXPECT_FALSE(event.data().has_data());
    EXPECT_FALSE(m_client.Get(get).has_data());
}

TEST_F(ChannelRelayTest, AListenerThatStandsStillCostsTheOthersNothing) {
    constexpr int kEvents = 5000;
    constexpr int kWindow = 100;
    RawDevice device(m_client, "d");
    device.ServeChannel("x");
    zmq::socket_t still = Listen();
    zmq::socket_t busy = Listen();
    Join(device, busy);
    Frames const event = {Header("vq.ch.Vec3ChannelDataEvent", "x", 7), std::string(2000, 'v')};
    for (int sent = 0; sent < kEvents; sent += kWindow) {
        for (int i = 0; i < kWindow; ++i) {
            device.Publish(event);
        }
        for (int i = 0; i < kWindow; ++i) {
            ASSERT_EQ(Next(busy), event) << sent + i;
        }
    }
    int kept = 0;
    still.set(zmq::sockopt::rcvtimeo, 200);
    while (!Next(still).empty()) {
        ++kept;
    }
    EXPECT_GT(kept, 0);
    EXPECT_LT(kept, kEvents) << "the rest was dropped, not queued";
}

TEST_F(ChannelRelayTest, SharedMemoryIsMadeSharedResizedAndRemovedWithItsEvents) {
    RawListener events(m_context, m_client.Get(vq::vds::GetServerEventAddress()).address());
    ZMQMessageManager manager;
    AMessageContext* const context = manager.GetContext(MessageAddress::FromString(m_server->Address()));
    AMessagePipeRequestReply* const pipe =
        context->GetPipeProvider()->GetRequestReplyClient(context->GetAddress(), "test");
    {
        vq::vds::PortableSharedMemoryConfiguration configuration;
        FillConfiguration(configuration);
        SharedMemoryAccessor writer(pipe, "a/camera/0", true);
        SharedMemoryAccessor reader(pipe, "a/camera/0", false);
        ASSERT_TRUE(writer.HasEventSender());
        ASSERT_TRUE(writer.Create(5000, &configuration));
        EXPECT_EQ(events.Wait<vq::vds::ServerSharedMemoryCreatedEvent>().memory_id(), "a/camera/0");
        auto change = events.Wait<vq::vds::ServerSharedMemoryChangedEvent>();
        EXPECT_EQ(change.configuration().SerializeAsString(), configuration.SerializeAsString());
        ASSERT_TRUE(reader.Exists());
        EXPECT_TRUE(reader.IsPortable() && reader.IsResizable());

        // Until the server hears it: the link takes its time.
        test::LogCapture const log(LogLevel::Verbose);
        bool heard = false;
        for (int i = 0; i < 3000 && !heard; ++i) {
            void* const memory =
                writer.Lock(SharedMemory::Access::ReadWrite, std::chrono::milliseconds::max(), nullptr);
            ASSERT_NE(memory, nullptr);
            std::memcpy(memory, "image", 6);
            EXPECT_FALSE(writer.Unlock(nullptr, {}, 0, 6));
            heard = log.WaitFor(LogLevel::Verbose, "Shared memory 'a/camera/0' is at generation",
                                std::chrono::milliseconds(20));
        }
        EXPECT_TRUE(heard);

        ASSERT_TRUE(writer.Resize(100000));
        change = events.Wait<vq::vds::ServerSharedMemoryChangedEvent>();
        EXPECT_EQ(change.size(), 100000U);
        EXPECT_TRUE(change.resizable() && change.has_configuration());
        void const* memory = nullptr;
        for (std::uint64_t const size : {5000U, 100000U, 10U}) {
            if (size == 10) {
                ASSERT_TRUE(writer.Resize(size));
            }
            if (size != 5000) {
                ASSERT_TRUE(reader.Reset());
            }
            EXPECT_EQ(reader.Size(), size);
            memory = reader.Lock(SharedMemory::Access::Read, std::chrono::milliseconds::max(), nullptr);
            ASSERT_NE(memory, nullptr);
            EXPECT_STREQ(static_cast<char const*>(memory), "image") << size;
            EXPECT_FALSE(reader.Unlock());
        }
    }
    manager.Cleanup();
    EXPECT_EQ(BufferFiles().size(), 2U);

    vq::vds::CreateServerSharedMemory second;
    second.set_memory_id("second");
    second.set_size(1);
    second.set_resizable(false);
    std::string const name = m_client.Get(second).memory_name();
    vq::vds::ResizeServerSharedMemory resize;
    resize.set_memory_id("second");
    resize.set_size(2);
    EXPECT_EQ(m_client.Ask(resize), "vq.vds.Error");
    vq::vds::DeleteServerSharedMemory remove;
    remove.set_memory_id("second");
    m_client.Get(remove);
    EXPECT_EQ(events.Wait<vq::vds::ServerSharedMemoryDeletedEvent>().memory_id(), "second");
    EXPECT_NE(m_client.Get(second).memory_name(), name);
    m_server->Stop();
    EXPECT_EQ(events.Wait<vq::vds::ServerSharedMemoryDeletedEvent>().memory_id(), "a/camera/0");
    m_server->Join();
    EXPECT_THAT(BufferFiles(), IsEmpty());
}

}  // namespace
}  // namespace vq::server
