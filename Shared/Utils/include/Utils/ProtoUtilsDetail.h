#pragma once

#include <google/protobuf/message_lite.h>
#include <google/protobuf/repeated_field.h>
#include <google/protobuf/repeated_ptr_field.h>

#include <algorithm>
#include <iterator>
#include <tuple>
#include <type_traits>

#include "Graphics.pb.h"
#include "Utils/ProtoPairs.h"
#include "VQSdkTypes.pb.h"

// The machinery of the conversions, and those that a user of ProtoUtils.h seldom calls by itself.

namespace ProtoUtilsDetail {

/// Ends the process by a fatal check when there is no output to write to.
void FailWithoutOutput(void const* to);
inline void CheckOutput(void const* to) {
    if (to == nullptr) [[unlikely]] {
        FailWithoutOutput(to);
    }
}

template <class Message, class Plain>
concept HasFields = requires {
    Pair<Message, Plain>::Fields();
};
template <class Message, class Plain>
concept FillsMessage = HasFields<Message, Plain> && Pair<Message, Plain>::direction == Direction::BothWays;
template <class Type>
concept IsMessage = std::is_base_of_v<google::protobuf::MessageLite, Type>;

/// Message to plain structure: copies field by field. What is not set in the message reads as its default. Of
/// a list as many elements are copied as both sides have; the structure keeps its others. Allocates nothing.
/// @param to  null ends the process.
template <class Message, class Plain>
requires HasFields<Message, Plain>
void ConvertTo(Message const& from, Plain* to);

/// Plain structure to message: sets every field of the pair, present from then on; fields that the structure
/// has no word for stay as they are. A list is cleared and gets all elements. A number outside the message's
/// enumeration ends the process.
/// @param to  null ends the process.
template <class Plain, class Message>
requires FillsMessage<Message, Plain>
void ConvertTo(Plain const& from, Message* to);

/// Unlike other lists this one fills both words: with 0 what the message lacks. More than two are ignored.
void ConvertTo(vq::sd::VQCoordinateFrameUID const& from, ::VQCoordinateFrameUID* to);
void ConvertTo(::VQCoordinateFrameUID const& from, vq::sd::VQCoordinateFrameUID* to);

/// All but the pose. A finger counts as touching when its force is above 0, whatever its flag says, and the
/// timestamp is this moment: milliseconds of the steady clock.
void ConvertTo(::VQInputControllerState const& from, vq::sd::VQInputControllerState* to);

/// Surface formats, whose two sides may come to differ: each known value is mapped by itself.
/// @return false, with an error line and the output as it was, for a value that is none of the known ones.
bool ConvertToChecked(vq::sd::SurfaceFormat from, ::VQSurfaceFormat* to);
bool ConvertToChecked(::VQSurfaceFormat from, vq::sd::SurfaceFormat* to);

template <class From, class To>
void CopyToPlain(From const& from, To& to) {
    if constexpr (IsMessage<From>) {
        ConvertTo(from, &to);
    } else if constexpr (std::is_array_v<To>) {
        int const count = std::min(from.size(), static_cast<int>(std::size(to)));
        if constexpr (std::is_arithmetic_v<std::remove_extent_t<To>>) {
            std::copy_n(from.data(), count, to);
        } else {
            for (int index = 0; index < count; ++index) {
                ConvertTo(from.Get(index), &to[index]);
            }
        }
    } else {
        to = static_cast<To>(from);
    }
}

template <class From, class Element>
void AppendAll(From const& from, google::protobuf::RepeatedField<Element>& to) {
    to.Add(std::begin(from), std::end(from));
}

template <class From, class Element>
void AppendAll(From const& from, google::protobuf::RepeatedPtrField<Element>& to) {
    for (auto const& element : from) {
        ConvertTo(element, to.Add());
    }
}

template <class Plain, class Message, class FieldType>
void CopyToMessage(Plain const& from, Message& to, FieldType const& field) {
    auto const& member = field.member(from);
    using Value = std::remove_cvref_t<decltype(field.get(to))>;
    if constexpr (IsMessage<Value>) {
        ConvertTo(member, field.edit(to));
    } else if constexpr (std::is_array_v<std::remove_cvref_t<decltype(member)>>) {
        auto& list = *field.edit(to);
        list.Clear();
        AppendAll(member, list);
    } else {
        field.set(to, static_cast<Value>(member));
    }
}

/// Walks a pair's fields to its message, also of a pair whose conversion adds something of its own.
template <class Plain, class Message>
void CopyAllToMessage(Plain const& from, Message& to) {
    std::apply([&](auto const&... fields) { (CopyToMessage(from, to, fields), ...); },
               Pair<Message, Plain>::Fields());
}

template <class Message, class Plain>
requires HasFields<Message, Plain>
void ConvertTo(Message const& from, Plain* to) {
    CheckOutput(to);
    std::apply([&](auto const&... fields) { (CopyToPlain(fields.get(from), fields.member(*to)), ...); },
               Pair<Message, Plain>::Fields());
}

template <class Plain, class Message>
requires FillsMessage<Message, Plain>
void ConvertTo(Plain const& from, Message* to) {
    CheckOutput(to);
    CopyAllToMessage(from, *to);
}

}  // namespace ProtoUtilsDetail
