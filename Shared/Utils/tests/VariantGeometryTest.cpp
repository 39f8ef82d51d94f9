#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <random>
#include <vector>

#include "TestSupport/LogCapture.h"
#include "Utils/ProtoUtils.h"

namespace {

using vq::cfg::Variant;

Variant Integer(std::int64_t number) {
    Variant value;
    value.set_integer_value(number);
    return value;
}

Variant Float(float number) {
    Variant value;
    value.set_float_value(number);
    return value;
}

Variant Ints(std::vector<std::int64_t> const& numbers) {
    Variant value;
    value.mutable_integer_list()->mutable_values()->Add(numbers.begin(), numbers.end());
    return value;
}

Variant Floats(std::vector<float> const& numbers) {
    Variant value;
    value.mutable_float_list()->mutable_values()->Add(numbers.begin(), numbers.end());
    return value;
}

Variant Text() {
    Variant value;
    value.set_string_value("1, 2, 3");
    return value;
}

struct Expectation {
    Variant value;
    std::optional<glm::vec3> three;
    std::optional<glm::vec4> four;
    std::optional<glm::quat> rotation;
};

template <class Geometry>
void Check(Variant const& value, std::optional<Geometry> const& expected, Geometry old, char const* warning) {
    vq::test::LogCapture log;
    Geometry result = old;
    ProtoUtils::ConvertTo(value, &result);
    EXPECT_EQ(result, expected.value_or(old)) << value.value_case();
    EXPECT_EQ(log.Count(LogLevel::Warning, warning), expected ? 0u : 1u) << value.value_case();
    EXPECT_EQ(log.Records().size(), expected ? 0u : 1u);
}

TEST(VariantGeometry, IsReadLenientlyOrLeavesTheDefaultInForce) {
    std::optional<glm::vec3> const no3;
    std::optional<glm::vec4> const no4;
    std::optional<glm::quat> const noQuat;
    Expectation const cases[] = {
        {Integer(7), glm::vec3(7), glm::vec4(7), noQuat},
        {Float(2.5f), glm::vec3(2.5f), glm::vec4(2.5f), noQuat},
        {Ints({1, 2}), no3, no4, noQuat},
        {Floats({1, 2}), no3, no4, noQuat},
        {Floats({}), no3, no4, noQuat},
        {Ints({0, 0, 0}), glm::vec3(0), glm::vec4(0, 0, 0, 1), glm::quat(1, 0, 0, 0)},
        {Ints({1, 2, 3, 4}), glm::vec3(1, 2, 3), glm::vec4(1, 2, 3, 4), glm::quat(1, 2, 3, 4)},
        {Floats({1.5f, 2, 3, 4}), glm::vec3(1.5f, 2, 3), glm::vec4(1.5f, 2, 3, 4), glm::quat(1.5f, 2, 3, 4)},
        {Floats({1, 2, 3, 4, 5}), glm::vec3(1, 2, 3), glm::vec4(1, 2, 3, 4), noQuat},
        {Text(), no3, no4, noQuat},
        {Variant(), no3, no4, noQuat},
    };
    for (Expectation const& test : cases) {
        Check(test.value, test.three, glm::vec3(9, 8, 7),
              "no matching vector 3 definition in configuration setting message");
        Check(test.value, test.four, glm::vec4(9, 8, 7, 6),
              "no matching vector 3 or 4 definition in configuration setting message");
        Check(test.value, test.rotation, glm::quat(9, 8, 7, 6),
              "no matching quaternion definition in configuration setting message");
    }
}

TEST(VariantGeometry, ThreeAnglesInDegreesGiveTheRotationToTheLastBit) {
    std::mt19937 random(19);
    std::uniform_real_distribution<float> degrees(-720, 720);
    std::vector<std::vector<float>> triples = {
        {30, 40, 50}, {0, 90, 0}, {10, -90, 20}, {180, 0, 0}, {0, 0, 360}};
    for (int round = 0; round < 500; ++round) {
        triples.push_back({degrees(random), degrees(random), degrees(random)});
    }
    for (auto const& angles : triples) {
        float c[3];
        float s[3];
        for (std::size_t axis = 0; axis < 3; ++axis) {
            float const half = angles[axis] * 0.017453292f * 0.5f;
            c[axis] = std::cos(half);
            s[axis] = std::sin(half);
        }
        glm::quat rotation(0, 0, 0, 0);
        ProtoUtils::ConvertTo(Floats(angles), &rotation);
        EXPECT_EQ(rotation.w, c[0] * c[1] * c[2] + s[0] * s[1] * s[2]);
        EXPECT_EQ(rotation.x, s[0] * c[1] * c[2] - c[0] * s[1] * s[2]);
        EXPECT_EQ(rotation.y, c[0] * s[1] * c[2] + s[0] * c[1] * s[2]);
        EXPECT_EQ(rotation.z, c[0] * c[1] * s[2] - s[0] * s[1] * c[2]);
    }
}

}  // namespace
