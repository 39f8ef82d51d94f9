#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"
#include "Utils/ProtoUtils.h"

namespace {

vq::cfg::Variant Read(std::string const& bytes) {
    vq::cfg::Variant value;
    EXPECT_TRUE(value.ParseFromString(bytes));
    return value;
}

/// The numbers of the geometry as a stream writes them, in the order of its constructor.
template <class Geometry>
std::string TextOf(Geometry const& geometry) {
    std::ostringstream text;
    if constexpr (std::is_same_v<Geometry, glm::quat>) {
        text << geometry.w << " " << geometry.x << " " << geometry.y << " " << geometry.z;
    } else {
        for (int i = 0; i < geometry.length(); ++i) {
            text << (i == 0 ? "" : " ") << geometry[i];
        }
    }
    return text.str();
}

/// @param expected  ~ when the default stays in force, with a line
template <class Geometry>
void Check(std::string const& bytes, Geometry const& old, std::string const& expected,
           std::string const& kind) {
    vq::test::LogCapture log;
    Geometry result = old;
    ProtoUtils::ConvertTo(Read(bytes), &result);
    bool const kept = expected == kNone;
    EXPECT_EQ(TextOf(result), kept ? TextOf(old) : expected) << testing::PrintToString(bytes);
    EXPECT_EQ(
        log.Lines(),
        kept ? Lines{"W no matching " + kind + " definition in configuration setting message"} : Lines());
}

TEST(VariantGeometry, IsReadLenientlyOrLeavesTheDefaultInForce) {
    for (auto const& [value, three, four, rotation] : Rows<4>("VariantGeometry", "values")) {
        std::string const bytes = wire::Bytes(value);
        Check(bytes, glm::vec3(9, 8, 7), three, "vector 3");
        Check(bytes, glm::vec4(9, 8, 7, 6), four, "vector 3 or 4");
        Check(bytes, glm::quat(9, 8, 7, 6), rotation, "quaternion");
    }
}

}  // namespace
