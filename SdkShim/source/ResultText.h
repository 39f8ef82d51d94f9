#pragma once

#include <cstddef>
#include <cstdint>

namespace vq::SdkShim {

/// One row of an interface's table of result names.
struct ResultText {
    std::uint32_t code;
    char const* text;
};

/// Text of a code that every interface shares, "Unknown" for any other. A literal. Any thread.
char const* CommonResultText(std::uint32_t code);

/// Text of a code: from the interface's own table first, then from the shared one. A literal. Any thread.
template <std::size_t N>
char const* FindResultText(ResultText const (&table)[N], std::uint32_t code) {
    for (ResultText const& row : table) {
        if (row.code == code) {
            return row.text;
        }
    }
    return CommonResultText(code);
}

}  // namespace vq::SdkShim
