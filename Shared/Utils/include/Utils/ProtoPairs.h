#pragma once

#include <tuple>

#include "ChannelData.pb.h"
#include "Graphics.pb.h"
#include "HandTracking.pb.h"
#include "ImageTracking.pb.h"
#include "Input.pb.h"
#include "Math.pb.h"
#include "Meshing2.pb.h"
#include "Planes.pb.h"
#include "Raycast.pb.h"
#include "Utils/vq_types.h"

// Which message goes with which plain structure, and the fields of each pair. This is the only place that
// lists them: the conversions of ProtoUtils.h walk these lists in either direction. A new field is one line
// here.

namespace ProtoUtilsDetail {

/// Which conversions of a pair exist.
enum class Direction { BothWays, ToPlain };

/// One field: how to reach it on either side, each by a function without state. What a field of its kind does
/// not have is never instantiated.
template <class Member, class Get, class Set, class Edit>
struct Field {
    Member member;  ///< reference to the member of the plain structure
    Get get;        ///< the message's value, or its default
    Set set;        ///< sets a scalar of the message
    Edit edit;      ///< pointer to the message's list or sub-message, made when need be
};
template <class Member, class Get, class Set, class Edit>
Field(Member, Get, Set, Edit) -> Field<Member, Get, Set, Edit>;

/// A pair's `direction`, and its Fields() as a tuple. Pairs that are not listed have none.
template <class Message, class Plain>
struct Pair;

#define VQ_FIELD_OF(place, name)                                                \
    Field {                                                                     \
        [](auto& record) -> auto& {                                             \
            return place;                                                       \
        }                                                                       \
        , [](auto const& message) -> decltype(auto) { return message.name(); }, \
            [](auto& message, auto value) { message.set_##name(value); },       \
            [](auto& message) { return message.mutable_##name(); }              \
    }
/// A field of the same name on both sides.
#define VQ_FIELD(name) VQ_FIELD_OF(record.name, name)
/// A field that the plain structure calls `member`.
#define VQ_FIELD_AS(member, name) VQ_FIELD_OF(record.member, name)
/// A sub-message whose fields lie in the plain structure itself.
#define VQ_FIELD_SPREAD(name) VQ_FIELD_OF(record, name)

#define VQ_PAIR(Message, Plain, way, ...)                                       \
    template <>                                                                 \
    struct Pair<Message, Plain> {                                               \
        static constexpr Direction direction = Direction::way;                  \
        static constexpr auto Fields() { return std::make_tuple(__VA_ARGS__); } \
    }

// clang-format off

// Geometry.
VQ_PAIR(vq::math::VQVec3f, ::VQVec3f, BothWays,
    VQ_FIELD(x),
    VQ_FIELD(y),
    VQ_FIELD(z));
VQ_PAIR(vq::math::VQQuaternionf, ::VQQuaternionf, BothWays,
    VQ_FIELD(x),
    VQ_FIELD(y),
    VQ_FIELD(z),
    VQ_FIELD(w));
VQ_PAIR(vq::math::VQRectf, ::VQRectf, BothWays,
    VQ_FIELD(x),
    VQ_FIELD(y),
    VQ_FIELD(w),
    VQ_FIELD(h));
VQ_PAIR(vq::math::VQTransform, ::VQTransform, BothWays,
    VQ_FIELD(position),
    VQ_FIELD(rotation));
VQ_PAIR(vq::math::VQMat4f, ::VQMat4f, BothWays,
    VQ_FIELD(matrix_colmajor));

// Hand tracking.
VQ_PAIR(vq::sd::VQHandTrackingHandState, ::VQHandTrackingHandState, BothWays,
    VQ_FIELD(keypose),
    VQ_FIELD(hand_confidence),
    VQ_FIELD(keypose_confidence),
    VQ_FIELD(keypoints_mask));
VQ_PAIR(vq::sd::VQHandTrackingData, ::VQHandTrackingData, BothWays,
    VQ_FIELD(left_hand),
    VQ_FIELD(right_hand));
VQ_PAIR(vq::sd::VQHandTrackingConfiguration, ::VQHandTrackingConfiguration, ToPlain,
    VQ_FIELD(enabled),
    VQ_FIELD(keypose_enabled));

// Input controllers. The state travels in two messages: all but the pose, and the pose.
VQ_PAIR(vq::sd::VQInputControllerTouchpadGesture, ::VQInputControllerTouchpadGesture, BothWays,
    VQ_FIELD(type),
    VQ_FIELD(direction),
    VQ_FIELD(speed),
    VQ_FIELD(distance),
    VQ_FIELD(finger_gap),
    VQ_FIELD(radius),
    VQ_FIELD(angle));
VQ_PAIR(vq::sd::VQInputControllerState, ::VQInputControllerState, ToPlain,
    VQ_FIELD(controller_id),
    VQ_FIELD(touch_pos_and_force),
    VQ_FIELD(trigger_normalized),
    VQ_FIELD(button_state_move),
    VQ_FIELD(button_state_app),
    VQ_FIELD(button_state_bumper),
    VQ_FIELD(button_state_home_tap),
    VQ_FIELD(is_touch_active),
    VQ_FIELD(is_connected),
    VQ_FIELD(touchpad_gesture),
    VQ_FIELD(touchpad_gesture_state),
    VQ_FIELD(dof),
    VQ_FIELD(hardware_index));
VQ_PAIR(vq::ch::InputControllerDataEvent, ::VQInputControllerState, ToPlain,
    VQ_FIELD_SPREAD(state));
VQ_PAIR(vq::math::VQTransform, ::VQInputControllerState, ToPlain,
    VQ_FIELD(position),
    VQ_FIELD_AS(orientation, rotation));
VQ_PAIR(vq::ch::TransformChannelDataEvent, ::VQInputControllerState, ToPlain,
    VQ_FIELD_SPREAD(transform));
VQ_PAIR(vq::sd::VQControllerStream, ::VQControllerStream, BothWays,
    VQ_FIELD(type),
    VQ_FIELD(is_active),
    VQ_FIELD(accuracy),
    VQ_FIELD(position),
    VQ_FIELD(rotation));
VQ_PAIR(vq::sd::VQControllerState, ::VQControllerState, BothWays,
    VQ_FIELD(controller_id),
    VQ_FIELD(is_active),
    VQ_FIELD(streams));
VQ_PAIR(vq::sd::VQControllerSystemState, ::VQControllerSystemState, BothWays,
    VQ_FIELD(controllers));

// Image tracking.
VQ_PAIR(vq::sd::VQImageTrackerTargetResult, ::VQImageTrackerTargetResult, BothWays,
    VQ_FIELD(status));
VQ_PAIR(vq::sd::VQImageTrackerSettings, ::VQImageTrackerSettings, BothWays,
    VQ_FIELD(enabled),
    VQ_FIELD(target_limit));
VQ_PAIR(vq::sd::VQImageTrackerTargetSettings, ::VQImageTrackerTargetSettings, ToPlain,
    VQ_FIELD(enabled),
    VQ_FIELD(longest_side));

// Ray casts, meshes, planes.
VQ_PAIR(vq::sd::VQRaycastQuery, ::VQRaycastQuery, BothWays,
    VQ_FIELD(origin),
    VQ_FIELD(direction),
    VQ_FIELD(max_distance));
VQ_PAIR(vq::sd::VQRaycastResult, ::VQRaycastResult, BothWays,
    VQ_FIELD(state),
    VQ_FIELD(point),
    VQ_FIELD(normal),
    VQ_FIELD(distance));
VQ_PAIR(vq::sd::VQMeshingExtents, ::VQMeshingExtents, BothWays,
    VQ_FIELD(minimum),
    VQ_FIELD(maximum));
VQ_PAIR(vq::sd::VQMeshingSettings, ::VQMeshingSettings, ToPlain,
    VQ_FIELD(detail),
    VQ_FIELD(with_normals),
    VQ_FIELD(with_confidence));
VQ_PAIR(vq::sd::VQPlanesQueryBegin, ::VQPlanesQuery, BothWays,
    VQ_FIELD(center),
    VQ_FIELD(extents),
    VQ_FIELD(max_results));

// Graphics.
VQ_PAIR(vq::sd::ClipExtentsInfo, ::VQGraphicsClipExtentsInfo, BothWays,
    VQ_FIELD(transform),
    VQ_FIELD(projection));
VQ_PAIR(vq::sd::ClipExtentsInfoArray, ::VQGraphicsClipExtentsInfoArray, ToPlain,
    VQ_FIELD(num_virtual_cameras),
    VQ_FIELD(extents));
VQ_PAIR(vq::sd::FrameParams, ::VQGraphicsFrameParamsEx, BothWays,
    VQ_FIELD(near_clip),
    VQ_FIELD(far_clip),
    VQ_FIELD(surface_scale));

// Keyboard.
VQ_PAIR(vq::ch::KeyboardDataEvent::KeyUpDownData, ::KeyboardData, BothWays,
    VQ_FIELD(key),
    VQ_FIELD(is_down),
    VQ_FIELD(modifiers));
VQ_PAIR(vq::ch::KeyboardDataEvent, ::KeyboardData, BothWays,
    VQ_FIELD(character),
    VQ_FIELD_SPREAD(up_down));

// clang-format on

#undef VQ_PAIR
#undef VQ_FIELD_SPREAD
#undef VQ_FIELD_AS
#undef VQ_FIELD
#undef VQ_FIELD_OF

}  // namespace ProtoUtilsDetail
