#include "PlainHand.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ProtoText.h"

namespace {

static_assert(std::endian::native == std::endian::little, "as on the wire");

template <class Value>
Value Read(void const* bytes) {
    Value value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// A key point with all of its fields and an index of one byte: all but the numbers is known.
class PlainKeypoint {
public:
    static constexpr std::size_t kSize = 45;

    /// @param bytes  kSize of them, not owned.
    explicit PlainKeypoint(char const* bytes) : m_bytes(bytes) {}

    /// Whether the bytes are one.
    bool IsValid() const {
        std::uint64_t difference = 0;
        for (std::size_t const offset : {0U, 8U, 16U, 24U, 32U, 37U}) {  // the last two overlap
            difference |=
                (Read<std::uint64_t>(m_bytes + offset) ^ Read<std::uint64_t>(kForm.data() + offset)) &
                Read<std::uint64_t>(kKnown.data() + offset);
        }
        return difference == 0;
    }
    void AppendTo(DumpText& text) const {
        AppendKeypoint(text, static_cast<std::uint32_t>(m_bytes[kIndex]), {Float(9), Float(14), Float(19)},
                       {Float(26), Float(31), Float(36), Float(41)});
    }

private:
    float Float(std::size_t offset) const { return Read<float>(m_bytes + offset); }

    static constexpr std::size_t kIndex = 3;
    // The key point's tag, length and index; the transform's, the position's and its numbers'; the rotation's
    // and its numbers'. No known byte is zero. Of the index, the highest bit is known.
    static constexpr std::array<std::uint8_t, kSize> kForm = {
        0x1a, 43, 0x08, 0, 0x12, 39, 0x0a, 15,   0x0d, 0, 0, 0, 0,    0x15, 0, 0, 0, 0,    0x1d, 0, 0, 0, 0,
        0x12, 20, 0x0d, 0, 0,    0,  0,    0x15, 0,    0, 0, 0, 0x1d, 0,    0, 0, 0, 0x25, 0,    0, 0, 0};
    static constexpr std::array<std::uint8_t, kSize> kKnown = [] {
        std::array<std::uint8_t, kSize> known{};
        for (std::size_t i = 0; i < kSize; ++i) {
            known[i] = kForm[i] != 0 ? 0xff : 0;
        }
        known[kIndex] = 0x80;
        return known;
    }();

    char const* m_bytes;
};

}  // namespace

bool AppendPlainHand(DumpText& text, std::string_view payload) {
    constexpr std::size_t kMost =
        1000;  // key points; far more than a hand has, and small enough for the parser
    if (payload.empty() || payload.size() % PlainKeypoint::kSize != 0 ||
        payload.size() > kMost * PlainKeypoint::kSize) {
        return false;
    }
    char const* const end = payload.data() + payload.size();
    for (char const* bytes = payload.data(); bytes != end; bytes += PlainKeypoint::kSize) {
        if (!PlainKeypoint(bytes).IsValid()) {
            return false;
        }
    }
    text.Append("keypoints=[");
    for (char const* bytes = payload.data(); bytes != end; bytes += PlainKeypoint::kSize) {
        if (bytes != payload.data()) {
            text.Append(", ");
        }
        PlainKeypoint(bytes).AppendTo(text);
    }
    text.Append("] ");
    return true;
}
