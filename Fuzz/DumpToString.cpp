// Samples as text: any bytes, under any type name.
//
// The first byte of an input chooses one of the known types, for which the rest is the payload; beyond their
// number the rest is a type name up to a NUL, and the payload.

#include <algorithm>
#include <iterator>

#include "FuzzTarget.h"
#include "Utils/ProtoDump.h"

namespace {

constexpr std::string_view kTypes[] = {
    "vq.ch.Vec3ChannelDataEvent",
    "vq.ch.QuatChannelDataEvent",
    "vq.ch.TransformChannelDataEvent",
    "vq.ch.IndexedTransformChannelDataEvent",
    "vq.ch.IntegerChannelDataEvent",
    "vq.ch.TimestampChannelDataEvent",
    "vq.ch.HeadTrackingStateDataEvent",
    "vq.ch.GraphicsContractChannelDataEvent",
    "vq.ch.HandTrackingDataEvent",
    "vq.ch.HandTrackingKeypointDataEvent",
    "vq.ch.ImageTargetResultDataEvent",
    "vq.ch.SharedBufferChannelDataUpdatedEvent",
    "vq.ch.EyeTrackingStateDataEvent",
    "vq.ch.InputControllerDataEvent",
    "vq.ch.PcfDataEvent",
    "vq.ch.ControllerSystemStateDataEvent",
};

bool IsKnown(std::string_view name) {
    return std::ranges::find(kTypes, name) != std::end(kTypes);
}

}  // namespace

void TryInput(std::string_view input) {
    if (input.empty()) {
        return;
    }
    std::size_t const choice = static_cast<unsigned char>(input[0]);
    input.remove_prefix(1);
    std::string_view type;
    if (choice < std::size(kTypes)) {
        type = kTypes[choice];
    } else {
        type = input.substr(0, input.find('\0'));
        input.remove_prefix(type.size());
    }
    std::string text = "old text";
    ProtoUtils::DumpToString(type, input, text);
    // Whatever is printed ends in a blank, so that pieces can be put together.
    FUZZ_CHECK(text.empty() || (IsKnown(type) && text.back() == ' '));
    // The old text is gone, and a second look gives the same.
    std::string again;
    ProtoUtils::DumpToString(type, input, again);
    FUZZ_CHECK(again == text);
}
