#pragma once

#include <json/value.h>

#include <array>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

// JSON text to documents, and safe looks into documents. No state; any thread.

/// Parses a JSON text; comments in it are accepted and dropped.
/// @param root    the document; unspecified on failure.
/// @param errors  receives the reader's formatted messages on failure, including the one about a nesting that
///                is too deep for the reader. Otherwise left alone.
bool ParseJson(std::string_view text, Json::Value& root, std::string& errors);

/// The member of that name, or null when `value` is no object or has no such member. Never throws, unlike the
/// look-ups of Json::Value. The result lives as long as `value` is unchanged.
Json::Value const* FindJsonMember(Json::Value const& value, std::string_view key);

/// The name of the member that an iterator of an object stands at, without a copy.
inline std::string_view MemberNameOf(Json::Value::const_iterator const& member) {
    char const* end = nullptr;
    char const* const begin = member.memberName(&end);
    return {begin, static_cast<std::size_t>(end - begin)};
}

/// The text of a string, without a copy; empty for any other value. Lives as long as the value.
inline std::string_view StringViewOf(Json::Value const& value) {
    char const* begin = nullptr;
    char const* end = nullptr;
    return value.getString(&begin, &end) ? std::string_view(begin, static_cast<std::size_t>(end - begin))
                                         : std::string_view();
}

/// Looks up several members in one walk, for which an object with few members is quicker than many look-ups.
/// @return the members in the order of the keys, null for each that is absent.
template <std::size_t Count>
std::array<Json::Value const*, Count> FindJsonMembers(Json::Value const& value,
                                                      std::array<std::string_view, Count> const& keys) {
    std::array<Json::Value const*, Count> found{};
    if (!value.isObject()) {
        return found;
    }
    auto const end = value.end();
    for (auto member = value.begin(); member != end; ++member) {
        std::string_view const name = MemberNameOf(member);
        for (std::size_t index = 0; index < Count; ++index) {
            if (keys[index] == name) {
                found[index] = &*member;
                break;
            }
        }
    }
    return found;
}

/// The text of a scalar: a string as it is, null as the empty text, a number or bool in decimal or word form.
/// @return false, with `out` unchanged, for an array or an object, which have none.
bool ConvertJsonToText(Json::Value const& value, std::string& out);

/// The whole file as text. A file that won't open gives an error line and the empty text.
std::string JsonFileToString(std::string const& path);

/// Parses a text; a parse error writes the reader's formatted messages to `errors` and returns false.
bool GetJsonRootOfString(std::string const& text, Json::Value& root, std::ostream& errors);

/// Loads a file and expands its "Includes". An empty or missing file is false with nothing in `errors`.
/// @param errors  receives every problem of the document's structure, a line each.
bool GetJsonRootOfFile(std::string const& path, Json::Value& root, std::ostream& errors);

/// The same; problems are logged in one error record instead.
bool GetJsonRootOfFile(std::string const& path, Json::Value& root);
