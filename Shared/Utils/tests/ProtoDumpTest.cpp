#include "Utils/ProtoDump.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <glm/gtc/quaternion.hpp>
#include <iomanip>
#include <random>
#include <sstream>

#include "ChannelData.pb.h"
#include "TestSupport/WireWriter.h"
#include "Utils/ProtoStream.h"

namespace {

using wire::Float;
using wire::Number;
using wire::Text;
using wire::Vector;

std::string BytesOf(glm::quat const& q) {
    return Vector(q.x, q.y, q.z) + Float(4, q.w);
}

std::string const kRotation = "[0.860042, 0.0808047, 0.402198, 0.303372]";
std::string const kFullRotation = kRotation + "=(30, 40, 50)";
std::string const rotation = BytesOf(glm::quat(glm::radians(glm::vec3(30, 40, 50))));
std::string const position = Text(1, Vector(1, 2, 3));
std::string const pose = position + Text(2, rotation);

std::string DumpOf(std::string const& type, std::string const& payload) {
    std::string text = "old text";
    ProtoUtils::DumpToString(type, payload, text);
    return text;
}

TEST(ProtoDump, EveryTypeOfSampleHasItsForm) {
    std::string const ids = Number(1, 4) + Number(1, -1);
    std::string const keypoint = Text(3, Number(1, 4) + Text(2, pose));
    std::string const point = "(index=4, position=(1, 2, 3), rotation=" + kFullRotation + ")";
    std::string const gesture =
        Number(1, 1) + Number(2, 2) + Float(3, 3) + Float(4, 4) + Float(5, 5) + Float(6, 6) + Float(7, 7);
    std::string const stream =
        Number(1, 1) + Number(2, 0) + Number(3, 2) + Text(4, Vector(1, 2, 3)) + Text(5, rotation);
    std::string const camera = Float(1, 0.5F) + Float(2, 1) + Float(3, 2) + Float(4, 3);
    struct Case {
        char const* type;
        std::string payload, text;
    };
    for (Case const& c : {
             Case{"Vec3Channel", Vector(1, 2.5F, -3) + Number(4, 1), "(1, 2.5, -3) flag=1 "},
             {"Vec3Channel", Float(2, 2), "(0, 2, 0) "},
             {"QuatChannel", rotation + Number(5, 0), kFullRotation + " flag=0 "},
             {"TransformChannel", "", "(no pos),(no rot) "},
             {"TransformChannel", Text(1, pose) + Number(2, 1) + Number(3, 0) + Number(4, 1) + Number(5, 0),
              "pos=(1, 2, 3),rot=" + kRotation +
                  "~(30, 40, 50) absolute_position=1 absolute_orientation=0 translate_relative=1 "
                  "rotate_relative=0 "},
             {"IndexedTransformChannel", Text(1, Text(1, position)) + Text(2, ids),
              "pos=(1, 2, 3),(no rot) cfuid=[4, 18446744073709551615] "},
             {"Pcf", Text(3, Text(1, ids) + Text(2, Vector(1, 2, 3)) + Text(3, rotation)),
              "cfuid={4, 18446744073709551615} position=(1, 2, 3) rotation=" + kFullRotation + " "},
             {"IntegerChannel", Number(1, -7), "value=-7 "},
             {"TimestampChannel", Text(1, Number(1, 1234567890123)), "timestamp=1234567890123 "},
             {"HeadTrackingState", Number(1, 1) + Float(2, 0.5F) + Number(3, 0) + Number(4, 3),
              "mode=1 confidence=0.5 error=0 map_events=3 "},
             // Broken payloads print what could be read; 99 is no mode.
             {"HeadTrackingState", Number(1, 1) + Float(2, 0.5F) + "\xff\xff", "mode=1 confidence=0.5 "},
             {"HeadTrackingState", Number(1, 99) + Number(4, 5), "map_events=5 "},
             {"HandTracking",
              Text(1, Text(1, Number(1, 2) + Float(2, 0.75F) + Float(3, 0.1F) + Float(3, 1) + Number(4, 1) +
                                  Number(4, 0)) +
                          Text(2, "")),
              "{ keypose=2 hand_confidence=0.75 keypose_confidence=[0.1, 1] keypoints_mask=[1, 0] } { } "},
             {"HandTrackingKeypoint", keypoint + keypoint, "keypoints=[" + point + ", " + point + "] "},
             {"EyeTrackingState",
              Text(1,
                   Float(1, 0.25F) + Float(2, 1) + Float(3, 0) + Number(4, 1) + Number(5, 0) + Number(6, 6)),
              "fixation_confidence=0.25 left_center_confidence=1 right_center_confidence=0 left_blink=1 "
              "right_blink=0 calibration_status=6 "},
             {"ImageTargetResult", Text(1, Number(1, 1)) + Text(2, Number(1, 2)), "cfuid=[1] status=2 "},
             {"GraphicsContractChannel", Number(1, 9) + Text(2, Number(1, 2)),
              "contract_id=9 num_virtual_cameras=2 "},
             {"GraphicsContractChannel",
              Number(1, 9) + Text(2, Number(1, 2)) +
                  Text(4, Number(1, 3) + Text(2, Float(3, 1280) + Float(4, 960.5F)) + Text(3, camera) +
                              Text(3, "")),
              "contract_id=9 num_virtual_cameras=3 viewport=1280 x 960.5 "
              "virtual_cameras=[{left_half_angle=0.5 "
              "right_half_angle=1 top_half_angle=2 bottom_half_angle=3  ... }, { ... }] "},
             {"SharedBufferChannelDataUpdated",
              Text(1, "cam") + Text(2, Number(1, 4096) + Text(3, "")) + Number(3, 5) + Number(4, 0) +
                  Number(5, 64),
              "server_memory_id=cam descriptor={buffersize=4096 case=3} generation=5 updated_offset=0 "
              "updated_size=64 "},
             {"SharedBufferChannelDataUpdated", Text(2, ""), "descriptor={case=0} "},
             {"InputController",
              Text(1, Number(1, 77) + Number(2, 1) + Text(3, Vector(1, 2, 3)) + Text(3, Vector(0, 0, 0.5F)) +
                          Float(4, 0.5F) + Number(5, 65) + Number(6, 0) + Number(7, 255) + Number(8, 1) +
                          Number(9, 1) + Number(9, 0) + Number(10, 1) + Text(11, gesture) + Number(12, 3) +
                          Number(13, 4) + Number(14, 5)),
              "controller_id=1 touch_pos_and_force=[(1, 2, 3), (0, 0, 0.5)] trigger_normalized=0.5 "
              "button_state_move=65 button_state_app=0 button_state_bumper=255 button_state_home_tap=1 "
              "is_touch_active=[1, 0] is_connected=1 touchpad_gesture={type=1 direction=2 speed=3 distance=4 "
              "finger_gap=5 radius=6 angle=7 } touchpad_gesture_state=3 dof=4 hardware_index=5 "},
             {"ControllerSystemState",
              Text(1, Text(1, Number(1, 8) + Number(2, 1) + Text(3, stream) + Text(3, "")) + Text(1, "")),
              "Controller state 0: {controller_id=8 is_active=1 Stream 0 type=1 is_active=0 accuracy=2 "
              "position=(1, 2, 3) rotation=" +
                  kFullRotation + " Stream 1 } Controller state 1: {} "},
         }) {
        std::string const type = c.type;
        EXPECT_EQ(DumpOf("vq.ch." + type + (type.ends_with("Updated") ? "Event" : "DataEvent"), c.payload),
                  c.text);
    }
}

/// The dump of a hand by the messages' own parser and stream output.
std::string HandByMessages(std::string const& payload) {
    vq::ch::HandTrackingKeypointDataEvent event;
    static_cast<void>(event.ParsePartialFromString(payload));
    std::ostringstream text;
    for (int i = 0; i < event.keypoints_size(); ++i) {
        text << (i == 0 ? "keypoints=[" : ", ") << event.keypoints(i);
    }
    return text.str() + (event.keypoints_size() == 0 ? "" : "] ");
}

TEST(ProtoDump, AHandReadsAsItsMessagesDoWhateverItsBytes) {
    std::string hand;
    for (int index : {0, 127, 5}) {
        hand += Text(3, Number(1, index) + Text(2, pose));
    }
    std::vector<std::string> payloads = {hand, hand + hand.substr(0, 44), hand.substr(1),
                                         hand + Text(3, Number(1, 128) + Text(2, pose))};
    std::mt19937 random(31);
    for (std::size_t place = 0; place < hand.size(); ++place) {
        for (int round = 0; round < 8; ++round) {
            std::string changed = hand;
            changed[place] =
                static_cast<char>(round < 2 ? changed[place] ^ (round == 0 ? 1 : 0x80) : random());
            payloads.push_back(changed);
        }
    }
    for (std::string const& payload : payloads) {
        ASSERT_EQ(DumpOf("vq.ch.HandTrackingKeypointDataEvent", payload), HandByMessages(payload));
    }
}

std::string FloatText(float number) {
    std::string const text = DumpOf("vq.ch.Vec3ChannelDataEvent", Float(1, number));
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

TEST(ProtoStream, AnglesLeadBackToTheRotationPolesIncluded) {
    std::mt19937 random(29);
    std::uniform_real_distribution<float> degrees(-180, 180);
    std::vector<glm::vec3> angles = {{0, 0, 0},    {0, 90, 0},    {0, -90, 0},  {30, 90, 20},
                                     {30, -90, 0}, {180, 0, 180}, {90, 90, 90}, {0, 89.99f, 10}};
    for (int round = 0; round < 2000; ++round) {
        angles.push_back({degrees(random), round % 8 == 0 ? 90.0f : degrees(random), degrees(random)});
    }
    for (glm::vec3 const& triple : angles) {
        glm::quat const wanted(glm::radians(triple));
        vq::math::VQQuaternionf message;
        ASSERT_TRUE(message.ParseFromString(BytesOf(wanted)));
        std::ostringstream stream;
        stream << message;
        glm::vec3 read;
        ASSERT_EQ(
            std::sscanf(stream.str().c_str(), "[%*f, %*f, %*f, %*f]=(%f, %f, %f)", &read.x, &read.y, &read.z),
            3)
            << stream.str();
        EXPECT_NEAR(std::abs(glm::dot(glm::quat(glm::radians(read)), wanted)), 1.0f, 1e-5f) << stream.str();
    }
}

TEST(ProtoStream, TextDoesNotDependOnTheStreamAndIsFoundFromOtherNamespaces) {
    vq::ch::HandTrackingKeypoint keypoint;
    vq::ch::TransformChannelDataEvent transform;
    ASSERT_TRUE(keypoint.ParseFromString(Number(1, 4) + Text(2, pose)));
    transform.ParsePartialFromString(Text(1, Text(1, Vector(0.125F, 2, 3))));
    std::ostringstream stream;
    stream << std::hex << std::setprecision(2) << std::showpoint << keypoint << transform;
    EXPECT_EQ(stream.str(),
              "(index=4, position=(1, 2, 3), rotation=" + kFullRotation + ")pos=(0.125, 2, 3),(no rot)");
}

}  // namespace
