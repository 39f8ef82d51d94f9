// What converting a sample costs beside a copy of the plain structure, and what its readable form costs
// beside reading the message alone. A row for each pair and direction.

#include <cstring>
#include <glm/glm.hpp>
#include <string>

#include "Twin.h"
#include "Utils/ProtoDump.h"
#include "Utils/ProtoUtils.h"

namespace {

constexpr std::size_t kBatch = 2000;

/// A copy that the compiler must carry out; aligned, so that two of them cost the same.
template <class Plain>
struct CopyOf {
    alignas(64) static inline Plain from{};
    alignas(64) static inline Plain to{};
    void operator()() {
        benchmark::DoNotOptimize(from);
        to = from;
        benchmark::DoNotOptimize(to);
    }
};

template <class Message, class Plain>
Message FullMessage() {
    Message message;
    if constexpr (requires(Plain plain) { ProtoUtils::ConvertTo(plain, &message); }) {
        ProtoUtils::ConvertTo(Plain{}, &message);
    } else {
        ProtoUtilsDetail::CopyAllToMessage(Plain{}, message);
    }
    return message;
}

template <class Message, class Plain>
void ToPlain(benchmark::State& state) {
    Message const message = FullMessage<Message, Plain>();
    Plain plain{};
    bench::RunTwin(state, kBatch, CopyOf<Plain>(), [&message, &plain] {
        ProtoUtils::ConvertTo(message, &plain);
        benchmark::DoNotOptimize(plain);
    });
}

template <class Message, class Plain>
void ToMessage(benchmark::State& state) {
    Message message = FullMessage<Message, Plain>();
    Plain plain{};
    bench::RunTwin(state, kBatch, CopyOf<Plain>(), [&message, &plain] {
        benchmark::DoNotOptimize(plain);
        ProtoUtils::ConvertTo(plain, &message);
    });
}

void ControllerToMessages(benchmark::State& state) {
    ::VQInputControllerState plain{};
    vq::ch::InputControllerDataEvent controller;
    vq::ch::TransformChannelDataEvent pose;
    bench::RunTwin(state, kBatch, CopyOf<::VQInputControllerState>(), [&] {
        benchmark::DoNotOptimize(plain);
        ProtoUtils::ConvertTo(plain, &controller, &pose);
    });
}

void ControllerToPlain(benchmark::State& state) {
    ::VQInputControllerState plain{};
    vq::ch::InputControllerDataEvent controller;
    vq::ch::TransformChannelDataEvent pose;
    ProtoUtils::ConvertTo(plain, &controller, &pose);
    bench::RunTwin(state, kBatch, CopyOf<::VQInputControllerState>(), [&] {
        ProtoUtils::ConvertTo(controller, &plain);
        ProtoUtils::ConvertTo(pose, &plain);
        benchmark::DoNotOptimize(plain);
    });
}

template <class Geometry>
void VariantTo(benchmark::State& state) {
    vq::cfg::Variant value;
    for (float const number : {0.5f, 0.25f, 0.125f, 0.0625f}) {
        value.mutable_float_list()->add_values(number);
    }
    Geometry geometry{};
    bench::RunTwin(state, kBatch, CopyOf<Geometry>(), [&value, &geometry] {
        ProtoUtils::ConvertTo(value, &geometry);
        benchmark::DoNotOptimize(geometry);
    });
}

/// A hand of so many key points, each somewhere else and turned another way.
std::string HandOf(int count) {
    vq::ch::HandTrackingKeypointDataEvent event;
    for (int index = 0; index < count; ++index) {
        float const turn = 0.3f + 0.17f * static_cast<float>(index);
        ::VQTransform const pose{
            {0.1f * turn, 1.37f - turn, -0.42f * turn},
            {0.18f * glm::sin(turn), 0.36f * glm::sin(turn), 0.915f * glm::sin(turn), glm::cos(turn)}};
        auto& keypoint = *event.add_keypoints();
        keypoint.set_index(static_cast<std::uint32_t>(index));
        ProtoUtils::ConvertTo(pose, keypoint.mutable_transform());
    }
    return event.SerializeAsString();
}

void DumpHand(benchmark::State& state) {
    std::string const type = vq::ch::HandTrackingKeypointDataEvent().GetTypeName();
    std::string const payload = HandOf(15);
    std::string text;
    ProtoUtils::DumpToString(type, payload, text);
    if (text.size() < 1000) {
        state.SkipWithError("the hand is not printed");
        return;
    }
    // The base is next to nothing, so that the difference is the whole cost.
    std::string copy;
    bench::RunTwin(
        state, 20,
        [&] {
            copy = payload;
            return copy.size();
        },
        [&] {
            ProtoUtils::DumpToString(type, payload, text);
            return text.size();
        });
}

void CopyQuiet(benchmark::State& state) {
    bench::RunQuiet(state, kBatch, CopyOf<::VQInputControllerState>());
}

#define VQ_TO_PLAIN(package, message, plain) \
    VQ_TWIN("convert_" #message "_to_plain", (ToPlain<vq::package::message, ::plain>))
#define VQ_BOTH_WAYS(package, message, plain) \
    VQ_TO_PLAIN(package, message, plain);     \
    VQ_TWIN("convert_" #message "_to_message", (ToMessage<vq::package::message, ::plain>))

VQ_BOTH_WAYS(math, VQVec3f, VQVec3f);
VQ_BOTH_WAYS(math, VQQuaternionf, VQQuaternionf);
VQ_BOTH_WAYS(math, VQRectf, VQRectf);
VQ_BOTH_WAYS(math, VQTransform, VQTransform);
VQ_BOTH_WAYS(math, VQMat4f, VQMat4f);
VQ_BOTH_WAYS(sd, VQCoordinateFrameUID, VQCoordinateFrameUID);
VQ_BOTH_WAYS(sd, VQHandTrackingHandState, VQHandTrackingHandState);
VQ_BOTH_WAYS(sd, VQHandTrackingData, VQHandTrackingData);
VQ_TO_PLAIN(sd, VQHandTrackingConfiguration, VQHandTrackingConfiguration);
VQ_BOTH_WAYS(sd, VQInputControllerTouchpadGesture, VQInputControllerTouchpadGesture);
VQ_BOTH_WAYS(sd, VQControllerSystemState, VQControllerSystemState);
VQ_TWIN("convert_controller_state_to_plain", ControllerToPlain);
VQ_TWIN("convert_controller_state_to_message", ControllerToMessages);
VQ_BOTH_WAYS(sd, VQImageTrackerTargetResult, VQImageTrackerTargetResult);
VQ_BOTH_WAYS(sd, VQImageTrackerSettings, VQImageTrackerSettings);
VQ_TO_PLAIN(sd, VQImageTrackerTargetSettings, VQImageTrackerTargetSettings);
VQ_BOTH_WAYS(sd, VQRaycastQuery, VQRaycastQuery);
VQ_BOTH_WAYS(sd, VQRaycastResult, VQRaycastResult);
VQ_BOTH_WAYS(sd, VQMeshingExtents, VQMeshingExtents);
VQ_TO_PLAIN(sd, VQMeshingSettings, VQMeshingSettings);
VQ_BOTH_WAYS(sd, VQPlanesQueryBegin, VQPlanesQuery);
VQ_BOTH_WAYS(sd, ClipExtentsInfo, VQGraphicsClipExtentsInfo);
VQ_TO_PLAIN(sd, ClipExtentsInfoArray, VQGraphicsClipExtentsInfoArray);
VQ_BOTH_WAYS(sd, FrameParams, VQGraphicsFrameParamsEx);
VQ_BOTH_WAYS(ch, KeyboardDataEvent, KeyboardData);
VQ_TWIN("convert_Variant_to_vec3", VariantTo<glm::vec3>);
VQ_TWIN("convert_Variant_to_vec4", VariantTo<glm::vec4>);
VQ_TWIN("convert_Variant_to_quat", VariantTo<glm::quat>);
VQ_TWIN("dump_hand_15_keypoints", DumpHand);
VQ_TWIN("convert_copy_quiet", CopyQuiet);

}  // namespace
