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
    /// A literal; of known length, so that it costs a store or two.
    template <std::size_t Size>
    [[gnu::always_inline]] DumpText& operator<<(char const (&literal)[Size]) {
        static_assert(Size <= sizeof m_buffer);
        if (Room() < Size - 1) {
            Flush();
        }
        std::memcpy(m_end, literal, Size - 1);
        m_end += Size - 1;
        return *this;
    }
    DumpText& operator<<(float number);

    template <class Number>
    requires std::integral<Number> || std::is_enum_v<Number> DumpText& operator<<(Number number) {
        if constexpr (std::is_enum_v<Number>) {
            return *this << static_cast<std::underlying_type_t<Number>>(number);
        } else if constexpr (std::is_same_v<Number, bool>) {
            return *this << std::string_view(number ? "1" : "0");
        } else {
            MakeRoomForNumber();
            m_end = std::to_chars(m_end, m_end + kLongestNumber, number).ptr;
            return *this;
        }
    }

private:
    /// More than any number takes: 20 characters for 64 bits, 13 for six digits with sign, point and
    /// exponent.
    static constexpr std::size_t kLongestNumber = 32;

    std::size_t Room() const { return static_cast<std::size_t>(m_buffer + sizeof m_buffer - m_end); }
    void MakeRoomForNumber() {
        if (Room() < kLongestNumber) {
            Flush();
        }
    }
    [[gnu::noinline]] void Flush() {
        m_out.append(m_buffer, m_end);
        m_end = m_buffer;
    }

    std::string& m_out;
    // Most pieces are a few characters long: they are collected here.
    char m_buffer[1024];
    char* m_end = m_buffer;
};
