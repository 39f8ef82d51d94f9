#include "Messaging/AMessageManager.h"
#include "Messaging/ChannelFactory.h"
#include "MessagingFixture.h"
#include "TestSupport/Table.h"

namespace {

constexpr auto kProducer = vq::ch::ChannelRole_Producer;
constexpr auto kObserver = vq::ch::ChannelRole_Observer;

class ChannelFactoryTest : public MessagingTest {
public:
    // Channels of shared buffers have made themselves a context there.
    ~ChannelFactoryTest() override { AMessageManager::Instance().Cleanup(); }

    AMessagePipeEventSender* m_sender = Sender("channels");
    AMessagePipeEventListener* m_listener = Listener("channels");
    vq::test::LogCapture m_log{LogLevel::Verbose};
    ChannelFactory m_factory{m_context.get(), m_sender, m_listener};
};

TEST_F(ChannelFactoryTest, EveryDataTypeHasItsTextAndMakesBothEnds) {
    ChannelFactory const second(m_context.get(), nullptr, nullptr);
    std::string types;
    std::string const line = "V ChannelFactory Registrar received registration for ";
    for (std::string const& text : m_log.Lines()) {
        if (text.rfind(line, 0) != 0) {
            continue;
        }
        std::string const type = text.substr(line.size());
        types += type + ",";
        m_factory.CreateChannelDescriptor(type, type, "");
        for (auto const role : {kProducer, kObserver}) {
            std::unique_ptr<Channel> const channel(m_factory.CreateChannel(type, role));
            EXPECT_TRUE(channel != nullptr && channel->GetRole() == role) << type;
        }
    }
    EXPECT_EQ(types,
              "Integer,Timestamp,Vec3,Quat,Transform,Indexed Transform,Audio Buffer Data,Audio Output Status,"
              "Shared Buffer Data,Head Tracking State,Graphics Contract,Eye Tracking State,"
              "Hand Tracking Keypoint Data,Hand Tracking Data,Input Controller,Lifecycle Event,Feature,"
              "Image Target Result,Raycast Results,Mesh,Mesh Info,Planes,Pcf,Controller System State,"
              "Keyboard Data,");
}

// That each is deleted once is for the address sanitizer to see.
TEST_F(ChannelFactoryTest, TheFactoryOwnsItsDescriptorsAndDeletesNewcomersOfAKnownName) {
    auto* const descriptor = new ChannelDescriptor("a", "", "Vec3", "", false, true);
    std::vector<ChannelDescriptor*> list = {descriptor, descriptor, new ChannelDescriptor(*descriptor)};
    m_factory.AddChannelDescriptors(list);
    EXPECT_TRUE(list.empty());
    list = {descriptor};
    m_factory.AddChannelDescriptors(list);
    EXPECT_EQ(m_factory.CreateChannelDescriptor("a", "Quat", "x"), descriptor);
    EXPECT_EQ(descriptor->dataType, "Vec3");
}

TEST_F(ChannelFactoryTest, AChannelThatCannotBeMadeIsNullWithItsLine) {
    ChannelFactory bare(m_context.get(), nullptr, nullptr);
    for (ChannelFactory* const each : {&m_factory, &bare}) {
        each->CreateChannelDescriptor("odd", "undefined", "");
        each->CreateChannelDescriptor("good", "Vec3", "");
    }
    vq::test::LogCapture log;
    EXPECT_EQ(m_factory.CreateChannel("none", kProducer), nullptr);
    EXPECT_EQ(m_factory.CreateChannel("odd", kProducer), nullptr);
    EXPECT_EQ(m_factory.CreateChannel("good", static_cast<vq::ch::ChannelRole>(2)), nullptr);
    EXPECT_EQ(bare.CreateChannel("odd", kProducer), nullptr);
    EXPECT_EQ(bare.CreateChannel("good", kObserver), nullptr);
    EXPECT_EQ(
        log.Lines(),
        (Lines{
            "E Failed to create channel for none - undefined channel descriptor",
            "E Failed to create channel - odd", "E Failed to create channel for good - invalid channel role",
            "E Failed to create channel - good",
            "W Warning: ChannelFactory not configured for Producer production - no senderPipe available",
            "W Warning: ChannelFactory not configured for Observer production - no listenerPipe available"}));
}

TEST_F(ChannelFactoryTest, AMessageOfUnknownTypeBecomesASampleOfTheTypeThatTakesIt) {
    RawSocket publisher = Raw(ZMQ_XPUB, "bare");
    AMessagePipeEventListener* const listener = Listener("bare");
    publisher.Receive();  // the subscription
    for (auto const& [type, fields, sample] : Rows<3>("ChannelFactory", "samples")) {
        publisher.Send({"vq.ch." + type + std::string(6, '\0'), wire::Bytes(fields)});
        std::unique_ptr<IData> const data(m_factory.CreateDataFromMessage(NextEvent(listener).get()));
        ASSERT_EQ(data == nullptr ? kNone : data->GetType(), sample) << type;
        if (data != nullptr) {
            std::unique_ptr<google::protobuf::MessageLite> const copy(data->Serialize());
            EXPECT_EQ(copy->SerializeAsString(), wire::Bytes(fields));
        }
    }
}

}  // namespace
