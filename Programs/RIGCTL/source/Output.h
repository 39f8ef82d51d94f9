#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

namespace vq::rigctl {

/// How a listing is shown to people.
struct Column {
    char const* title;
    char const* key;  ///< of the row's object
};

/// Standard output: objects as JSON, one a line, or as text. A line is out as soon as it is written.
class Output {
public:
    /// @param color  "always", "never", or "auto": when standard output is a terminal, unless NO_COLOR is set
    ///               or TERM is "dumb"
    Output(bool json, std::string const& color);

    bool IsJson() const { return m_json; }
    /// One line.
    void Object(Json::Value const& object) const;
    /// One line of printable text.
    void Line(std::string const& text) const;
    /// Rows as JSON objects, or as a table of these columns.
    void List(std::vector<Column> const& columns, std::vector<Json::Value> const& rows) const;
    /// The same, as texts: a heading and a line for each row.
    static std::vector<std::string> Table(std::vector<Column> const& columns,
                                          std::vector<Json::Value> const& rows);

    std::string Bold(std::string const& text) const { return Colored("1", text); }
    std::string Good(std::string const& text) const { return Colored("32", text); }
    std::string Bad(std::string const& text) const { return Colored("31", text); }

    /// Tells on standard error how things are going; only when that is a terminal.
    static void Progress(std::string const& text);
    /// Says on standard error what went wrong.
    static void Complain(std::string const& text);

private:
    std::string Colored(char const* code, std::string const& text) const;

    bool m_json;
    bool m_color;
};

/// With blanks for control characters: what a peer sends must not steer the terminal.
std::string Printable(std::string text);
/// A value in few words: flags are yes and no, lists have commas.
std::string TextOf(Json::Value const& value);
/// JSON in one line.
std::string CompactJson(Json::Value const& value);

}  // namespace vq::rigctl
