#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

/// Appends text in the format that a stream gives by default, without a stream: six significant digits, flags
/// as 1 and 0, enumerations as their numbers. The string must outlive it, and has all of the text once it is
/// gone. Belongs to one thread.
class DumpText {
public:
    explicit DumpText(std::string& out) : m_out(out) {}
    ~DumpText() { Flush(); }
    DumpText(DumpText const&) = delete;
    DumpText& operator=(DumpText const&) = delete;

    /// Several pieces in one go, each a literal, a character or a number: room is looked for once.
    template <class... Pieces>
    [[gnu::always_inline]] void Append(Pieces const&... pieces) {
        constexpr std::size_t longest = (LongestOf<Pieces>() + ...);
        static_assert(longest <= sizeof m_buffer);
        if (Room() < longest) {
            Flush();
        }
        char* end =
            m_end;  // in a register meanwhile: what is written might be m_end, for all the compiler knows
        ((end = Put(end, pieces)), ...);
        m_end = end;
    }

    DumpText& operator<<(std::string_view text) {
        if (text.size() > Room()) {
            Flush();
            if (text.size() > Room()) {
                m_out.append(text);
                return *this;
            }
        }
        std::memcpy(m_end, text.data(), text.size());
        m_end += text.size();
        return *this;
    }
    template <std::size_t Size>
    [[gnu::always_inline]] DumpText& operator<<(char const (&literal)[Size]) {
        Append(literal);
        return *this;
    }
    template <class Number>
    requires std::integral<Number> || std::is_enum_v<Number> || std::is_same_v<Number, float> DumpText&
    operator<<(Number number) {
        Append(number);
        return *this;
    }

private:
    /// More than any number takes: 20 characters for 64 bits, 13 for six digits with sign, point and
    /// exponent. That many may be written over, whatever the number.
    static constexpr std::size_t kLongestNumber = 32;

    template <class Piece>
    static consteval std::size_t LongestOf() {
        if constexpr (std::is_array_v<Piece>) {
            return sizeof(Piece) - 1;
        } else {
            return std::is_same_v<Piece, char> ? 1 : kLongestNumber;
        }
    }

    // Each writes at `out` and returns the end of what it wrote.
    template <std::size_t Size>
    [[gnu::always_inline]] static char* Put(char* out, char const (&literal)[Size]) {
        std::memcpy(out, literal, Size - 1);  // of known length: a store or two
        return out + Size - 1;
    }
    static char* Put(char* out, char character) {
        *out = character;
        return out + 1;
    }
    static char* Put(char* out, bool flag) { return Put(out, flag ? '1' : '0'); }
    static char* Put(char* out, float number);
    template <class Number>
    requires std::integral<Number> || std::is_enum_v<Number>
    static char* Put(char* out, Number number) {
        if constexpr (std::is_enum_v<Number>) {
            return Put(out, static_cast<std::underlying_type_t<Number>>(number));
        } else {
            return std::to_chars(out, out + kLongestNumber, number).ptr;
        }
    }

    std::size_t Room() const { return static_cast<std::size_t>(m_buffer + sizeof m_buffer - m_end); }
    [[gnu::noinline]] void Flush() {
        m_out.append(m_buffer, m_end);
        m_end = m_buffer;
    }

    std::string& m_out;
    // Most pieces are a few characters long: they are collected here.
    char m_buffer[2048];
    char* m_end = m_buffer;
};
