#include "Utils/ProtoDump.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <functional>
#include <glm/gtc/quaternion.hpp>
#include <iomanip>
#include <random>
#include <sstream>

#include "ChannelData.pb.h"
#include "Utils/ProtoStream.h"

namespace {

using namespace vq::ch;

constexpr char const* kRotation = "[0.860042, 0.0808047, 0.402198, 0.303372]";

template <class Vector>
void SetVector(Vector& vector, float x, float y, float z) {
    vector.set_x(x);
    vector.set_y(y);
    vector.set_z(z);
}

/// The rotation by 30, 40 and 50 degrees, into any message with these fields.
template <class Quaternion>
void SetRotation(Quaternion& rotation) {
    glm::quat const q(glm::radians(glm::vec3(30, 40, 50)));
    SetVector(rotation, q.x, q.y, q.z);
    rotation.set_w(q.w);
}

template <class Pose>
void SetPose(Pose& pose) {
    SetVector(*pose.mutable_position(), 1, 2, 3);
    SetRotation(*pose.mutable_rotation());
}

template <class Event>
std::string DumpOf(std::function<void(Event&)> const& fill) {
    Event event;
    fill(event);
    std::string text = "old text";
    ProtoUtils::DumpToString(event.GetTypeName(), event.SerializePartialAsString(), text);
    return text;
}

template <class Event>
void Expect(std::string const& expected, std::function<void(Event&)> const& fill) {
    EXPECT_EQ(DumpOf<Event>(fill), expected) << Event().GetTypeName();
}

std::string const kFullRotation = std::string(kRotation) + "=(30, 40, 50)";

TEST(ProtoDump, SamplesOfGeometry) {
    Expect<Vec3ChannelDataEvent>("(1, 2.5, -3) flag=1 ", [](auto& event) {
        SetVector(event, 1, 2.5f, -3);
        event.set_flag(true);
    });
    Expect<Vec3ChannelDataEvent>("(0, 2, 0) ", [](auto& event) { event.set_y(2); });
    Expect<QuatChannelDataEvent>(kFullRotation + " flag=0 ", [](auto& event) {
        SetRotation(event);
        event.set_flag(false);
    });
    Expect<TransformChannelDataEvent>("pos=(1, 2, 3),rot=" + std::string(kRotation) +
                                          "~(30, 40, 50) absolute_position=1 absolute_orientation=0 "
                                          "translate_relative=1 rotate_relative=0 ",
                                      [](auto& event) {
                                          SetPose(*event.mutable_transform());
                                          event.set_absolute_position(true);
                                          event.set_absolute_orientation(false);
                                          event.set_translate_relative(true);
                                          event.set_rotate_relative(false);
                                      });
    Expect<IndexedTransformChannelDataEvent>(
        "pos=(1, 2, 3),(no rot) cfuid=[4, 18446744073709551615] ", [](auto& event) {
            SetVector(*event.mutable_transform()->mutable_transform()->mutable_position(), 1, 2, 3);
            event.mutable_cfuid()->add_data(4);
            event.mutable_cfuid()->add_data(~0ull);
        });
    Expect<PcfDataEvent>("cfuid={4, 5} position=(1, 2, 3) rotation=" + kFullRotation + " ", [](auto& event) {
        event.mutable_pcf()->mutable_cfuid()->add_data(4);
        event.mutable_pcf()->mutable_cfuid()->add_data(5);
        SetPose(*event.mutable_pcf());
    });
}

TEST(ProtoDump, SamplesOfNumbersAndTracking) {
    Expect<IntegerChannelDataEvent>("value=-7 ", [](auto& event) { event.set_value(-7); });
    Expect<TimestampChannelDataEvent>(
        "timestamp=1234567890123 ", [](auto& event) { event.mutable_timestamp()->set_value(1234567890123); });
    Expect<HeadTrackingStateDataEvent>("mode=1 confidence=0.5 error=0 map_events=3 ", [](auto& event) {
        event.set_mode(vq::sd::VQHeadTrackingMode_1);
        event.set_confidence(0.5f);
        event.set_error(vq::sd::VQHeadTrackingError_0);
        event.set_map_events(3);
    });
    Expect<HandTrackingDataEvent>(
        "{ keypose=2 hand_confidence=0.75 keypose_confidence=[0.1, 1] keypoints_mask=[1, 0] } { } ",
        [](auto& event) {
            auto& hand = *event.mutable_hands()->mutable_left_hand();
            hand.set_keypose(vq::sd::VQHandTrackingKeyPose_2);
            hand.set_hand_confidence(0.75f);
            hand.add_keypose_confidence(0.1f);
            hand.add_keypose_confidence(1);
            hand.add_keypoints_mask(true);
            hand.add_keypoints_mask(false);
            event.mutable_hands()->mutable_right_hand();
        });
    std::string const point = "(index=4, position=(1, 2, 3), rotation=" + kFullRotation + ")";
    Expect<HandTrackingKeypointDataEvent>("keypoints=[" + point + ", " + point + "] ", [](auto& event) {
        for (int count = 0; count < 2; ++count) {
            auto& keypoint = *event.add_keypoints();
            keypoint.set_index(4);
            SetPose(*keypoint.mutable_transform());
        }
    });
    Expect<EyeTrackingStateDataEvent>(
        "fixation_confidence=0.25 left_center_confidence=1 right_center_confidence=0 left_blink=1 "
        "right_blink=0 "
        "calibration_status=6 ",
        [](auto& event) {
            auto& state = *event.mutable_state();
            state.set_fixation_confidence(0.25f);
            state.set_left_center_confidence(1);
            state.set_right_center_confidence(0);
            state.set_left_blink(true);
            state.set_right_blink(false);
            state.set_calibration_status(vq::sd::VQEyeTrackingCalibrationStatus_6);
        });
    Expect<ImageTargetResultDataEvent>("cfuid=[1] status=2 ", [](auto& event) {
        event.mutable_cfuid()->add_data(1);
        event.mutable_result()->set_status(vq::sd::VQImageTrackerTargetStatus_2);
    });
}

TEST(ProtoDump, SamplesOfGraphicsAndBuffers) {
    Expect<GraphicsContractChannelDataEvent>("contract_id=9 num_virtual_cameras=2 ", [](auto& event) {
        event.set_contract_id(9);
        event.mutable_clip_extents()->set_num_virtual_cameras(2);
    });
    Expect<GraphicsContractChannelDataEvent>(
        "contract_id=9 num_virtual_cameras=3 viewport=1280 x 960.5 virtual_cameras=[{left_half_angle=0.5 "
        "right_half_angle=1 top_half_angle=2 bottom_half_angle=3  ... }, { ... }] ",
        [](auto& event) {
            event.set_contract_id(9);
            event.mutable_clip_extents()->set_num_virtual_cameras(2);
            auto& cameras = *event.mutable_cameras();
            cameras.set_num_virtual_cameras(3);
            cameras.mutable_viewport()->set_w(1280);
            cameras.mutable_viewport()->set_h(960.5f);
            auto& camera = *cameras.add_virtual_cameras();
            camera.set_left_half_angle(0.5f);
            camera.set_right_half_angle(1);
            camera.set_top_half_angle(2);
            camera.set_bottom_half_angle(3);
            cameras.add_virtual_cameras();
        });
    Expect<SharedBufferChannelDataUpdatedEvent>(
        "server_memory_id=cam descriptor={buffersize=4096 case=3} generation=5 updated_offset=0 "
        "updated_size=64 ",
        [](auto& event) {
            event.set_server_memory_id("cam");
            event.mutable_descriptor()->set_buffersize(4096);
            event.mutable_descriptor()->mutable_image();
            event.set_generation(5);
            event.set_updated_offset(0);
            event.set_updated_size(64);
        });
    Expect<SharedBufferChannelDataUpdatedEvent>("descriptor={case=0} ",
                                                [](auto& event) { event.mutable_descriptor(); });
}

TEST(ProtoDump, SamplesOfControllers) {
    Expect<InputControllerDataEvent>(
        "controller_id=1 touch_pos_and_force=[(1, 2, 3), (0, 0, 0.5)] trigger_normalized=0.5 "
        "button_state_move=65 button_state_app=0 button_state_bumper=255 button_state_home_tap=1 "
        "is_touch_active=[1, 0] is_connected=1 touchpad_gesture={type=1 direction=2 speed=3 distance=4 "
        "finger_gap=5 radius=6 angle=7 } touchpad_gesture_state=3 dof=4 hardware_index=5 ",
        [](auto& event) {
            auto& state = *event.mutable_state();
            state.set_timestamp(77);
            state.set_controller_id(1);
            SetVector(*state.add_touch_pos_and_force(), 1, 2, 3);
            SetVector(*state.add_touch_pos_and_force(), 0, 0, 0.5f);
            state.set_trigger_normalized(0.5f);
            state.set_button_state_move(65);
            state.set_button_state_app(0);
            state.set_button_state_bumper(255);
            state.set_button_state_home_tap(1);
            state.add_is_touch_active(true);
            state.add_is_touch_active(false);
            state.set_is_connected(true);
            auto& gesture = *state.mutable_touchpad_gesture();
            gesture.set_type(vq::sd::VQInputControllerTouchpadGestureType_1);
            gesture.set_direction(vq::sd::VQInputControllerTouchpadGestureDirection_2);
            gesture.set_speed(3);
            gesture.set_distance(4);
            gesture.set_finger_gap(5);
            gesture.set_radius(6);
            gesture.set_angle(7);
            state.set_touchpad_gesture_state(vq::sd::VQInputControllerTouchpadGestureState_3);
            state.set_dof(vq::sd::VQInputControllerDof_4);
            state.set_hardware_index(5);
        });
    Expect<ControllerSystemStateDataEvent>(
        "Controller state 0: {controller_id=8 is_active=1 Stream 0 type=1 is_active=0 accuracy=2 "
        "position=(1, 2, "
        "3) rotation=" +
            kFullRotation + " Stream 1 } Controller state 1: {} ",
        [](auto& event) {
            auto& controller = *event.mutable_state()->add_controllers();
            controller.set_controller_id(8);
            controller.set_is_active(true);
            auto& stream = *controller.add_streams();
            stream.set_type(vq::sd::VQControllerStreamType_1);
            stream.set_is_active(false);
            stream.set_accuracy(vq::sd::VQControllerAccuracy_2);
            SetPose(stream);
            controller.add_streams();
            event.mutable_state()->add_controllers();
        });
}

TEST(ProtoDump, NothingSetPrintsNoScalarAndOtherTypesPrintNothing) {
    for (char const* type : {"Vec3", "Quat", "Integer", "Timestamp", "GraphicsContract"}) {
        std::string text = "old text";
        ProtoUtils::DumpToString("vq.ch." + std::string(type) + "ChannelDataEvent", "", text);
        EXPECT_EQ(text, "") << type;
    }
    for (char const* type : {"HeadTrackingState", "HandTracking", "HandTrackingKeypoint", "ImageTargetResult",
                             "EyeTrackingState", "InputController", "Pcf", "ControllerSystemState"}) {
        std::string text = "old text";
        ProtoUtils::DumpToString("vq.ch." + std::string(type) + "DataEvent", "", text);
        EXPECT_EQ(text, "") << type;
    }
    Expect<TransformChannelDataEvent>("(no pos),(no rot) ", [](auto&) {});
    for (char const* type :
         {"", "Vec3ChannelDataEvent", "vq.ch.Vec3ChannelDataEvent2", "vq.ch.HelloDataEvent"}) {
        std::string text = "old text";
        ProtoUtils::DumpToString(type, "\x0d\x00\x00\x80\x3f", text);
        EXPECT_EQ(text, "") << type;
    }
}

TEST(ProtoDump, OfABrokenPayloadPrintsWhatCouldBeRead) {
    HeadTrackingStateDataEvent event;
    event.set_mode(vq::sd::VQHeadTrackingMode_1);
    event.set_confidence(0.5f);
    std::string text = "old text";
    ProtoUtils::DumpToString(event.GetTypeName(), event.SerializePartialAsString() + "\xff\xff", text);
    EXPECT_EQ(text, "mode=1 confidence=0.5 ");
    // 99 is no mode.
    ProtoUtils::DumpToString(event.GetTypeName(), "\x08\x63\x20\x05", text);
    EXPECT_EQ(text, "map_events=5 ");
}

std::string FloatText(float number) {
    std::string const text = DumpOf<Vec3ChannelDataEvent>([&](auto& event) { event.set_x(number); });
    return text.substr(1, text.find(',') - 1);
}

TEST(ProtoDump, NumbersReadAsAStreamWritesThem) {
    std::vector<float> numbers = {0,         -0.0f,  1,         0.1f,    1e-4f,          9.9999994e-5f,
                                  9.999995f, 999999, 999999.5f, 1000000, 123456.5f,      123457.5f,
                                  2.5e-7f,   1e30f,  99999.95f, 0.5f,    0.00012345675f, INFINITY,
                                  -INFINITY, NAN};
    std::mt19937 random(23);
    std::uniform_real_distribution<float> exponents(-7, 8);
    for (int round = 0; round < 20000; ++round) {
        numbers.push_back(std::bit_cast<float>(static_cast<std::uint32_t>(random())));
        numbers.push_back(std::pow(10.0f, exponents(random)) * (round % 2 == 0 ? 1.0f : -1.0f));
        numbers.push_back(static_cast<float>(random() % 4000000) / 16);
    }
    for (float const number : numbers) {
        std::ostringstream expected;
        expected << number;
        ASSERT_EQ(FloatText(number), expected.str());
    }
}

vq::math::VQQuaternionf MessageOf(glm::quat const& q) {
    vq::math::VQQuaternionf message;
    SetVector(message, q.x, q.y, q.z);
    message.set_w(q.w);
    return message;
}

/// The angles by their formulas, each step rounded to a float.
glm::vec3 AnglesByFormula(glm::quat const& r) {
    float const w = r.w, x = r.x, y = r.y, z = r.z;
    float const a = std::atan2(2.0f * (y * z + w * x), 1.0f - 2.0f * (x * x + y * y));
    float const p = 2.0f * (x * y + w * z);
    float const q = 1.0f - 2.0f * (y * y + z * z);
    float const b = std::atan2(-(2.0f * (x * z - w * y)), std::sqrt(p * p + q * q));
    float const c =
        std::atan2(2.0f * (x * z + w * y) * std::sin(a) - 2.0f * (x * y - w * z) * std::cos(a),
                   (1.0f - 2.0f * (x * x + z * z)) * std::cos(a) - 2.0f * (y * z - w * x) * std::sin(a));
    return {a * 57.29578f, b * 57.29578f, c * 57.29578f};
}

TEST(ProtoStream, AnglesFollowTheFormulasAndLeadBackToTheRotationPolesIncluded) {
    std::mt19937 random(29);
    std::uniform_real_distribution<float> degrees(-180, 180);
    std::vector<glm::vec3> angles = {{0, 0, 0},    {0, 90, 0},    {0, -90, 0},  {30, 90, 20},
                                     {30, -90, 0}, {180, 0, 180}, {90, 90, 90}, {0, 89.99f, 10}};
    for (int round = 0; round < 2000; ++round) {
        angles.push_back({degrees(random), round % 8 == 0 ? 90.0f : degrees(random), degrees(random)});
    }
    for (glm::vec3 const& triple : angles) {
        glm::quat const rotation(glm::radians(triple));
        std::ostringstream stream;
        stream << MessageOf(rotation);
        float read[7];
        ASSERT_EQ(std::sscanf(stream.str().c_str(), "[%f, %f, %f, %f]=(%f, %f, %f)", &read[0], &read[1],
                              &read[2], &read[3], &read[4], &read[5], &read[6]),
                  7)
            << stream.str();
        glm::vec3 const expected = AnglesByFormula(rotation);
        for (int axis = 0; axis < 3; ++axis) {
            EXPECT_EQ(FloatText(expected[axis]), FloatText(read[4 + axis])) << stream.str();
        }
        glm::quat const back(glm::radians(glm::vec3(read[4], read[5], read[6])));
        EXPECT_NEAR(std::abs(glm::dot(back, rotation)), 1.0f, 1e-5f) << stream.str();
    }
}

TEST(ProtoStream, TextDoesNotDependOnTheStreamAndIsFoundFromOtherNamespaces) {
    HandTrackingKeypoint keypoint;
    keypoint.set_index(4);
    SetPose(*keypoint.mutable_transform());
    TransformChannelDataEvent transform;
    SetVector(*transform.mutable_transform()->mutable_position(), 0.125f, 2, 3);
    std::ostringstream stream;
    stream << std::hex << std::setprecision(2) << std::showpoint << keypoint << transform;
    EXPECT_EQ(stream.str(),
              "(index=4, position=(1, 2, 3), rotation=" + kFullRotation + ")pos=(0.125, 2, 3),(no rot)");
}

}  // namespace
