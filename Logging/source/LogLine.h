#pragma once

#include <charconv>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

#include "LogPlace.h"

/// The text of one line while it is put together: on the stack as long as it is short.
class LogLine {
public:
    /// @param size  the most characters that will be added; nothing checks it again.
    explicit LogLine(std::size_t size)
        : m_long(size > sizeof m_short ? new char[size] : nullptr),
          m_text(m_long ? m_long.get() : m_short),
          m_next(m_text) {}
    LogLine(LogLine const&) = delete;
    LogLine& operator=(LogLine const&) = delete;

    void Add(char character) { *m_next++ = character; }
    void Add(std::string_view text) {
        if (!text.empty()) {  // most colours are
            std::memcpy(m_next, text.data(), text.size());
            m_next += text.size();
        }
    }
    /// At most 11 characters.
    void Add(int number) { m_next = std::to_chars(m_next, m_next + 11, number).ptr; }
    /// "[name:line] "; at most 15 characters beside the name.
    void Add(LogPlace const& place, LogRecord const& record) {
        Add('[');
        Add(place.name);
        if (place.HasColon(record)) {
            Add(':');
        }
        if (place.withLine) {
            Add(static_cast<int>(record.line));
        }
        Add(std::string_view("] "));
    }

    std::string_view View() const { return {m_text, static_cast<std::size_t>(m_next - m_text)}; }

private:
    char m_short[1024];
    std::unique_ptr<char[]> const m_long;
    char* const m_text;
    char* m_next;
};
