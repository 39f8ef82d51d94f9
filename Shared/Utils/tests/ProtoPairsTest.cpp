// What holds for every pair of a message and a plain structure, over random values.

#include <google/protobuf/io/coded_stream.h>

#include "RandomPlain.h"
#include "TestSupport/Test.h"

namespace {

template <class MessageType, class PlainType>
struct Case {
    using Message = MessageType;
    using Plain = PlainType;
};

/// Structure to message; of pairs without that direction, by the machinery of the others.
template <class Message, class Plain>
Message MessageOf(Plain const& plain) {
    Message message;
    if constexpr (ProtoUtilsDetail::FillsMessage<Message, Plain>) {
        ProtoUtils::ConvertTo(plain, &message);
    } else {
        ProtoUtilsDetail::CopyAllToMessage(plain, message);
    }
    return message;
}

/// The numbers of the fields that the encoded message holds at its own level.
std::set<int> FieldNumbers(std::string const& bytes) {
    using google::protobuf::io::CodedInputStream;
    CodedInputStream in(reinterpret_cast<std::uint8_t const*>(bytes.data()), static_cast<int>(bytes.size()));
    std::set<int> numbers;
    std::uint64_t scalar = 0;
    std::uint32_t word = 0;
    std::uint32_t length = 0;
    while (std::uint32_t const tag = in.ReadTag()) {
        numbers.insert(static_cast<int>(tag >> 3));
        bool const read = (tag & 7) == 0   ? in.ReadVarint64(&scalar)
                          : (tag & 7) == 5 ? in.ReadLittleEndian32(&word)
                                           : in.ReadVarint32(&length) && in.Skip(static_cast<int>(length));
        EXPECT_TRUE(read) << "field " << (tag >> 3);
    }
    return numbers;
}

template <class>
class ProtoPairs : public testing::Test {};

using AllPairs = testing::Types<
    Case<vq::math::VQVec3f, ::VQVec3f>, Case<vq::math::VQQuaternionf, ::VQQuaternionf>,
    Case<vq::math::VQRectf, ::VQRectf>, Case<vq::math::VQTransform, ::VQTransform>,
    Case<vq::math::VQMat4f, ::VQMat4f>, Case<vq::sd::VQHandTrackingHandState, ::VQHandTrackingHandState>,
    Case<vq::sd::VQHandTrackingData, ::VQHandTrackingData>,
    Case<vq::sd::VQHandTrackingConfiguration, ::VQHandTrackingConfiguration>,
    Case<vq::sd::VQInputControllerTouchpadGesture, ::VQInputControllerTouchpadGesture>,
    Case<vq::sd::VQControllerSystemState, ::VQControllerSystemState>,
    Case<vq::sd::VQImageTrackerTargetResult, ::VQImageTrackerTargetResult>,
    Case<vq::sd::VQImageTrackerSettings, ::VQImageTrackerSettings>,
    Case<vq::sd::VQImageTrackerTargetSettings, ::VQImageTrackerTargetSettings>,
    Case<vq::sd::VQRaycastQuery, ::VQRaycastQuery>, Case<vq::sd::VQRaycastResult, ::VQRaycastResult>,
    Case<vq::sd::VQMeshingExtents, ::VQMeshingExtents>, Case<vq::sd::VQMeshingSettings, ::VQMeshingSettings>,
    Case<vq::sd::VQPlanesQueryBegin, ::VQPlanesQuery>,
    Case<vq::sd::ClipExtentsInfo, ::VQGraphicsClipExtentsInfo>,
    Case<vq::sd::ClipExtentsInfoArray, ::VQGraphicsClipExtentsInfoArray>,
    Case<vq::sd::FrameParams, ::VQGraphicsFrameParamsEx>, Case<vq::ch::KeyboardDataEvent, ::KeyboardData>>;
TYPED_TEST_SUITE(ProtoPairs, AllPairs);

TYPED_TEST(ProtoPairs, RoundTripsOverTheWireAreExactAndFillEveryMember) {
    VQ_SKIP_WHERE_PADDING_STAYS();
    using Message = typename TypeParam::Message;
    using Plain = typename TypeParam::Plain;
    RandomPlain random(7);
    for (int round = 0; round < 200; ++round) {
        Plain plain{};
        random.Fill<Message>(plain);
        Message received;
        ASSERT_TRUE(received.ParseFromString(MessageOf<Message>(plain).SerializeAsString()));
        // Two outputs of different old content: a member that the pair's fields miss would differ.
        Plain zeros;
        Plain ones;
        std::memset(static_cast<void*>(&zeros), 0, sizeof zeros);
        std::memset(static_cast<void*>(&ones), 1, sizeof ones);
        ProtoUtils::ConvertTo(received, &zeros);
        ProtoUtils::ConvertTo(received, &ones);
        ASSERT_TRUE(SameBits(plain, zeros)) << "round " << round;
        ASSERT_TRUE(SameBits(plain, ones)) << "round " << round;
    }
}

TYPED_TEST(ProtoPairs, ZerosAreSentAsFieldsThatArePresentAndAMessageIsOverwrittenNotAppendedTo) {
    using Message = typename TypeParam::Message;
    using Plain = typename TypeParam::Plain;
    Plain plain{};
    Message message = MessageOf<Message>(plain);
    std::string const bytes = message.SerializeAsString();
    EXPECT_EQ(FieldNumbers(bytes).size(),
              std::tuple_size_v<decltype(ProtoUtilsDetail::Pair<Message, Plain>::Fields())>);
    RandomPlain(3).Fill<Message>(plain);
    if constexpr (ProtoUtilsDetail::FillsMessage<Message, Plain>) {
        ProtoUtils::ConvertTo(plain, &message);
        EXPECT_EQ(message.SerializeAsString(), MessageOf<Message>(plain).SerializeAsString());
    }
}

}  // namespace
