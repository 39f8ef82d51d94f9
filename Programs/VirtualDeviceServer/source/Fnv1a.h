#pragma once

#include <cstdint>
#include <string_view>

namespace vq::server {

/// The FNV-1a hash of a text: the same in every process, for names of files that a later server must find.
constexpr std::uint64_t Fnv1a(std::string_view text) {
    std::uint64_t hash = 14695981039346656037U;
    for (char const c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    }
    return hash;
}

}  // namespace vq::server
