#pragma once

#include <cstdint>
#include <cstring>
#include <string>

/// Writes single fields of the binary message format by hand, so that expectations do not come from the
/// generated classes. Each function returns the bytes of one field, tag first.
namespace wire {

inline std::string Varint(std::uint64_t value) {
    std::string bytes;
    for (; value > 0x7f; value >>= 7) {
        bytes += static_cast<char>((value & 0x7f) | 0x80);
    }
    bytes += static_cast<char>(value);
    return bytes;
}

/// For bool, enumerations and all integers; negative ones take ten bytes.
inline std::string Number(std::uint32_t field, std::int64_t value) {
    return Varint(field << 3).append(Varint(static_cast<std::uint64_t>(value)));
}

inline std::string FloatBytes(float value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

inline std::string Float(std::uint32_t field, float value) {
    return Varint(field << 3 | 5).append(FloatBytes(value));
}

/// For string, bytes, messages and packed runs.
inline std::string Text(std::uint32_t field, std::string const& content) {
    return Varint(field << 3 | 2).append(Varint(content.size())).append(content);
}

/// Fields 1 to 3.
inline std::string Vector(float x, float y, float z) {
    return Float(1, x).append(Float(2, y)).append(Float(3, z));
}

}  // namespace wire
