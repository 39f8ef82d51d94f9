#pragma once

#include "ChannelData.pb.h"

/// The data types of channels in the order in which they are registered: X(wire message, display text). The
/// texts are part of the manifest format and matched exactly.
#define VQ_CHANNEL_DATA_TYPES(X)                                            \
    X(vq::ch::IntegerChannelDataEvent, "Integer")                           \
    X(vq::ch::TimestampChannelDataEvent, "Timestamp")                       \
    X(vq::ch::Vec3ChannelDataEvent, "Vec3")                                 \
    X(vq::ch::QuatChannelDataEvent, "Quat")                                 \
    X(vq::ch::TransformChannelDataEvent, "Transform")                       \
    X(vq::ch::IndexedTransformChannelDataEvent, "Indexed Transform")        \
    X(vq::ch::AudioBufferChannelDataEvent, "Audio Buffer Data")             \
    X(vq::ch::AudioOutputStatusChannelDataEvent, "Audio Output Status")     \
    X(vq::ch::SharedBufferChannelDataUpdatedEvent, "Shared Buffer Data")    \
    X(vq::ch::HeadTrackingStateDataEvent, "Head Tracking State")            \
    X(vq::ch::GraphicsContractChannelDataEvent, "Graphics Contract")        \
    X(vq::ch::EyeTrackingStateDataEvent, "Eye Tracking State")              \
    X(vq::ch::HandTrackingKeypointDataEvent, "Hand Tracking Keypoint Data") \
    X(vq::ch::HandTrackingDataEvent, "Hand Tracking Data")                  \
    X(vq::ch::InputControllerDataEvent, "Input Controller")                 \
    X(vq::ch::LifecycleDataEvent, "Lifecycle Event")                        \
    X(vq::ch::FeatureChannelDataEvent, "Feature")                           \
    X(vq::ch::ImageTargetResultDataEvent, "Image Target Result")            \
    X(vq::ch::RaycastResultsDataEvent, "Raycast Results")                   \
    X(vq::ch::MeshDataEvent, "Mesh")                                        \
    X(vq::ch::MeshInfoDataEvent, "Mesh Info")                               \
    X(vq::ch::PlaneDataEvent, "Planes")                                     \
    X(vq::ch::PcfDataEvent, "Pcf")                                          \
    X(vq::ch::ControllerSystemStateDataEvent, "Controller System State")    \
    X(vq::ch::KeyboardDataEvent, "Keyboard Data")

/// Display text of the data type that a wire message carries; null for a message that is none.
template <class T>
inline constexpr char const* ChannelDataTypeText = nullptr;

#define VQ_CHANNEL_DATA_TYPE_TEXT(Message, text) \
    template <>                                  \
    inline constexpr char const* ChannelDataTypeText<Message> = text;
VQ_CHANNEL_DATA_TYPES(VQ_CHANNEL_DATA_TYPE_TEXT)
#undef VQ_CHANNEL_DATA_TYPE_TEXT
