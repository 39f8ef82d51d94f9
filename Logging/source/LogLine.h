#pragma once

#include <charconv>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

/// The text of one line while it is put together: on the stack as long as it is short.
class LogLine {
public:
    LogLine() = default;
    LogLine(LogLine const&) = delete;
    LogLine& operator=(LogLine const&) = delete;

    void Add(char character) {
        *MakeRoom(1) = character;
        ++m_size;
    }
    void Add(std::string_view text) {
        if (!text.empty()) {
            std::memcpy(MakeRoom(text.size()), text.data(), text.size());
            m_size += text.size();
        }
    }
    template <typename Integer>
    void AddNumber(Integer number) {
        char digits[24];
        char const* const end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
        Add(std::string_view(digits, static_cast<std::size_t>(end - digits)));
    }

    std::string_view View() const { return {m_text, m_size}; }

private:
    /// Where the next `size` characters go.
    char* MakeRoom(std::size_t size) {
        if (m_capacity - m_size < size) {
            std::string longer;
            longer.reserve((m_size + size) * 2);
            longer.assign(m_text, m_size);
            longer.resize(longer.capacity());
            m_long.swap(longer);
            m_text = m_long.data();
            m_capacity = m_long.size();
        }
        return m_text + m_size;
    }

    char m_short[1024];
    std::string m_long;
    char* m_text = m_short;
    std::size_t m_capacity = sizeof m_short;
    std::size_t m_size = 0;
};
