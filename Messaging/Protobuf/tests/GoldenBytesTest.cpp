// Messages against bytes that are written by hand, field by field, so that no expectation comes from the
// generated classes that it is to check.

#include <google/protobuf/message_lite.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ChannelData.pb.h"
#include "Config.pb.h"
#include "DeviceEvents.pb.h"
#include "DeviceRequests.pb.h"
#include "HandTracking.pb.h"
#include "Identity.pb.h"
#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "TestSupport/WireWriter.h"
#include "VQKeycodes.pb.h"

namespace {

using google::protobuf::MessageLite;

using wire::Float;
using wire::FloatBytes;
using wire::Number;
using wire::Text;

/// One field as bytes, and whether its message is complete without it.
struct Piece {
    Piece(std::string text, bool isRequired = true) : bytes(std::move(text)), required(isRequired) {}
    std::string bytes;
    bool required;
};

Piece May(std::string bytes) {
    return {std::move(bytes), false};
}

/// A message with a value in each of its fields.
struct Sample {
    char const* typeName;
    std::vector<Piece> pieces;
    MessageLite const* prototype;
    std::function<std::string(std::string const&)> unknownFieldsOf;

    std::string Bytes(std::size_t without = std::string::npos) const {
        std::string bytes;
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            bytes += i == without ? "" : pieces[i].bytes;
        }
        return bytes;
    }
};

template <typename Message>
Message Parsed(std::string const& bytes) {
    Message message;
    EXPECT_TRUE(message.ParsePartialFromString(bytes));
    return message;
}

template <typename Message>
Sample Of(char const* typeName, std::vector<Piece> pieces) {
    return {typeName, std::move(pieces), &Message::default_instance(),
            [](std::string const& bytes) { return Parsed<Message>(bytes).unknown_fields(); }};
}

std::string const vec3 = wire::Vector(1.5F, -2, 0);
std::string const quaternion = vec3 + Float(4, 1);
std::string const yes = Number(4, 1);
std::string const attribute = Number(1, 7) + Text(2, "email") + Text(3, "a@b") + Number(4, 1) + Number(5, 0);
std::string const profile = Number(1, 2) + Text(2, attribute);
std::string const handle = Number(1, std::int64_t{-1} << 63);
std::string const counter = Text(1, "updates") + Number(2, 0x54c2220f) + Number(3, -5) + Number(4, 4) +
                            Number(5, -3) + Number(6, 2) + Number(7, 1);
std::string const timer = Text(1, "wait") + Number(2, 9) + Number(3, 1LL << 40) + Number(4, 2) +
                          Number(5, 1LL << 33) + Number(6, 1LL << 34) + Number(7, 1LL << 35);
std::string const description =
    Text(1, "dev") + Text(2, "Device") + Text(3, "Identity") + Number(9, 4242) + Number(10, 0);
std::string const channel =
    Text(1, "id") + Text(2, "Feature") + Text(3, "dev") + Number(4, 0) + Number(5, 1) + Number(6, 1);
std::string const mapping = Text(1, "dev") + Text(2, "id");

std::vector<Sample> IdentitySamples() {
    using namespace vq::sd;
    std::vector<Piece> const syncReply{Number(1, -1), Text(2, profile)};
    std::vector<Piece> const waitReply{Number(1, -1), May(Text(2, profile))};
    std::vector<Piece> const wait{Text(1, handle), Number(2, 5000)};
    return {
        Of<VQIdentityAttribute>("vq.sd.VQIdentityAttribute",
                                {Number(1, 7), Text(2, "email"), Text(3, "a@b"), yes, Number(5, 0)}),
        Of<VQIdentityProfile>("vq.sd.VQIdentityProfile", {Number(1, 2), May(Text(2, attribute))}),
        Of<VQIdentityGetAttributeNames>("vq.sd.VQIdentityGetAttributeNames", {}),
        Of<VQIdentityGetAttributeNames::Reply>("vq.sd.VQIdentityGetAttributeNames.Reply", syncReply),
        Of<VQIdentityGetKnownAttributeNames>("vq.sd.VQIdentityGetKnownAttributeNames",
                                             {May(Number(1, 0)), May(Number(1, 3))}),
        Of<VQIdentityGetKnownAttributeNames::Reply>("vq.sd.VQIdentityGetKnownAttributeNames.Reply",
                                                    syncReply),
        Of<VQIdentityRequestAttributeValues>("vq.sd.VQIdentityRequestAttributeValues",
                                             {May(Text(1, profile))}),
        Of<VQIdentityRequestAttributeValues::Reply>("vq.sd.VQIdentityRequestAttributeValues.Reply",
                                                    syncReply),
        Of<VQIdentityReleaseUserProfile::Reply>("vq.sd.VQIdentityReleaseUserProfile.Reply", {Number(1, -1)}),
        Of<VQIdentityGetAttributeNamesAsync::Reply>("vq.sd.VQIdentityGetAttributeNamesAsync.Reply",
                                                    {Text(1, handle), Number(2, 3)}),
        Of<VQIdentityGetAttributeNamesWait>("vq.sd.VQIdentityGetAttributeNamesWait", wait),
        Of<VQIdentityGetAttributeNamesWait::Reply>("vq.sd.VQIdentityGetAttributeNamesWait.Reply", waitReply),
        Of<VQIdentityRequestAttributeValuesAsync>("vq.sd.VQIdentityRequestAttributeValuesAsync",
                                                  {May(Text(1, profile))}),
        Of<VQIdentityRequestAttributeValuesAsync::Reply>("vq.sd.VQIdentityRequestAttributeValuesAsync.Reply",
                                                         {Number(1, 3), Text(2, handle)}),
        Of<VQIdentityRequestAttributeValuesWait>("vq.sd.VQIdentityRequestAttributeValuesWait", wait),
        Of<VQIdentityRequestAttributeValuesWait::Reply>("vq.sd.VQIdentityRequestAttributeValuesWait.Reply",
                                                        waitReply),
    };
}

std::vector<Sample> ServerSamples() {
    using namespace vq::vds;
    return {
        Of<Error>("vq.vds.Error", {Text(1, "no")}),
        Of<GetDeviceInfo::Error>("vq.vds.GetDeviceInfo.Error", {Text(1, "no")}),
        Of<GetVersion::Reply>("vq.vds.GetVersion.Reply",
                              {Number(1, 1), May(Number(2, 2)), May(Number(3, 3)), May(Number(4, 4))}),
        Of<GetProtocolVersion::Reply>("vq.vds.GetProtocolVersion.Reply", {Number(1, 13), Number(2, 12)}),
        Of<DeviceInfo>(
            "vq.vds.DeviceInfo",
            {Number(1, -1), Text(2, "dev"), Text(3, "Device"), Text(4, "Identity"), May(Text(5, "out")),
             May(Text(6, "in")), Number(7, 1), Number(8, 0), Number(11, 4294967295), Number(12, 0)}),
        Of<ChannelInfo>("vq.vds.ChannelInfo",
                        {Number(1, 5), Text(2, "id"), Text(3, "Label"), Text(4, "Feature"), Text(5, "dev"),
                         Number(6, 1), Number(7, 0), Number(8, 1)}),
        Of<GetChannelMappings::Reply>("vq.vds.GetChannelMappings.Reply",
                                      {May(Text(1, mapping)), May(Text(2, mapping))}),
        Of<GetDeviceRequestReplyAddress>("vq.vds.GetDeviceRequestReplyAddress",
                                         {Text(1, "dev"), Number(2, 0), May(Text(3, ""))}),
        Of<RegisterSparseDevice>("vq.vds.RegisterSparseDevice", {Text(1, description), Text(2, "IPC:a")}),
        Of<RegisterSparseDevice::Reply>("vq.vds.RegisterSparseDevice.Reply", {Number(1, 0), Number(2, 1)}),
        Of<RegisterSparseDeviceChannels>("vq.vds.RegisterSparseDeviceChannels",
                                         {Number(1, 7), May(Text(2, channel)), May(Number(3, 1))}),
        Of<RegisterSparseDeviceChannels::Reply>("vq.vds.RegisterSparseDeviceChannels.Reply",
                                                {May(Number(1, 1)), May(Number(1, 300))}),
        Of<SparseDeviceStatsUpdate>(
            "vq.vds.SparseDeviceStatsUpdate",
            {Number(1, 7), Text(2, "dev"), Text(3, Text(1, counter) + Text(2, timer))}),
        Of<SendSparseDeviceEvent>("vq.vds.SendSparseDeviceEvent",
                                  {Number(1, 7), Text(2, "vq.sd.X"), Text(3, std::string("\0\xff", 2))}),
        Of<RegisterDeviceApplication>(
            "vq.vds.RegisterDeviceApplication",
            {Text(1, "app"), Text(2, "App"), Number(3, 1LL << 33), May(Number(4, 1))}),
        Of<PortableSharedMemoryConfiguration>(
            "vq.vds.PortableSharedMemoryConfiguration",
            {Number(1, 1), Text(2, Number(1, 8) + Number(2, 1) + Text(11, Number(1, 3)))}),
    };
}

std::vector<Sample> EventSamples() {
    using namespace vq::vds;
    return {
        Of<ServerHeartbeat>("vq.vds.ServerHeartbeat", {}),
        Of<ServerStoppingEvent>("vq.vds.ServerStoppingEvent", {Text(1, "bye")}),
        Of<DeviceRegisteredEvent>("vq.vds.DeviceRegisteredEvent",
                                  {Text(1, "dev"), Text(2, "Identity"), Number(3, 4294967295)}),
        Of<DeviceUnregisteredEvent>("vq.vds.DeviceUnregisteredEvent", {Text(1, "dev"), Number(2, 7)}),
        Of<ChannelRegisteredEvent>("vq.vds.ChannelRegisteredEvent",
                                   {Text(1, "dev"), Text(2, "id"), Number(3, 0)}),
        Of<ChannelMappingChangedEvent>(
            "vq.vds.ChannelMappingChangedEvent",
            {Text(1, "id"), May(Text(2, "a")), May(Text(2, "b")), May(Text(3, "c"))}),
        Of<SharedMemoryModifiedEvent>("vq.vds.SharedMemoryModifiedEvent",
                                      {Text(1, "cam"), Number(2, 5), Number(3, 0), Number(4, 64)}),
        Of<VQSDKApplicationUnregisteredEvent>("vq.vds.VQSDKApplicationUnregisteredEvent", {Number(1, 3)}),
        Of<vq::sd::UserMessageEvent>("vq.sd.UserMessageEvent",
                                     {Text(1, "hi"), Number(2, 3), Number(3, 1), Number(4, 2)}),
    };
}

std::vector<Sample> ChannelSamples() {
    using namespace vq::ch;
    return {
        Of<HelloDataEvent>("vq.ch.HelloDataEvent", {Text(1, "hello"), May(Number(2, -7))}),
        Of<Vec3ChannelDataEvent>("vq.ch.Vec3ChannelDataEvent",
                                 {Float(1, 1.5F), Float(2, -2), Float(3, 0), May(Number(4, 1))}),
        Of<TimestampChannelDataEvent>("vq.ch.TimestampChannelDataEvent", {May(Text(1, Number(1, -1)))}),
        Of<TransformChannelDataEvent>(
            "vq.ch.TransformChannelDataEvent",
            {Text(1, Text(1, vec3) + Text(2, quaternion)), May(Number(2, 1)), May(Number(3, 1)),
             May(Number(4, 0)), May(Number(5, 1)), May(Text(6, Number(1, 1) + Number(2, -2)))}),
        Of<SharedBufferChannelDataUpdatedEvent>(
            "vq.ch.SharedBufferChannelDataUpdatedEvent",
            {Text(1, "cam"), Text(2, Number(1, 4096) + Text(3, Number(1, 64))), Number(3, 5), Number(4, 0),
             Number(5, 64)}),
        Of<PcfDataEvent>("vq.ch.PcfDataEvent",
                         {May(Text(3, Text(1, Number(1, 1) + Number(1, 2)) + Text(2, vec3)))}),
        Of<vq::math::VQMat4f>("vq.math.VQMat4f", {May(Text(1, FloatBytes(1) + FloatBytes(2)))}),
    };
}

std::vector<Sample> ConfigSamples() {
    using namespace vq::cfg;
    std::vector<Sample> samples = {
        Of<CommonProperty>(
            "vq.cfg.CommonProperty",
            {Text(1, "volume"), Text(2, "float"), May(Text(3, yes)), May(Text(10, "Volume")),
             May(Text(11, "how loud")), May(Text(12, "audio")), May(Text(13, "?")), May(Number(14, -1)),
             May(Number(15, 1)), May(Number(16, 0)), May(Text(17, Text(1, Text(1, "k") + Text(2, yes))))}),
        Of<SimpleType>("vq.cfg.SimpleType",
                       {Text(1, "percent"), Text(2, "integer"), May(Text(3, Number(2, 50))),
                        May(Text(4, Number(2, 0))), May(Text(5, Number(2, 100))), May(Number(6, 2))}),
        Of<ArrayType>("vq.cfg.ArrayType", {Text(1, "vec3"), Text(2, "Vec3"), May(Text(3, "three")),
                                           Text(4, "float"), May(Text(5, Number(2, 3)))}),
        Of<ConfigurationSetting>("vq.cfg.ConfigurationSetting", {Text(1, "volume"), Text(9, yes)}),
        Of<vq::sd::SetDeviceConfiguration>("vq.sd.SetDeviceConfiguration",
                                           {May(Text(2, Text(1, "volume") + Text(9, yes)))}),
    };
    for (std::string const& value :
         {Text(1, "red"), Number(2, -1), Float(3, 0.25F), yes, Text(5, Text(1, "a") + Text(1, "b")),
          Text(6, Number(1, 1LL << 62) + Number(1, -2)), Text(7, Float(1, 1) + Float(1, 2)),
          Text(8, Number(1, 1) + Number(1, 0)), Text(9, Text(1, Text(1, "key") + Text(2, yes))),
          Text(10, Text(1, Text(1, Text(1, "key") + Text(2, "")))), std::string()}) {
        samples.push_back(Of<Variant>("vq.cfg.Variant", {May(value)}));
    }
    return samples;
}

TEST(GoldenBytes, AreReadWithoutRemainderWrittenBackAndIncompleteExactlyWithoutARequiredField) {
    for (auto const& samples :
         {IdentitySamples(), ServerSamples(), EventSamples(), ChannelSamples(), ConfigSamples()}) {
        for (Sample const& sample : samples) {
            EXPECT_EQ(sample.prototype->GetTypeName(), sample.typeName);
            EXPECT_EQ(sample.unknownFieldsOf(sample.Bytes()), "") << sample.typeName;
            std::unique_ptr<MessageLite> const parsed(sample.prototype->New());
            EXPECT_TRUE(parsed->ParseFromString(sample.Bytes())) << sample.typeName;
            EXPECT_EQ(parsed->SerializeAsString(), sample.Bytes()) << sample.typeName;
            for (std::size_t i = 0; i < sample.pieces.size(); ++i) {
                EXPECT_TRUE(parsed->ParsePartialFromString(sample.Bytes(i)));
                EXPECT_EQ(parsed->IsInitialized(), !sample.pieces[i].required) << sample.typeName << i;
            }
        }
    }
}

TEST(GoldenBytes, FieldsOfOneKindAreNotMixedUp) {
    auto const d = Parsed<vq::descriptors::data::SparseDeviceDescription>(description);
    EXPECT_EQ(d.name() + d.display_name() + d.type(), "devDeviceIdentity");
    EXPECT_EQ(d.process_id(), 4242u);
    auto const c = Parsed<vq::descriptors::data::ChannelDescription>(channel);
    EXPECT_EQ(c.name() + c.data_type() + c.third_text(), "idFeaturedev");
    EXPECT_EQ(c.role(), vq::ch::ChannelRole_Observer);
    auto const m = Parsed<vq::vds::DeviceAndChannel>(mapping);
    EXPECT_EQ(m.device() + m.channel(), "devid");
    auto const a = Parsed<vq::sd::VQIdentityAttribute>(attribute);
    EXPECT_EQ(a.name() + a.value(), "emaila@b");
    EXPECT_TRUE(a.is_requested() && !a.is_granted());
    auto const s = Parsed<vq::st::StatsCollection>(Text(1, counter) + Text(2, timer));
    auto const& n = s.counters(0);
    EXPECT_EQ((std::vector<std::int64_t>{n.value(), n.minimum(), n.maximum(), n.last()}),
              (std::vector<std::int64_t>{-5, -3, 2, 1}));
    auto const& t = s.timers(0);
    EXPECT_EQ(t.total() + t.minimum() + t.maximum() * 10 + t.last() * 100,
              (1ULL << 40) + (1ULL << 33) + (10ULL << 34) + (100ULL << 35));
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
    auto const request = Parsed<vq::sd::VQIdentityGetKnownAttributeNames>(Number(1, 2) + Number(1, 8));
    EXPECT_EQ(request.keys_size(), 1);
    EXPECT_EQ(request.SerializeAsString(), Number(1, 2) + Number(1, 8));
    EXPECT_FALSE(Parsed<vq::sd::VQIdentityAttribute>(Number(1, 8) + attribute.substr(2)).IsInitialized());
}

}  // namespace
