#include "Utils/ProtoDump.h"

#include <google/protobuf/arena.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <type_traits>

#include "PlainHand.h"
#include "ProtoText.h"

namespace {

// A scalar prints as "name=value " and only when it is present.
#define VQ_DUMP(message, name)                            \
    do {                                                  \
        if ((message).has_##name()) {                     \
            text << #name "=" << (message).name() << " "; \
        }                                                 \
    } while (false)

/// "name=[a, b] ", each element by `append`; nothing for an empty list.
template <class List, class Append>
void DumpList(DumpText& text, std::string_view name, List const& list, Append append) {
    if (list.empty()) {
        return;
    }
    std::string_view separator = "=[";
    text << name;
    for (auto const& element : list) {
        text << separator;
        append(element);
        separator = ", ";
    }
    text << "] ";
}

template <class List>
void DumpNumbers(DumpText& text, std::string_view name, List const& list) {
    DumpList(text, name, list, [&text](auto number) { text << number; });
}

template <class Vector>
bool HasVector(Vector const& vector) {
    return vector.has_x() || vector.has_y() || vector.has_z();
}

/// "position=(x, y, z) rotation=<quaternion> ", of any message with these fields.
template <class Pose>
void DumpPose(DumpText& text, Pose const& pose) {
    if (pose.has_position()) {
        text << "position=";
        AppendVector(text, pose.position());
        text << " ";
    }
    if (pose.has_rotation()) {
        text << "rotation=";
        AppendQuaternion(text, pose.rotation());
        text << " ";
    }
}

void Dump(DumpText& text, vq::ch::Vec3ChannelDataEvent const& event) {
    if (HasVector(event)) {
        AppendVector(text, event);
        text << " ";
    }
    VQ_DUMP(event, flag);
}

void Dump(DumpText& text, vq::ch::QuatChannelDataEvent const& event) {
    if (HasVector(event) || event.has_w()) {
        AppendQuaternion(text, event);
        text << " ";
    }
    VQ_DUMP(event, flag);
}

void Dump(DumpText& text, vq::ch::TransformChannelDataEvent const& event) {
    AppendTransform(text, event);
    text << " ";
    VQ_DUMP(event, absolute_position);
    VQ_DUMP(event, absolute_orientation);
    VQ_DUMP(event, translate_relative);
    VQ_DUMP(event, rotate_relative);
}

void Dump(DumpText& text, vq::ch::IndexedTransformChannelDataEvent const& event) {
    Dump(text, event.transform());
    DumpNumbers(text, "cfuid", event.cfuid().data());
}

void Dump(DumpText& text, vq::ch::IntegerChannelDataEvent const& event) {
    VQ_DUMP(event, value);
}

void Dump(DumpText& text, vq::ch::TimestampChannelDataEvent const& event) {
    if (event.timestamp().has_value()) {
        text << "timestamp=" << event.timestamp().value() << " ";
    }
}

void Dump(DumpText& text, vq::ch::HeadTrackingStateDataEvent const& event) {
    VQ_DUMP(event, mode);
    VQ_DUMP(event, confidence);
    VQ_DUMP(event, error);
    VQ_DUMP(event, map_events);
}

void DumpCamera(DumpText& text, vq::sd::VirtualCameraInfo const& camera) {
    text << "{";
    VQ_DUMP(camera, left_half_angle);
    VQ_DUMP(camera, right_half_angle);
    VQ_DUMP(camera, top_half_angle);
    VQ_DUMP(camera, bottom_half_angle);
    // The pose and the matrix would make the line too long.
    text << " ... }";
}

void Dump(DumpText& text, vq::ch::GraphicsContractChannelDataEvent const& event) {
    VQ_DUMP(event, contract_id);
    if (!event.has_cameras()) {
        VQ_DUMP(event.clip_extents(), num_virtual_cameras);
        return;
    }
    vq::sd::VirtualCameraInfoArray const& cameras = event.cameras();
    VQ_DUMP(cameras, num_virtual_cameras);
    if (cameras.has_viewport()) {
        text << "viewport=" << cameras.viewport().w() << " x " << cameras.viewport().h() << " ";
    }
    DumpList(text, "virtual_cameras", cameras.virtual_cameras(),
             [&text](auto const& camera) { DumpCamera(text, camera); });
}

void DumpHand(DumpText& text, vq::sd::VQHandTrackingHandState const& hand) {
    text << "{ ";
    VQ_DUMP(hand, keypose);
    VQ_DUMP(hand, hand_confidence);
    DumpNumbers(text, "keypose_confidence", hand.keypose_confidence());
    DumpNumbers(text, "keypoints_mask", hand.keypoints_mask());
    text << "} ";
}

void Dump(DumpText& text, vq::ch::HandTrackingDataEvent const& event) {
    if (event.hands().has_left_hand()) {
        DumpHand(text, event.hands().left_hand());
    }
    if (event.hands().has_right_hand()) {
        DumpHand(text, event.hands().right_hand());
    }
}

void Dump(DumpText& text, vq::ch::HandTrackingKeypointDataEvent const& event) {
    DumpList(text, "keypoints", event.keypoints(),
             [&text](auto const& keypoint) { AppendKeypoint(text, keypoint); });
}

void Dump(DumpText& text, vq::ch::ImageTargetResultDataEvent const& event) {
    DumpNumbers(text, "cfuid", event.cfuid().data());
    VQ_DUMP(event.result(), status);
}

void Dump(DumpText& text, vq::ch::SharedBufferChannelDataUpdatedEvent const& event) {
    VQ_DUMP(event, server_memory_id);
    if (event.has_descriptor()) {
        text << "descriptor={";
        VQ_DUMP(event.descriptor(), buffersize);
        text << "case=" << event.descriptor().kind_case() << "} ";
    }
    VQ_DUMP(event, generation);
    VQ_DUMP(event, updated_offset);
    VQ_DUMP(event, updated_size);
}

void Dump(DumpText& text, vq::ch::EyeTrackingStateDataEvent const& event) {
    vq::sd::VQEyeTrackingState const& state = event.state();
    VQ_DUMP(state, fixation_confidence);
    VQ_DUMP(state, left_center_confidence);
    VQ_DUMP(state, right_center_confidence);
    VQ_DUMP(state, left_blink);
    VQ_DUMP(state, right_blink);
    VQ_DUMP(state, calibration_status);
}

void DumpGesture(DumpText& text, vq::sd::VQInputControllerTouchpadGesture const& gesture) {
    text << "touchpad_gesture={";
    VQ_DUMP(gesture, type);
    VQ_DUMP(gesture, direction);
    VQ_DUMP(gesture, speed);
    VQ_DUMP(gesture, distance);
    VQ_DUMP(gesture, finger_gap);
    VQ_DUMP(gesture, radius);
    VQ_DUMP(gesture, angle);
    text << "} ";
}

void Dump(DumpText& text, vq::ch::InputControllerDataEvent const& event) {
    vq::sd::VQInputControllerState const& state = event.state();
    VQ_DUMP(state, controller_id);
    DumpList(text, "touch_pos_and_force", state.touch_pos_and_force(),
             [&text](auto const& touch) { AppendVector(text, touch); });
    VQ_DUMP(state, trigger_normalized);
    VQ_DUMP(state, button_state_move);
    VQ_DUMP(state, button_state_app);
    VQ_DUMP(state, button_state_bumper);
    VQ_DUMP(state, button_state_home_tap);
    DumpNumbers(text, "is_touch_active", state.is_touch_active());
    VQ_DUMP(state, is_connected);
    if (state.has_touchpad_gesture()) {
        DumpGesture(text, state.touchpad_gesture());
    }
    VQ_DUMP(state, touchpad_gesture_state);
    VQ_DUMP(state, dof);
    VQ_DUMP(state, hardware_index);
}

void Dump(DumpText& text, vq::ch::PcfDataEvent const& event) {
    vq::sd::Pcf const& pcf = event.pcf();
    if (pcf.cfuid().data_size() > 0) {
        std::string_view separator = "cfuid={";
        for (auto const word : pcf.cfuid().data()) {
            text << separator << word;
            separator = ", ";
        }
        text << "} ";
    }
    DumpPose(text, pcf);
}

void DumpStream(DumpText& text, int index, vq::sd::VQControllerStream const& stream) {
    text << "Stream " << index << " ";
    VQ_DUMP(stream, type);
    VQ_DUMP(stream, is_active);
    VQ_DUMP(stream, accuracy);
    DumpPose(text, stream);
}

void Dump(DumpText& text, vq::ch::ControllerSystemStateDataEvent const& event) {
    for (int index = 0; index < event.state().controllers_size(); ++index) {
        vq::sd::VQControllerState const& controller = event.state().controllers(index);
        text << "Controller state " << index << ": {";
        VQ_DUMP(controller, controller_id);
        VQ_DUMP(controller, is_active);
        for (int stream = 0; stream < controller.streams_size(); ++stream) {
            DumpStream(text, stream, controller.streams(stream));
        }
        text << "} ";
    }
}

#undef VQ_DUMP

struct Dumper {
    std::string typeName;
    void (*dump)(std::string_view payload, std::string& text);
};

/// Enough for the parts of a usual sample, so that reading it takes nothing from the heap.
constexpr std::size_t kStackBytes = 4096;

template <class Event>
void DumpPayload(std::string_view payload, std::string& text) {
    text.clear();
    DumpText out(text);
    if constexpr (std::is_same_v<Event, vq::ch::HandTrackingKeypointDataEvent>) {
        if (AppendPlainHand(out, payload)) {
            return;
        }
    }
    alignas(std::max_align_t) char block[kStackBytes];
    google::protobuf::ArenaOptions options;
    options.initial_block = block;
    options.initial_block_size = sizeof block;
    google::protobuf::Arena arena(options);
    Event& event = *google::protobuf::Arena::CreateMessage<Event>(&arena);
    // Whether all of it can be read does not matter: what was read is printed.
    constexpr std::size_t limit = std::numeric_limits<int>::max();
    event.ParsePartialFromArray(payload.data(), static_cast<int>(std::min(payload.size(), limit)));
    Dump(out, event);
}

template <class Event>
Dumper DumperOf() {
    return {Event::default_instance().GetTypeName(), DumpPayload<Event>};
}

/// The table of these types, in this order. Never destroyed: threads may log until the process is gone.
template <class... Events>
auto const& Dumpers() {
    static auto const& dumpers = *new std::array<Dumper, sizeof...(Events)>{DumperOf<Events>()...};
    return dumpers;
}

}  // namespace

void ProtoUtils::DumpToString(std::string_view typeName, std::string_view payload, std::string& text) {
    using namespace vq::ch;
    auto const& dumpers =
        Dumpers<Vec3ChannelDataEvent, QuatChannelDataEvent, TransformChannelDataEvent,
                IndexedTransformChannelDataEvent, IntegerChannelDataEvent, TimestampChannelDataEvent,
                HeadTrackingStateDataEvent, GraphicsContractChannelDataEvent, HandTrackingDataEvent,
                HandTrackingKeypointDataEvent, ImageTargetResultDataEvent,
                SharedBufferChannelDataUpdatedEvent, EyeTrackingStateDataEvent, InputControllerDataEvent,
                PcfDataEvent, ControllerSystemStateDataEvent>();
    auto const dumper = std::find_if(dumpers.begin(), dumpers.end(),
                                     [&](Dumper const& known) { return known.typeName == typeName; });
    if (dumper == dumpers.end()) {
        text.clear();
        return;
    }
    dumper->dump(payload, text);
}
