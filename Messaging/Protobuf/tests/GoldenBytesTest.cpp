// Messages against bytes that are written by hand, field by field, so that no expectation comes from the
// generated classes that it is to check.

#include <google/protobuf/message_lite.h>

#include "ChannelData.pb.h"
#include "Config.pb.h"
#include "DeviceEvents.pb.h"
#include "DeviceRequests.pb.h"
#include "HandTracking.pb.h"
#include "Identity.pb.h"
#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"
#include "VQKeycodes.pb.h"

namespace {

using google::protobuf::MessageLite;

template <typename Message>
Message Parsed(std::string const& bytes) {
    Message message;
    EXPECT_TRUE(message.ParsePartialFromString(bytes));
    return message;
}

struct Type {
    MessageLite const* prototype;
    std::function<std::string(std::string const&)> unknownFieldsOf;
};

template <class... Messages>
std::map<std::string, Type> TypesByName() {
    return {{Messages::default_instance().GetTypeName(),
             {&Messages::default_instance(),
              [](std::string const& bytes) { return Parsed<Messages>(bytes).unknown_fields(); }}}...};
}

std::map<std::string, Type> AllTypes() {
    using namespace vq::cfg;  // NOLINT: a list of their messages
    using namespace vq::ch;   // NOLINT
    using namespace vq::sd;   // NOLINT
    namespace vds = vq::vds;
    return TypesByName<
        VQIdentityAttribute, VQIdentityProfile, VQIdentityGetAttributeNames,
        VQIdentityGetAttributeNames::Reply, VQIdentityGetKnownAttributeNames,
        VQIdentityGetKnownAttributeNames::Reply, VQIdentityRequestAttributeValues,
        VQIdentityRequestAttributeValues::Reply, VQIdentityReleaseUserProfile::Reply,
        VQIdentityGetAttributeNamesAsync::Reply, VQIdentityGetAttributeNamesWait,
        VQIdentityGetAttributeNamesWait::Reply, VQIdentityRequestAttributeValuesAsync,
        VQIdentityRequestAttributeValuesAsync::Reply, VQIdentityRequestAttributeValuesWait,
        VQIdentityRequestAttributeValuesWait::Reply, UserMessageEvent, SetDeviceConfiguration, vds::Error,
        vds::GetDeviceInfo::Error, vds::GetVersion::Reply, vds::GetProtocolVersion::Reply, vds::DeviceInfo,
        vds::ChannelInfo, vds::GetChannelMappings::Reply, vds::GetDeviceRequestReplyAddress,
        vds::RegisterSparseDevice, vds::RegisterSparseDevice::Reply, vds::RegisterSparseDeviceChannels,
        vds::RegisterSparseDeviceChannels::Reply, vds::SparseDeviceStatsUpdate, vds::SendSparseDeviceEvent,
        vds::RegisterDeviceApplication, vds::PortableSharedMemoryConfiguration, vds::ServerHeartbeat,
        vds::ServerStoppingEvent, vds::DeviceRegisteredEvent, vds::DeviceUnregisteredEvent,
        vds::ChannelRegisteredEvent, vds::ChannelMappingChangedEvent, vds::SharedMemoryModifiedEvent,
        vds::VQSDKApplicationUnregisteredEvent, HelloDataEvent, Vec3ChannelDataEvent,
        TimestampChannelDataEvent, TransformChannelDataEvent, SharedBufferChannelDataUpdatedEvent,
        PcfDataEvent, vq::math::VQMat4f, CommonProperty, SimpleType, ArrayType, ConfigurationSetting,
        Variant>();
}

TEST(GoldenBytes, AreReadWithoutRemainderWrittenBackAndIncompleteExactlyWithoutARequiredField) {
    std::map<std::string, Type> const types = AllTypes();
    std::set<std::string> seen;
    for (auto const& [name, text] : Rows<2>("GoldenBytes", "messages")) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(types.contains(name));
        seen.insert(name);
        Type const& type = types.at(name);
        EXPECT_EQ(type.unknownFieldsOf(wire::Bytes(text)), "");
        std::unique_ptr<MessageLite> const parsed(type.prototype->New());
        EXPECT_TRUE(parsed->ParseFromString(wire::Bytes(text)));
        EXPECT_EQ(parsed->SerializeAsString(), wire::Bytes(text));
        std::vector<wire::Piece> const pieces = wire::Pieces(text);
        for (std::size_t without = 0; without < pieces.size(); ++without) {
            std::string bytes;
            for (std::size_t i = 0; i < pieces.size(); ++i) {
                bytes += i == without ? "" : pieces[i].bytes;
            }
            EXPECT_TRUE(parsed->ParsePartialFromString(bytes));
            EXPECT_EQ(parsed->IsInitialized(), !pieces[without].required) << without;
        }
    }
    EXPECT_EQ(seen.size(), types.size());
}

TEST(Enumerations, AcceptTheirRangeAndNothingElse) {
    struct Range {
        bool (*isValid)(int);
        int first, last;
    };
    for (Range const& range : {Range{vq::sd::VQIdentityAttributeKey_IsValid, 0, 7},
                               {vq::sd::UserMessageCategory_IsValid, 0, 3},
                               {vq::sd::VQHandTrackingKeyPose_IsValid, 0, 8},
                               {vq::sd::VQKeyCode_IsValid, 0, 255},
                               {vq::cfg::OutOfRangeHandling_IsValid, 0, 2},
                               {vq::vds::TransmissionMethodDelta::Method_IsValid, 1, 3},
                               {vq::vds::GetRecordingStatus::RecordingStatus_IsValid, 1, 5},
                               {vq::vds::GetPlaybackStatus::PlaybackStatus_IsValid, 1, 6},
                               {vq::ch::ChannelRole_IsValid, 0, 1}}) {
        for (int value = range.first - 2; value <= range.last + 2; ++value) {
            EXPECT_EQ(range.isValid(value), value >= range.first && value <= range.last) << value;
        }
    }
}

TEST(Enumerations, AnUnknownNumberFromAPeerIsKeptAsAnUnknownField) {
    auto const request = Parsed<vq::sd::VQIdentityGetKnownAttributeNames>(wire::Bytes("1:2 1:8"));
    EXPECT_EQ(request.keys_size(), 1);
    EXPECT_EQ(request.SerializeAsString(), wire::Bytes("1:2 1:8"));
    EXPECT_FALSE(
        Parsed<vq::sd::VQIdentityAttribute>(wire::Bytes("1:8 2:'email' 3:'a@b' 4:1 5:0")).IsInitialized());
}

}  // namespace
