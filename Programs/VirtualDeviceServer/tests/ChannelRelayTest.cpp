// A server inside this process passes on what devices send, keeps the latest of it, and owns shared memory.

#include "RawDevice.h"
#include "RunningServer.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"

namespace vq::server {
namespace {

using test::Frames;

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
public:
    ~ChannelRelayTest() override {
        m_server.reset();
        AMessageManager::Instance().Cleanup();
    }

    /// Hears the server's broadcast from the moment at which it returns.
    test::RawSocket ListenToData() {
        return Listen(m_client.Get(vq::vds::GetServerDataEventBroadcastAddress()).address());
    }
    /// The next event that is no greeting.
    static Frames Next(test::RawSocket& socket) {
        Frames frames;
        do {
            frames = socket.Receive();
        } while (!frames.empty() && frames[0].find("Hello") != std::string::npos);
        return frames;
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

    std::optional<RunningServer> m_server{Options("IPC:" + test::HomeDirectory() + "relay")};
    test::RawSocket m_client{ZMQ_REQ, m_server->Address()};
};

TEST_F(ChannelRelayTest, EventsArePassedOnAsTheyAreAndInOrder) {
    RawDevice device(m_client, "d");
    device.ServeChannel("x");
    test::RawSocket first = ListenToData();
    test::RawSocket second = ListenToData();
    device.JoinUntilHeardBy(first);
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
    test::RawSocket socket = ListenToData();
    device.JoinUntilHeardBy(socket);
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
    EXPECT_EQ(Latest({"y", "unknown", "x", "y"}), "y vq.ch.Other y\n" + x);
    m_client.Get(vq::vds::ResendLatestChannelData());
    EXPECT_EQ(Next(socket), latestX);
    EXPECT_EQ(Next(socket), latestY);

    m_client.Get<vq::vds::PruneDevice>("1:'d'");
    EXPECT_EQ(Latest({}), "") << "nobody has the channels any more";
}

TEST_F(ChannelRelayTest, SharedMemoryGoesWhenItIsDeletedAndWithTheServer) {
    test::RawSocket events = Listen(m_client.Get(vq::vds::GetServerEventAddress()).address());
    auto const create = [this] {
        return m_client.Get<vq::vds::CreateServerSharedMemory>("1:'a/camera/0' 2:5000 3:1").memory_name();
    };
    std::string const name = create();
    EXPECT_EQ(m_client.Get<vq::vds::ResizeServerSharedMemory>("1:'a/camera/0' 2:100000").memory_id(), name);
    m_client.Get<vq::vds::DeleteServerSharedMemory>("1:'a/camera/0'");
    EXPECT_THAT(BufferFiles(), IsEmpty());
    EXPECT_NE(create(), name);
    EXPECT_EQ(BufferFiles().size(), 2U) << "the memory and its generation";
    m_server->Stop();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(events.Await<vq::vds::ServerSharedMemoryDeletedEvent>().memory_id(), "a/camera/0");
    }
    m_server->Join();
    EXPECT_THAT(BufferFiles(), IsEmpty());
}

}  // namespace
}  // namespace vq::server
