#include "Config.pb.h"
#include "DeviceEvents.pb.h"
#include "HandTracking.pb.h"
#include "Identity.pb.h"
#include "Math.pb.h"
#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "VQKeycodes.pb.h"
#include "WireWriter.h"

#include <vector>

#include <gtest/gtest.h>

namespace {

using wire::Float;
using wire::Number;
using wire::Text;

/// One value for each case, at the index of its number.
std::vector<std::string> const variantCases = {
    "",
    Text(1, "red"),
    Number(2, -1),
    Float(3, 0.25F),
    Number(4, 1),
    Text(5, Text(1, "a") + Text(1, "b")),
    Text(6, Number(1, 1LL << 62) + Number(1, -2)),
    Text(7, Float(1, 1) + Float(1, 2)),
    Text(8, Number(1, 1) + Number(1, 0)),
    Text(9, Text(1, Text(1, "key") + Text(2, Number(4, 0)))),
    Text(10, Text(1, Text(1, Text(1, "key") + Text(2, "")))),
};

TEST(VariantMessage, EachCaseHasTheNumberOfItsField) {
    for (std::size_t number = 0; number < variantCases.size(); ++number) {
        vq::cfg::Variant variant;
        ASSERT_TRUE(variant.ParseFromString(variantCases[number]));
        EXPECT_EQ(static_cast<std::size_t>(variant.value_case()), number);
        EXPECT_EQ(variant.SerializeAsString(), variantCases[number]);
        EXPECT_EQ(variant.unknown_fields(), "");
    }
}

TEST(VariantMessage, MergingAnotherCaseDropsTheOldValue) {
    for (std::size_t from = 0; from < variantCases.size(); ++from) {
        for (std::size_t to = 1; to < variantCases.size(); ++to) {
            if (from == to) {
                continue;
            }
            vq::cfg::Variant variant, other;
            ASSERT_TRUE(variant.ParseFromString(variantCases[from]));
            ASSERT_TRUE(other.ParseFromString(variantCases[to]));
            variant.MergeFrom(other);
            EXPECT_EQ(variant.SerializeAsString(), variantCases[to]) << from << " to " << to;
        }
    }
}

TEST(Enumerations, AcceptTheirRangeAndNothingElse) {
    struct Range {
        char const* name;
        bool (*isValid)(int);
        int first, last;
    };
    Range const ranges[] = {
        {"VQIdentityAttributeKey", vq::sd::VQIdentityAttributeKey_IsValid, 0, 7},
        {"UserMessageCategory", vq::sd::UserMessageCategory_IsValid, 0, 3},
        {"VQHandTrackingKeyPose", vq::sd::VQHandTrackingKeyPose_IsValid, 0, 8},
        {"VQKeyCode", vq::sd::VQKeyCode_IsValid, 0, 255},
        {"OutOfRangeHandling", vq::cfg::OutOfRangeHandling_IsValid, 0, 2},
        {"Method", vq::vds::TransmissionMethodDelta::Method_IsValid, 1, 3},
        {"RecordingStatus", vq::vds::GetRecordingStatus::RecordingStatus_IsValid, 1, 5},
        {"PlaybackStatus", vq::vds::GetPlaybackStatus::PlaybackStatus_IsValid, 1, 6},
        {"ChannelRole", vq::ch::ChannelRole_IsValid, 0, 1},
    };
    for (auto const& range : ranges) {
        for (int value = range.first - 2; value <= range.last + 2; ++value) {
            EXPECT_EQ(range.isValid(value), value >= range.first && value <= range.last)
                << range.name << " " << value;
        }
    }
}

TEST(Enumerations, SettersRefuseAValueOutsideTheRange) {
    vq::sd::VQIdentityAttribute attribute;
    vq::sd::VQIdentityGetKnownAttributeNames request;
    // Eight lies outside the enumerators but, the type being an int underneath, is a value that C callers can
    // pass.
    auto const eight = static_cast<vq::sd::VQIdentityAttributeKey>(8);
    EXPECT_DEATH(attribute.set_key(eight), "::vq::sd::VQIdentityAttributeKey_IsValid\\(value\\)");
    EXPECT_DEATH(request.add_keys(eight), "::vq::sd::VQIdentityAttributeKey_IsValid\\(value\\)");
}

TEST(Enumerations, AnUnknownNumberFromAPeerIsKeptAsAnUnknownField) {
    vq::sd::VQIdentityGetKnownAttributeNames request;
    ASSERT_TRUE(request.ParseFromString(Number(1, 2) + Number(1, 8)));
    ASSERT_EQ(request.keys_size(), 1);
    EXPECT_EQ(request.keys(0), vq::sd::VQIdentityAttributeKey_2);
    EXPECT_EQ(request.SerializeAsString(), Number(1, 2) + Number(1, 8));

    vq::sd::VQIdentityAttribute attribute;
    attribute.ParsePartialFromString(Number(1, 8) + Text(2, "n") + Text(3, "v") + Number(4, 0) +
                                     Number(5, 0));
    EXPECT_FALSE(attribute.has_key());
    EXPECT_FALSE(attribute.IsInitialized());
}

TEST(Matrix, IsReadPackedAndOneByOneButWrittenPacked) {
    std::string run, single;
    for (int i = 0; i < 16; ++i) {
        run += wire::FloatBytes(static_cast<float>(i));
        single += Float(1, static_cast<float>(i));
    }
    for (auto const& bytes : {Text(1, run), single}) {
        vq::math::VQMat4f matrix;
        ASSERT_TRUE(matrix.ParseFromString(bytes));
        EXPECT_EQ(matrix.matrix_colmajor(15), 15);
        EXPECT_EQ(matrix.SerializeAsString(), Text(1, run));
    }
}

}  // namespace
