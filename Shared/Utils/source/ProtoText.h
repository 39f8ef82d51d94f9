#pragma once

#include <cstdint>

#include "ChannelData.pb.h"
#include "DumpText.h"
#include "Math.pb.h"

// The pieces that the stream output and the dumps of messages share.

/// "(x, y, z)", of any message with these fields.
template <class Vector>
void AppendVector(DumpText& text, Vector const& vector) {
    text.Append("(", vector.x(), ", ", vector.y(), ", ", vector.z(), ")");
}

/// "[w, x, y, z]", then the separator, then the angles "(a, b, c)" about x, y and z in degrees.
void AppendRotation(DumpText& text, float w, float x, float y, float z, char separator);

/// The same of any message with these fields.
template <class Quaternion>
void AppendQuaternion(DumpText& text, Quaternion const& rotation, char separator = '=') {
    AppendRotation(text, rotation.w(), rotation.x(), rotation.y(), rotation.z(), separator);
}

void AppendTransform(DumpText& text, vq::ch::TransformChannelDataEvent const& event);
void AppendKeypoint(DumpText& text, vq::ch::HandTrackingKeypoint const& keypoint);
/// The same of a key point's numbers.
/// @param position  x, y, z
/// @param rotation  x, y, z, w
void AppendKeypoint(DumpText& text, std::uint32_t index, float const (&position)[3],
                    float const (&rotation)[4]);
