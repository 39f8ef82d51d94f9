#pragma once

#include <cstdint>
#include <cstring>
#include <string>

/// Writes single fields of the binary message format by hand, so that expectations do not come from the
/// generated classes that they are to check. Each function returns the bytes of one field, tag first.
namespace wire {

inline std::string Varint(std::uint64_t value) {
    std::string bytes;
    for (; value > 0x7f; value >>= 7) {
        bytes += static_cast<char>((value & 0x7f) | 0x80);
    }
    return bytes + static_cast<char>(value);
}

inline std::string Tag(std::uint32_t field, std::uint32_t wireType) {
    return Varint(std::uint64_t{field} << 3 | wireType);
}

/// For bool, enumerations and all integers; negative ones take ten bytes.
inline std::string Number(std::uint32_t field, std::int64_t value) {
    return Tag(field, 0) + Varint(static_cast<std::uint64_t>(value));
}

/// The four bytes of a float, lowest first.
inline std::string FloatBytes(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(bits >> shift & 0xff);
    }
    return bytes;
}

inline std::string Float(std::uint32_t field, float value) {
    return Tag(field, 5) + FloatBytes(value);
}

/// For string, bytes, messages and packed runs.
inline std::string Text(std::uint32_t field, std::string const& content) {
    return Tag(field, 2) + Varint(content.size()) + content;
}

}  // namespace wire
