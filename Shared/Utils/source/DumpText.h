#pragma once

#include <charconv>
#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>

/// Appends text in the format that a stream gives by default, without a stream: six significant digits, flags
/// as 1 and 0, enumerations as their numbers. Belongs to one thread; the string must outlive it.
class DumpText {
public:
    explicit DumpText(std::string& out) : m_out(out) {}

    DumpText& operator<<(std::string_view text) {
        m_out.append(text);
        return *this;
    }
    DumpText& operator<<(char const* text) { return *this << std::string_view(text); }
    DumpText& operator<<(float number);

    template <class Number>
    requires std::integral<Number> || std::is_enum_v<Number> DumpText& operator<<(Number number) {
        if constexpr (std::is_enum_v<Number>) {
            return *this << static_cast<std::underlying_type_t<Number>>(number);
        } else if constexpr (std::is_same_v<Number, bool>) {
            m_out.push_back(number ? '1' : '0');
        } else {
            char digits[24];
            m_out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
        }
        return *this;
    }

private:
    std::string& m_out;
};
