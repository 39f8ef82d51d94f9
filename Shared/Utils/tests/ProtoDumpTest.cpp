#include "Utils/ProtoDump.h"

#include <bit>
#include <cmath>
#include <glm/gtc/quaternion.hpp>
#include <iomanip>

#include "ChannelData.pb.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"
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
    for (auto const& [type, fields, text] : Rows<3>("ProtoDump", "samples")) {
        char const* const end = type.ends_with("Updated") ? "Event" : "DataEvent";
        EXPECT_EQ(DumpOf(std::string("vq.ch.").append(type).append(end), wire::Bytes(fields)), text);
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
