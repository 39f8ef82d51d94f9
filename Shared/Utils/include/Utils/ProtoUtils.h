#pragma once

#include <glm/ext/matrix_float4x4.hpp>
#include <glm/ext/quaternion_float.hpp>
#include <glm/ext/vector_float3.hpp>
#include <glm/ext/vector_float4.hpp>
#include <string>
#include <type_traits>

#include "Config.pb.h"
#include "Identity.pb.h"
#include "Utils/ProtoUtilsDetail.h"

/// Conversions between the messages of the bus and the plain structures and glm values of device code.
///
/// `ConvertTo(from, to*)` exists for each pair that ProtoPairs.h lists, in the directions that it gives, and
/// for what follows here; its rules stand in ProtoUtilsDetail.h. The output is written in place; a null one
/// ends the process. No state; any thread, as long as no other one uses the same objects.
namespace ProtoUtils {

using ProtoUtilsDetail::ConvertTo;

/// A controller's state as the two messages in which it travels, fit for two channels.
/// @param controllerEvent  gets everything but the pose; its timestamp is this moment, milliseconds of the
///                         steady clock, and a finger counts as touching when its force is above 0.
/// @param transformEvent   gets the pose; its flags and contributors are not touched.
void ConvertTo(::VQInputControllerState const& state, vq::ch::InputControllerDataEvent* controllerEvent,
               vq::ch::TransformChannelDataEvent* transformEvent);

/// Sets the count as it stands, and sends as many elements as it counts, three at most.
void ConvertTo(::VQGraphicsClipExtentsInfoArrayEx const& from, vq::sd::ClipExtentsInfoArray* to);

/// A matrix, column by column. Elements that the message lacks stay as they are; more than 16 are ignored.
void ConvertTo(vq::math::VQMat4f const& from, glm::mat4* to);
void ConvertTo(glm::mat4 const& from, vq::math::VQMat4f* to);

/// A setting as a vector: of a number, all components get it; of a list of three numbers or more, the first
/// ones. With four components, a list of exactly three gives w = 1. Anything else is warned of in the log and
/// leaves the output, which should hold the setting's default, as it was.
void ConvertTo(vq::cfg::Variant const& from, glm::vec3* to);
void ConvertTo(vq::cfg::Variant const& from, glm::vec4* to);

/// A setting as a rotation: a list of four numbers is w, x, y, z, one of three the angles about x, y and z in
/// degrees. Anything else is warned of in the log and leaves the output as it was.
void ConvertTo(vq::cfg::Variant const& from, glm::quat* to);

/// The public record of an identity attribute, as the C interface defines it.
template <class Record>
concept IdentityRecord = std::is_class_v<Record> && requires(Record record) {
    requires std::is_enum_v<decltype(record.key)>;
    requires std::is_same_v<decltype(record.name), char const*>;
    requires std::is_same_v<decltype(record.value), char const*>;
    requires std::is_same_v<decltype(record.is_requested), bool>;
    requires std::is_same_v<decltype(record.is_granted), bool>;
};

/// The record's texts are the message's own: they live until the message changes or goes. Nothing is
/// allocated.
template <IdentityRecord Record>
void ConvertTo(vq::sd::VQIdentityAttribute const& from, Record* to) {
    ProtoUtilsDetail::CheckOutput(to);
    to->key = static_cast<decltype(to->key)>(from.key());
    to->name = from.name().c_str();
    to->value = from.value().c_str();
    to->is_requested = from.is_requested();
    to->is_granted = from.is_granted();
}

/// The message gets copies of the texts; a null text counts as empty. A key outside 0 to 7 ends the process.
template <IdentityRecord Record>
void ConvertTo(Record const& from, vq::sd::VQIdentityAttribute* to) {
    ProtoUtilsDetail::CheckOutput(to);
    to->set_key(static_cast<vq::sd::VQIdentityAttributeKey>(from.key));
    to->set_name(from.name != nullptr ? from.name : "");
    to->set_value(from.value != nullptr ? from.value : "");
    to->set_is_requested(from.is_requested);
    to->set_is_granted(from.is_granted);
}

}  // namespace ProtoUtils
