#pragma once

#include <optional>
#include <string_view>

/// What the first frame of an event says. The texts are views into that frame.
struct EventHeader {
    std::string_view type;
    std::string_view channel;
    int channelId = 0;

    /// Nothing when the bytes are not exactly a header: type name, NUL, channel name, NUL, id in four bytes.
    static std::optional<EventHeader> Parse(std::string_view frame);
};
