#include "Utils/ProtoStream.h"

#include <cmath>
#include <glm/gtc/quaternion.hpp>
#include <ostream>
#include <string>

#include "ProtoText.h"

namespace {

constexpr float kDegreesOfRadian = 57.29578f;

/// Angles about x, y and z in degrees. At the poles, where only their sum counts, the first two come from
/// what rounding leaves of the matrix and the third makes up for them.
glm::vec3 AnglesOf(glm::quat const& rotation) {
    glm::mat3 const m = glm::mat3_cast(rotation);
    float const a = std::atan2(m[1][2], m[2][2]);
    float const b = std::atan2(-m[0][2], std::sqrt(m[0][1] * m[0][1] + m[0][0] * m[0][0]));
    float const sine = std::sin(a);
    float const cosine = std::cos(a);
    float const c = std::atan2(m[2][0] * sine - m[1][0] * cosine, m[1][1] * cosine - m[2][1] * sine);
    return glm::vec3(a, b, c) * kDegreesOfRadian;
}

template <class Message>
std::ostream& Write(std::ostream& stream, void (*append)(DumpText&, Message const&), Message const& message) {
    std::string line;
    {
        DumpText text(line);
        append(text, message);
    }
    return stream << line;
}

}  // namespace

void AppendRotation(DumpText& text, float w, float x, float y, float z, char separator) {
    glm::vec3 const angles = AnglesOf(glm::quat(w, x, y, z));
    text.Append("[", w, ", ", x, ", ", y, ", ", z, "]", separator, "(", angles.x, ", ", angles.y, ", ",
                angles.z, ")");
}

void AppendTransform(DumpText& text, vq::ch::TransformChannelDataEvent const& event) {
    vq::math::VQTransform const& transform = event.transform();
    if (transform.has_position()) {
        text << "pos=";
        AppendVector(text, transform.position());
        text << ",";
    } else {
        text << "(no pos),";
    }
    if (transform.has_rotation()) {
        text << "rot=";
        // Not the sign that a quaternion by itself has here: readers of logs match either.
        AppendQuaternion(text, transform.rotation(), '~');
    } else {
        text << "(no rot)";
    }
}

void AppendKeypoint(DumpText& text, vq::ch::HandTrackingKeypoint const& keypoint) {
    vq::math::VQVec3f const& position = keypoint.transform().position();
    vq::math::VQQuaternionf const& rotation = keypoint.transform().rotation();
    AppendKeypoint(text, keypoint.index(), {position.x(), position.y(), position.z()},
                   {rotation.x(), rotation.y(), rotation.z(), rotation.w()});
}

void AppendKeypoint(DumpText& text, std::uint32_t index, float const (&position)[3],
                    float const (&rotation)[4]) {
    text.Append("(index=", index, ", position=(", position[0], ", ", position[1], ", ", position[2],
                "), rotation=");
    AppendRotation(text, rotation[3], rotation[0], rotation[1], rotation[2], '=');
    text.Append(')');
}

std::ostream& vq::math::operator<<(std::ostream& stream, VQQuaternionf const& quaternion) {
    return Write<VQQuaternionf>(
        stream, [](DumpText& text, VQQuaternionf const& value) { AppendQuaternion(text, value); },
        quaternion);
}

std::ostream& vq::ch::operator<<(std::ostream& stream, TransformChannelDataEvent const& event) {
    return Write(stream, AppendTransform, event);
}

std::ostream& vq::ch::operator<<(std::ostream& stream, HandTrackingKeypoint const& keypoint) {
    return Write(stream, AppendKeypoint, keypoint);
}
