// The conversions that have something of their own.

#include "Utils/ProtoUtils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <string>
#include <vector>

#include "RandomPlain.h"
#include "TestSupport/LogCapture.h"
#include "vq_identity.h"

namespace {

using ProtoUtils::ConvertTo;
using ProtoUtilsDetail::ConvertToChecked;

extern "C" std::size_t const vqTypesLayoutInC[6];

constexpr char const* kFailedCheck = "\\*\\*\\*\\* CHECK FAILED \\(aborting\\) \\*\\*\\*\\* ";

std::uint64_t SteadyMilliseconds() {
    auto const now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

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
    struct {
        std::vector<std::uint64_t> words;
        std::uint64_t first, second;
    } const cases[] = {{{}, 0, 0}, {{5}, 5, 0}, {{5, ~0ull}, 5, ~0ull}, {{5, 6, 7}, 5, 6}};
    for (auto const& test : cases) {
        vq::sd::VQCoordinateFrameUID message;
        message.mutable_data()->Add(test.words.begin(), test.words.end());
        ::VQCoordinateFrameUID plain{{99, 99}};
        ConvertTo(message, &plain);
        EXPECT_EQ(plain.data[0], test.first);
        EXPECT_EQ(plain.data[1], test.second);
        ConvertTo(plain, &message);
        ASSERT_EQ(message.data_size(), 2);
        EXPECT_EQ(message.data(0), test.first);
        EXPECT_EQ(message.data(1), test.second);
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
        glm::mat4 matrix(-1.0f);
        for (int column = 0; column < 4; ++column) {
            matrix[column] = glm::vec4(-1.0f);
        }
        ConvertTo(message, &plain);
        ConvertTo(message, &matrix);
        for (int index = 0; index < 16; ++index) {
            float const expected = index < count ? static_cast<float>(index) : -1.0f;
            EXPECT_EQ(plain.matrix_colmajor[index], expected) << count << " elements, " << index;
            EXPECT_EQ(matrix[index / 4][index % 4], expected) << count << " elements, " << index;
        }
        vq::math::VQMat4f back;
        back.add_matrix_colmajor(77);
        ConvertTo(matrix, &back);
        ASSERT_EQ(back.matrix_colmajor_size(), 16);
        EXPECT_EQ(back.matrix_colmajor(15), count > 15 ? 15.0f : -1.0f);
    }
}

TEST(ProtoUtils, ControllerStateTravelsInTwoMessagesThatTouchOnlyTheirOwnPart) {
    RandomPlain random(11);
    for (int round = 0; round < 200; ++round) {
        ::VQInputControllerState sent{};
        random.Fill<vq::sd::VQInputControllerState>(sent);
        random.Fill<vq::math::VQTransform>(sent);
        vq::ch::InputControllerDataEvent controller;
        vq::ch::TransformChannelDataEvent pose;
        std::uint64_t const before = SteadyMilliseconds();
        ConvertTo(sent, &controller, &pose);
        EXPECT_GE(controller.state().timestamp(), before);
        EXPECT_LE(controller.state().timestamp(), SteadyMilliseconds());
        EXPECT_FALSE(pose.has_absolute_position() || pose.has_absolute_orientation() ||
                     pose.has_translate_relative() || pose.has_rotate_relative());
        EXPECT_EQ(pose.contributors_size(), 0);

        ::VQInputControllerState const blank{};
        ::VQInputControllerState received{};
        ConvertTo(pose, &received);
        EXPECT_TRUE(SameBits(received.position, sent.position));
        EXPECT_TRUE(SameBits(received.orientation, sent.orientation));
        ::VQInputControllerState const poseOnly = received;
        ConvertTo(controller, &received);
        for (int finger = 0; finger < 2; ++finger) {
            sent.is_touch_active[finger] = sent.touch_pos_and_force[finger].z > 0.0f;
        }
        EXPECT_TRUE(SameBits(received, sent));

        // Each message by itself leaves the other's part alone.
        ::VQInputControllerState rest = poseOnly;
        rest.position = {};
        rest.orientation = {};
        EXPECT_TRUE(SameBits(rest, blank));
        ::VQInputControllerState noPose{};
        ConvertTo(controller, &noPose);
        EXPECT_TRUE(SameBits(noPose.position, blank.position));
        EXPECT_TRUE(SameBits(noPose.orientation, blank.orientation));
    }
}

TEST(ProtoUtils, ATouchIsActiveByItsForceAlone) {
    ::VQInputControllerState state{};
    state.is_touch_active[0] = true;
    state.touch_pos_and_force[1].z = 1e-30f;
    vq::ch::InputControllerDataEvent controller;
    vq::ch::TransformChannelDataEvent pose;
    ConvertTo(state, &controller, &pose);
    ASSERT_EQ(controller.state().is_touch_active_size(), 2);
    EXPECT_FALSE(controller.state().is_touch_active(0));
    EXPECT_TRUE(controller.state().is_touch_active(1));
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
        EXPECT_EQ(message.num_virtual_cameras(), count);
        EXPECT_EQ(message.extents_size(), static_cast<int>(std::min(count, 3u)));

        ::VQGraphicsClipExtentsInfoArray received{};
        received.extents[1].transform.position.x = -1;
        ConvertTo(message, &received);
        EXPECT_EQ(received.num_virtual_cameras, count);
        EXPECT_EQ(received.extents[0].transform.position.x, count > 0 ? 1.0f : 0.0f);
        EXPECT_EQ(received.extents[1].transform.position.x, count > 1 ? 2.0f : -1.0f);
    }
}

TEST(ProtoUtils, AKeyboardEventWithEitherFieldMissingReadsItsDefaults) {
    vq::ch::KeyboardDataEvent event;
    event.set_character('A');
    ::KeyboardData plain{1, static_cast<::VQKeyCode>(2), true, 3};
    ConvertTo(event, &plain);
    EXPECT_EQ(plain.character, 65u);
    EXPECT_EQ(plain.key, 0);
    EXPECT_FALSE(plain.is_down);
    EXPECT_EQ(plain.modifiers, 0u);
}

TEST(ProtoUtils, IdentityAttributesBorrowTextsOneWayAndCopyThemTheOther) {
    vq::sd::VQIdentityAttribute message;
    message.set_key(vq::sd::VQIdentityAttributeKey_7);
    message.set_name("mail");
    message.set_value("a@b");
    message.set_is_requested(true);
    message.set_is_granted(true);
    ::VQIdentityAttribute plain{};
    ConvertTo(message, &plain);
    EXPECT_EQ(plain.key, ::VQIdentityAttributeKey_7);
    EXPECT_EQ(static_cast<void const*>(plain.name), message.name().c_str());
    EXPECT_STREQ(plain.value, "a@b");
    EXPECT_TRUE(plain.is_requested && plain.is_granted);
    plain.value = nullptr;
    vq::sd::VQIdentityAttribute back;
    ConvertTo(plain, &back);
    message.clear_value();
    message.set_value("");
    EXPECT_EQ(back.SerializeAsString(), message.SerializeAsString());
}

TEST(ProtoUtils, SurfaceFormatsMapByValueAndRefuseOthersWithAnErrorLine) {
    for (int number = 0; number < 8; ++number) {
        auto message = vq::sd::SurfaceFormat_0;
        auto plain = VQSurfaceFormat_0;
        EXPECT_TRUE(ConvertToChecked(static_cast<::VQSurfaceFormat>(number), &message));
        EXPECT_TRUE(ConvertToChecked(static_cast<vq::sd::SurfaceFormat>(number), &plain));
        EXPECT_EQ(message, number);
        EXPECT_EQ(plain, number);
    }
    vq::test::LogCapture log;
    for (int const number : {-1, 8, 1 << 30}) {
        auto message = vq::sd::SurfaceFormat_5;
        auto plain = VQSurfaceFormat_5;
        EXPECT_FALSE(ConvertToChecked(static_cast<::VQSurfaceFormat>(number), &message));
        EXPECT_FALSE(ConvertToChecked(static_cast<vq::sd::SurfaceFormat>(number), &plain));
        EXPECT_EQ(message, 5);
        EXPECT_EQ(plain, 5);
    }
    EXPECT_EQ(log.Lines(), std::vector<std::string>(6, "E Unhandled surface format"));
}

TEST(ProtoUtilsDeathTest, NullOutputsAndNumbersOutsideAnEnumerationEndTheProcess) {
    ::VQInputControllerState const state{};
    vq::ch::InputControllerDataEvent controller;
    vq::ch::TransformChannelDataEvent pose;
    EXPECT_DEATH(ConvertTo(vq::math::VQVec3f(), static_cast<::VQVec3f*>(nullptr)), kFailedCheck);
    EXPECT_DEATH(ConvertTo(::VQVec3f(), static_cast<vq::math::VQVec3f*>(nullptr)), kFailedCheck);
    EXPECT_DEATH(ConvertTo(vq::cfg::Variant(), static_cast<glm::vec3*>(nullptr)), kFailedCheck);
    EXPECT_DEATH(ConvertTo(state, nullptr, &pose), kFailedCheck);
    EXPECT_DEATH(ConvertTo(state, &controller, nullptr), kFailedCheck);
    ::VQRaycastResult result{};
    result.state = static_cast<::VQRaycastResultState>(8);
    vq::sd::VQRaycastResult message;
    EXPECT_DEATH(ConvertTo(result, &message), "VQRaycastResultState_IsValid");
}

}  // namespace
