#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

/// A place in a document, for messages. It links to the steps above it and is spelt out only when a message
/// needs it, since most walks have nothing to say.
///
/// Lifetime: borrows its parent and its texts; lives on the stack of the walk.
class JsonPath {
public:
    explicit JsonPath(std::string_view text) : m_name(text) {}

    /// The parent's text followed by the three pieces.
    JsonPath(JsonPath const& parent, std::string_view before, std::string_view name,
             std::string_view after = {})
        : m_parent(&parent), m_before(before), m_name(name), m_after(after) {}

    JsonPath(JsonPath const& parent, Json::ArrayIndex index)
        : m_parent(&parent), m_before("."), m_index(index), m_isElement(true) {}

    std::string Text() const {
        std::string text = m_parent != nullptr ? m_parent->Text() : std::string();
        text += m_before;
        if (m_isElement) {
            text += std::to_string(m_index);
        } else {
            text.append(m_name).append(m_after);
        }
        return text;
    }

private:
    JsonPath const* m_parent = nullptr;
    std::string_view m_before;
    std::string_view m_name;
    std::string_view m_after;
    Json::ArrayIndex m_index = 0;
    bool m_isElement = false;
};
