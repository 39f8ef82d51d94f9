#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What the first frame of an event says. The texts are views into that frame.
struct EventHeader {
    std::string_view type;
    std::string_view channel;
    int channelId = 0;
    /// The type's held form (FindMessageTypeName), where that was known when the header was first seen.
    std::string const* heldType = nullptr;

    /// Nothing when the bytes are not exactly a header: type name, NUL, channel name, NUL, id in four bytes.
    /// Each thread knows the headers again that it saw last, since those of a channel are all alike.
    static std::optional<EventHeader> Parse(std::string_view frame);
};
