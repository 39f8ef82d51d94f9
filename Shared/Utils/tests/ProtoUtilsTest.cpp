// The conversions that have something of their own.

#include "Utils/ProtoUtils.h"

#include "RandomPlain.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "vq_identity.h"

namespace {

using ProtoUtils::ConvertTo;
using ProtoUtilsDetail::ConvertToChecked;

extern "C" std::size_t const vqTypesLayoutInC[6];

TEST(ProtoUtils, PlainStructuresHaveOneLayoutInCAndCpp) {
    std::size_t const layout[] = {sizeof(::VQHandTrackingHandState),
                                  sizeof(::VQInputControllerState),
                                  sizeof(::VQControllerSystemState),
                                  sizeof(::VQSurfaceFormat),
                                  sizeof(::KeyboardData),
                                  offsetof(::VQInputControllerState, dof)};
    EXPECT_TRUE(std::equal(std::begin(layout), std::end(layout), vqTypesLayoutInC));
}

TEST(ProtoUtils, FrameUidOfAnyLengthFillsBothWords) {
    std::vector<std::uint64_t> const words = {5, ~0ull, 7};
    for (int count = 0; count <= 3; ++count) {
        vq::sd::VQCoordinateFrameUID message;
        message.mutable_data()->Add(words.begin(), words.begin() + count);
        ::VQCoordinateFrameUID plain{{99, 99}};
        ConvertTo(message, &plain);
        EXPECT_EQ(plain.data[0], count > 0 ? 5u : 0u);
        EXPECT_EQ(plain.data[1], count > 1 ? ~0ull : 0u);
        ConvertTo(plain, &message);
        ASSERT_EQ(message.data_size(), 2);
        EXPECT_EQ(message.data(1), plain.data[1]);
    }
}

TEST(ProtoUtils, ListsFillFromTheFirstElementAndDropWhatHasNoPlace) {
    for (int const count : {0, 1, 15, 16, 17, 40}) {
        vq::math::VQMat4f message;
        for (int index = 0; index < count; ++index) {
            message.add_matrix_colmajor(static_cast<float>(index));
        }
        ::VQMat4f plain;
        std::fill(std::begin(plain.matrix_colmajor), std::end(plain.matrix_colmajor), -1.0f);
        glm::mat4 matrix(glm::vec4(-1), glm::vec4(-1), glm::vec4(-1), glm::vec4(-1));
        ConvertTo(message, &plain);
        ConvertTo(message, &matrix);
        for (int index = 0; index < 16; ++index) {
            float const expected = index < count ? static_cast<float>(index) : -1.0f;
            EXPECT_EQ(plain.matrix_colmajor[index], expected) << count << " elements, " << index;
            EXPECT_EQ(matrix[index / 4][index % 4], expected) << count << " elements, " << index;
        }
        ConvertTo(matrix, &message);
        ASSERT_EQ(message.matrix_colmajor_size(), 16);
        EXPECT_EQ(message.matrix_colmajor(15), count > 15 ? 15.0f : -1.0f);
    }
}

TEST(ProtoUtils, ControllerStateTravelsInTwoMessagesThatTouchOnlyTheirOwnPart) {
    VQ_SKIP_WHERE_PADDING_STAYS();
    auto const now = [] {
        auto const time = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
    };
    RandomPlain random(11);
    for (int round = 0; round < 200; ++round) {
        ::VQInputControllerState sent{};
        random.Fill<vq::sd::VQInputControllerState>(sent);
        random.Fill<vq::math::VQTransform>(sent);
        vq::ch::InputControllerDataEvent controller;
        vq::ch::TransformChannelDataEvent pose;
        std::uint64_t const before = now();
        ConvertTo(sent, &controller, &pose);
        EXPECT_GE(controller.state().timestamp(), before);
        EXPECT_LE(controller.state().timestamp(), now());

        // A touch is active by its force alone.
        for (int finger = 0; finger < 2; ++finger) {
            sent.is_touch_active[finger] = sent.touch_pos_and_force[finger].z > 0.0f;
        }
        ::VQInputControllerState noPose{};
        ConvertTo(controller, &noPose);
        ::VQInputControllerState expected = sent;
        expected.position = {};
        expected.orientation = {};
        EXPECT_TRUE(SameBits(noPose, expected));
        ::VQInputControllerState poseOnly{};
        ConvertTo(pose, &poseOnly);
        expected = {};
        expected.position = sent.position;
        expected.orientation = sent.orientation;
        EXPECT_TRUE(SameBits(poseOnly, expected));
    }
}

TEST(ProtoUtils, ExtendedClipExtentsSendAsManyAsTheyCountAndPlainOnesTakeTwo) {
    for (std::uint32_t const count : {0u, 2u, 3u, 4000000000u}) {
        ::VQGraphicsClipExtentsInfoArrayEx sent{};
        sent.num_virtual_cameras = count;
        for (int index = 0; index < 3; ++index) {
            sent.extents[index].transform.position.x = static_cast<float>(index + 1);
        }
        vq::sd::ClipExtentsInfoArray message;
        message.add_extents();
        ConvertTo(sent, &message);
        EXPECT_TRUE(message.IsInitialized());
        EXPECT_EQ(message.extents_size(), static_cast<int>(std::min(count, 3u)));
        ::VQGraphicsClipExtentsInfoArray received{};
        received.extents[1].transform.position.x = -1;
        ConvertTo(message, &received);
        EXPECT_EQ(received.num_virtual_cameras, count);
        EXPECT_EQ(received.extents[0].transform.position.x, count > 0 ? 1.0f : 0.0f);
        EXPECT_EQ(received.extents[1].transform.position.x, count > 1 ? 2.0f : -1.0f);
    }
}

TEST(ProtoUtils, SurfaceFormatsMapByValueAndRefuseOthersWithAnErrorLine) {
    vq::test::LogCapture log;
    for (int const number : {0, 1, 2, 3, 4, 5, 6, 7, -1, 8, 1 << 30}) {
        bool const known = number >= 0 && number < 8;
        auto message = vq::sd::SurfaceFormat_5;
        auto plain = VQSurfaceFormat_5;
        EXPECT_EQ(ConvertToChecked(static_cast<::VQSurfaceFormat>(number), &message), known);
        EXPECT_EQ(ConvertToChecked(static_cast<vq::sd::SurfaceFormat>(number), &plain), known);
        EXPECT_EQ(message, known ? number : 5);
        EXPECT_EQ(plain, known ? number : 5);
    }
    EXPECT_EQ(log.Lines(), std::vector<std::string>(6, "E Unhandled surface format"));
}

TEST(ProtoUtilsDeathTest, NullOutputsAndNumbersOutsideAnEnumerationEndTheProcess) {
    vq::ch::InputControllerDataEvent controller;
    char const* const failed = "\\*\\*\\*\\* CHECK FAILED \\(aborting\\) \\*\\*\\*\\* ";
    EXPECT_DEATH(ConvertTo(vq::math::VQVec3f(), static_cast<::VQVec3f*>(nullptr)), failed);
    EXPECT_DEATH(ConvertTo(::VQVec3f(), static_cast<vq::math::VQVec3f*>(nullptr)), failed);
    EXPECT_DEATH(ConvertTo(vq::cfg::Variant(), static_cast<glm::vec3*>(nullptr)), failed);
    EXPECT_DEATH(ConvertTo(::VQInputControllerState{}, &controller, nullptr), failed);
    ::VQRaycastResult result{};
    result.state = static_cast<::VQRaycastResultState>(8);
    vq::sd::VQRaycastResult message;
    EXPECT_DEATH(ConvertTo(result, &message), "VQRaycastResultState_IsValid");
}

}  // namespace
