#pragma once

#include <cstdint>
#include <string_view>

namespace vq::rigctl {

/// Walks the fields of a serialized message. The message outlives it.
class WireReader {
public:
    enum Type : std::uint32_t { Varint = 0, Fixed64 = 1, Bytes = 2, Fixed32 = 5 };

    explicit WireReader(std::string_view message) : m_rest(message) {}

    /// Goes to the next field. False at the end, and when the message is broken.
    bool Next() {
        if (m_rest.empty() || m_broken) {
            return false;
        }
        std::uint64_t const key = TakeVarint();
        number = static_cast<int>(key >> 3U);
        type = static_cast<Type>(key & 7U);
        switch (type) {
            case Varint:
                value = TakeVarint();
                break;
            case Fixed64:
                value = TakeFixed(8);
                break;
            case Fixed32:
                value = TakeFixed(4);
                break;
            case Bytes:
                bytes = TakeBytes(TakeVarint());
                break;
            default:
                m_broken = true;
        }
        return !m_broken;
    }
    /// The message ended in the middle of something.
    bool IsBroken() const { return m_broken; }
    bool AtEnd() const { return m_rest.empty(); }

    /// Parts of a packed field.
    std::uint64_t TakeVarint() {
        std::uint64_t result = 0;
        for (unsigned shift = 0; shift < 70 && !m_rest.empty(); shift += 7) {
            auto const byte = static_cast<std::uint8_t>(m_rest.front());
            m_rest.remove_prefix(1);
            if (shift < 64) {
                result |= static_cast<std::uint64_t>(byte & 0x7FU) << shift;
            }
            if ((byte & 0x80U) == 0) {
                return result;
            }
        }
        m_broken = true;
        return 0;
    }
    std::uint64_t TakeFixed(std::size_t size) {
        std::string_view const part = TakeBytes(size);
        std::uint64_t result = 0;
        for (std::size_t i = 0; i < part.size(); ++i) {
            result |= static_cast<std::uint64_t>(static_cast<std::uint8_t>(part[i])) << (8 * i);
        }
        return result;
    }

    // The present field.
    int number = 0;
    Type type = Varint;
    std::uint64_t value = 0;  ///< of all types but Bytes
    std::string_view bytes;   ///< of Bytes

private:
    std::string_view TakeBytes(std::uint64_t size) {
        if (size > m_rest.size()) {
            m_broken = true;
            return {};
        }
        std::string_view const result = m_rest.substr(0, size);
        m_rest.remove_prefix(size);
        return result;
    }

    std::string_view m_rest;
    bool m_broken = false;
};

}  // namespace vq::rigctl
