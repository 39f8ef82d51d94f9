#include "Messaging/ChannelFactory.h"

#include <string>
#include <vector>

#include "ChannelTestContext.h"
#include "Descriptors.pb.h"
#include "TestSupport/LogCapture.h"

namespace {

constexpr auto kProducer = vq::ch::ChannelRole_Producer;
constexpr auto kObserver = vq::ch::ChannelRole_Observer;

class CountingDescriptor : public ChannelDescriptor {
public:
    CountingDescriptor(std::string const& channel, int& deleted)
        : ChannelDescriptor(channel, "", "Vec3", "", false, true), m_deleted(deleted) {}
    CountingDescriptor(CountingDescriptor const&) = delete;
    CountingDescriptor& operator=(CountingDescriptor const&) = delete;
    ~CountingDescriptor() override { ++m_deleted; }

private:
    int& m_deleted;
};

using ChannelFactoryTest = ChannelTest;

TEST_F(ChannelFactoryTest, EveryDataTypeHasItsTextAndMakesBothEnds) {
    std::vector<std::string> const types = {"Integer",
                                            "Timestamp",
                                            "Vec3",
                                            "Quat",
                                            "Transform",
                                            "Indexed Transform",
                                            "Audio Buffer Data",
                                            "Audio Output Status",
                                            "Shared Buffer Data",
                                            "Head Tracking State",
                                            "Graphics Contract",
                                            "Eye Tracking State",
                                            "Hand Tracking Keypoint Data",
                                            "Hand Tracking Data",
                                            "Input Controller",
                                            "Lifecycle Event",
                                            "Feature",
                                            "Image Target Result",
                                            "Raycast Results",
                                            "Mesh",
                                            "Mesh Info",
                                            "Planes",
                                            "Pcf",
                                            "Controller System State",
                                            "Keyboard Data"};
    vq::test::LogCapture log(LogLevel::Verbose);
    ChannelFactory factory(m_context, m_sender, m_listener);
    ChannelFactory const second(m_context, nullptr, nullptr);
    std::vector<std::string> registered;
    std::string const line = "V ChannelFactory Registrar received registration for ";
    for (std::string const& text : log.Lines()) {
        if (text.rfind(line, 0) == 0) {
            registered.push_back(text.substr(line.size()));
        }
    }
    EXPECT_EQ(registered, types);
    EXPECT_EQ(ChannelFactory::Registrar::GetInstance().GetDataCreators().size(), types.size());
    for (std::string const& type : types) {
        factory.CreateChannelDescriptor(type, type, "");
        std::unique_ptr<Channel> const producer(factory.CreateChannel(type, kProducer));
        std::unique_ptr<Channel> const observer(factory.CreateChannel(type, kObserver));
        EXPECT_TRUE(producer != nullptr && producer->GetRole() == kProducer) << type;
        EXPECT_TRUE(observer != nullptr && observer->GetRole() == kObserver) << type;
    }
}

TEST_F(ChannelFactoryTest, TheFactoryOwnsItsDescriptorsAndDeletesNewcomersOfAKnownName) {
    int kept = 0;
    int refused = 0;
    {
        ChannelFactory factory(m_context, m_sender, m_listener);
        auto* const descriptor = new CountingDescriptor("a", kept);
        std::vector<ChannelDescriptor*> list = {descriptor, descriptor, new CountingDescriptor("a", refused)};
        factory.AddChannelDescriptors(list);
        EXPECT_TRUE(list.empty());
        list = {descriptor};
        factory.AddChannelDescriptors(list);
        EXPECT_EQ(kept, 0);
        EXPECT_EQ(refused, 1);
        EXPECT_EQ(factory.CreateChannelDescriptor("a", "Quat", "x"), descriptor);
        EXPECT_EQ(descriptor->dataType, "Vec3");
        EXPECT_EQ(descriptor->defaultProducer, "");
    }
    EXPECT_EQ(kept, 1);
}

TEST_F(ChannelFactoryTest, AChannelThatCannotBeMadeIsNullWithItsLine) {
    ChannelFactory factory(m_context, m_sender, m_listener);
    ChannelFactory bare(m_context, nullptr, nullptr);
    for (ChannelFactory* const each : {&factory, &bare}) {
        each->CreateChannelDescriptor("odd", "undefined", "");
        each->CreateChannelDescriptor("good", "Vec3", "");
    }
    vq::test::LogCapture log;
    EXPECT_EQ(factory.CreateChannel("none", kProducer), nullptr);
    EXPECT_EQ(factory.CreateChannel("odd", kProducer), nullptr);
    EXPECT_EQ(factory.CreateChannel("good", static_cast<vq::ch::ChannelRole>(2)), nullptr);
    EXPECT_EQ(bare.CreateChannel("odd", kProducer), nullptr);
    EXPECT_EQ(bare.CreateChannel("good", kObserver), nullptr);
    std::vector<std::string> const expected = {
        "E Failed to create channel for none - undefined channel descriptor",
        "E Failed to create channel - odd",
        "E Failed to create channel for good - invalid channel role",
        "E Failed to create channel - good",
        "W Warning: ChannelFactory not configured for Producer production - no senderPipe available",
        "W Warning: ChannelFactory not configured for Observer production - no listenerPipe available",
    };
    EXPECT_EQ(log.Lines(), expected);
}

TEST_F(ChannelFactoryTest, AChannelDescribesItselfForItsRegistration) {
    ChannelFactory factory(m_context, m_sender, m_listener);
    ChannelDescriptor* const descriptor = factory.CreateChannelDescriptor("c", "Vec3", "maker");
    std::unique_ptr<Channel> const channel(factory.CreateChannel("c", kObserver));
    descriptor->resizable = true;
    vq::descriptors::data::ChannelDescription message;
    channel->PopulateChannelDescriptionMessage(&message);
    ASSERT_TRUE(message.IsInitialized());
    EXPECT_EQ(message.SerializeAsString(), std::string("\x0a\x01"
                                                       "c\x12\x04Vec3\x1a\x05maker\x20\x01\x28\x01\x30\x01"));
}

TEST_F(ChannelFactoryTest, AMessageOfUnknownTypeBecomesASampleOfTheTypeThatTakesIt) {
    ChannelFactory const factory(m_context, m_sender, m_listener);
    vq::ch::SharedBufferChannelDataUpdatedEvent event;
    event.set_server_memory_id("memory");
    event.set_generation(3);
    event.set_updated_offset(4);
    event.set_updated_size(5);
    event.mutable_descriptor();
    std::unique_ptr<AChannelMessage> const message(m_sender->NewChannelMessage());
    auto const decode = [&](std::string const& type, google::protobuf::MessageLite const& contents) {
        message->SetType(type);
        EXPECT_TRUE(m_context->EncodeMessage(contents, message.get()));
        return std::unique_ptr<IData>(factory.CreateDataFromMessage(message.get()));
    };
    vq::ch::Vec3ChannelDataEvent vec;
    vec.set_x(1);
    vec.set_y(2);
    vec.set_z(3);
    std::unique_ptr<IData> data = decode("vq.ch.Vec3ChannelDataEvent", vec);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->ToString(), "Vec3");
    std::unique_ptr<google::protobuf::MessageLite> const copy(data->Serialize());
    EXPECT_EQ(copy->SerializeAsString(), vec.SerializeAsString());

    EXPECT_EQ(decode("vq.ch.QuatChannelDataEvent", vec), nullptr);  // a required field is missing
    EXPECT_EQ(decode("vq.ch.HelloDataEvent", vec), nullptr);

    ASSERT_TRUE(event.IsInitialized());
    data = decode("vq.ch.SharedBufferChannelDataUpdatedEvent", event);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->GetType(), "Shared Buffer Data");
    std::unique_ptr<google::protobuf::MessageLite> const same(data->Serialize());
    EXPECT_EQ(same->SerializeAsString(), event.SerializeAsString());
}

}  // namespace
