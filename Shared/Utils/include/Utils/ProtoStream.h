#pragma once

#include <iosfwd>

#include "ChannelData.pb.h"
#include "Math.pb.h"

// Messages as text on a stream, each in the namespace of its message, where other namespaces find it. The
// text is the same whatever the stream's flags and precision are.

namespace vq::math {

/// "[w, x, y, z]=(a, b, c)": the quaternion and its angles about x, y and z in degrees.
std::ostream& operator<<(std::ostream& stream, VQQuaternionf const& quaternion);

}  // namespace vq::math

namespace vq::ch {

/// "pos=(x, y, z),rot=[w, x, y, z]~(a, b, c)", with "(no pos)" and "(no rot)" for what is not set.
std::ostream& operator<<(std::ostream& stream, TransformChannelDataEvent const& event);

/// "(index=i, position=(x, y, z), rotation=[w, x, y, z]=(a, b, c))".
std::ostream& operator<<(std::ostream& stream, HandTrackingKeypoint const& keypoint);

}  // namespace vq::ch
