#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <random>
#include <tuple>
#include <type_traits>

#include "Utils/ProtoUtils.h"

/// Random plain structures: any bits for numbers, the values 0 to 7 for enumerations.
class RandomPlain {
public:
    explicit RandomPlain(unsigned seed) : m_random(seed) {}

    /// Fills what the pair's fields reach.
    template <class Message, class Plain>
    void Fill(Plain& plain) {
        std::apply(
            [&](auto const&... fields) {
                (FillMember<std::remove_cvref_t<decltype(fields.get(Message()))>>(fields.member(plain)), ...);
            },
            ProtoUtilsDetail::Pair<Message, Plain>::Fields());
    }

    std::uint64_t Number() { return m_random(); }

private:
    template <class Value, class Member>
    void FillMember(Member& member) {
        if constexpr (std::is_array_v<Member>) {
            for (auto& element : member) {
                FillMember<typename Value::value_type>(element);
            }
        } else if constexpr (ProtoUtilsDetail::IsMessage<Value>) {
            Fill<Value>(member);
        } else if constexpr (std::is_enum_v<Member>) {
            member = static_cast<Member>(Number() % 8);
        } else if constexpr (std::is_same_v<Member, bool>) {
            member = Number() % 2 == 1;
        } else if constexpr (std::is_same_v<Member, float>) {
            member = std::bit_cast<float>(static_cast<std::uint32_t>(Number()));
        } else {
            member = static_cast<Member>(Number());
        }
    }

    std::mt19937_64 m_random;
};

/// Bit by bit, but for padding: a number that is none equals itself here. For compilers that can clear
/// padding.
#if __has_builtin(__builtin_clear_padding)
#define VQ_SKIP_WHERE_PADDING_STAYS()
template <class Plain>
bool SameBits(Plain left, Plain right) {
    __builtin_clear_padding(&left);
    __builtin_clear_padding(&right);
    return std::memcmp(&left, &right, sizeof left) == 0;
}
#else
#define VQ_SKIP_WHERE_PADDING_STAYS() GTEST_SKIP() << "this compiler cannot clear padding"
template <class Plain>
bool SameBits(Plain const&, Plain const&) {
    return false;
}
#endif
