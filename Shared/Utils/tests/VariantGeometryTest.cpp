
#include <cmath>

#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireWriter.h"
#include "Utils/ProtoUtils.h"

namespace {

using wire::Text;

std::string Ints(std::vector<int> const& numbers) {
    std::string list;
    for (int const number : numbers) {
        list += wire::Number(1, number);
    }
    return Text(6, list);
}

std::string Floats(std::vector<float> const& numbers) {
    std::string list;
    for (float const number : numbers) {
        list += wire::Float(1, number);
    }
    return Text(7, list);
}

vq::cfg::Variant Read(std::string const& bytes) {
    vq::cfg::Variant value;
    EXPECT_TRUE(value.ParseFromString(bytes));
    return value;
}

template <class Geometry>
void Check(std::string const& bytes, std::optional<Geometry> const& expected, Geometry old,
           std::string const& kind) {
    vq::test::LogCapture log;
    Geometry result = old;
    ProtoUtils::ConvertTo(Read(bytes), &result);
    EXPECT_EQ(result, expected.value_or(old)) << testing::PrintToString(bytes);
    std::string const line =
        std::string("W no matching ").append(kind) + " definition in configuration setting message";
    EXPECT_EQ(log.Lines(), expected ? std::vector<std::string>{} : std::vector{line});
}

TEST(VariantGeometry, IsReadLenientlyOrLeavesTheDefaultInForce) {
    struct Case {
        std::string value;
        std::optional<glm::vec3> three;
        std::optional<glm::vec4> four;
        std::optional<glm::quat> rotation;
    };
    for (Case const& c :
         {Case{wire::Number(2, 7), glm::vec3(7), glm::vec4(7), {}},
          {wire::Float(3, 2.5f), glm::vec3(2.5f), glm::vec4(2.5f), {}},
          {Ints({1, 2}), {}, {}, {}},
          {Floats({1, 2}), {}, {}, {}},
          {Floats({}), {}, {}, {}},
          {Ints({0, 0, 0}), glm::vec3(0), glm::vec4(0, 0, 0, 1), glm::quat(1, 0, 0, 0)},
          {Ints({1, 2, 3, 4}), glm::vec3(1, 2, 3), glm::vec4(1, 2, 3, 4), glm::quat(1, 2, 3, 4)},
          {Floats({1.5f, 2, 3, 4}), glm::vec3(1.5f, 2, 3), glm::vec4(1.5f, 2, 3, 4),
           glm::quat(1.5f, 2, 3, 4)},
          {Floats({1, 2, 3, 4, 5}), glm::vec3(1, 2, 3), glm::vec4(1, 2, 3, 4), {}},
          {Text(1, "1, 2, 3"), {}, {}, {}},
          {"", {}, {}, {}}}) {
        Check(c.value, c.three, glm::vec3(9, 8, 7), "vector 3");
        Check(c.value, c.four, glm::vec4(9, 8, 7, 6), "vector 3 or 4");
        Check(c.value, c.rotation, glm::quat(9, 8, 7, 6), "quaternion");
    }
}

TEST(VariantGeometry, ThreeAnglesInDegreesGiveTheRotationToTheLastBit) {
    std::vector<std::vector<float>> triples = {
        {30, 40, 50}, {0, 90, 0}, {10, -90, 20}, {180, 0, 0}, {0, 0, 360}};
    for (auto const& angles : triples) {
        float c[3];
        float s[3];
        for (std::size_t axis = 0; axis < 3; ++axis) {
            float const half = angles[axis] * 0.017453292f * 0.5f;
            c[axis] = std::cos(half);
            s[axis] = std::sin(half);
        }
        glm::quat rotation(0, 0, 0, 0);
        ProtoUtils::ConvertTo(Read(Floats(angles)), &rotation);
        EXPECT_EQ(
            rotation,
            glm::quat(c[0] * c[1] * c[2] + s[0] * s[1] * s[2], s[0] * c[1] * c[2] - c[0] * s[1] * s[2],
                      c[0] * s[1] * c[2] + s[0] * c[1] * s[2], c[0] * c[1] * s[2] - s[0] * s[1] * c[2]));
    }
}

}  // namespace
