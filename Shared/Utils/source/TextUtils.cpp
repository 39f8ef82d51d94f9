#include "Utils/TextUtils.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace {

constexpr auto npos = std::string_view::npos;

/// Reads the pieces of a command line one after the other.
class CommandLineReader {
public:
    explicit CommandLineReader(std::string_view text) : m_rest(text) {}

    void SkipSpace() {
        while (!m_rest.empty() && std::isspace(static_cast<unsigned char>(m_rest.front())) != 0) {
            m_rest.remove_prefix(1);
        }
    }

    /// Looks for an opening quote and consumes it.
    void LookForQuote() {
        m_quoted = m_rest.starts_with('"');
        if (m_quoted) {
            m_rest.remove_prefix(1);
        }
    }

    bool IsQuoted() const { return m_quoted; }

    /// The text up to the delimiter of the mode, which is consumed; false at the end of the input.
    bool Read(std::string& piece) {
        if (m_rest.empty()) {
            return false;
        }
        std::size_t const end = m_quoted ? FindClosingQuote() : m_rest.find(' ');
        piece = m_rest.substr(0, end);
        m_rest.remove_prefix(end == npos ? m_rest.size() : end + 1);
        return true;
    }

private:
    std::size_t FindClosingQuote() const {
        std::size_t end = m_rest.find('"');
        while (end != npos && end > 0 && m_rest[end - 1] == '\\') {
            end = m_rest.find('"', end + 1);
        }
        return end;
    }

    std::string_view m_rest;
    bool m_quoted = false;
};

}  // namespace

std::string ToLower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

std::vector<std::string> Tokenize(std::string_view text, std::string_view separator, bool skipEmpty) {
    std::vector<std::string> tokens;
    if (text.empty()) {
        return tokens;
    }
    for (std::size_t start = 0;;) {
        std::size_t const end = separator.empty() ? npos : text.find(separator, start);
        std::string_view const token = text.substr(start, end == npos ? npos : end - start);
        if (!token.empty() || !skipEmpty) {
            tokens.emplace_back(token);
        }
        if (end == npos) {
            return tokens;
        }
        start = end + separator.size();
    }
}

std::vector<std::string> SplitLines(std::string_view text, bool keepEndings) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        std::size_t const feed = text.find('\n');
        std::size_t const length = feed == npos ? text.size() : feed + 1;
        std::string_view line = text.substr(0, length);
        text.remove_prefix(length);
        if (feed != npos && !keepEndings) {
            line.remove_suffix(1);
            if (line.ends_with('\r')) {
                line.remove_suffix(1);
            }
        }
        lines.emplace_back(line);
    }
    return lines;
}

std::string ReplaceSubstring(std::string_view text, std::string_view from, std::string_view to) {
    if (from.empty()) {
        return std::string(text);
    }
    std::string result;
    for (std::size_t found = text.find(from); found != npos; found = text.find(from)) {
        result.append(text.substr(0, found)).append(to);
        text.remove_prefix(found + from.size());
    }
    return result.append(text);
}

bool ContainsPrefix(std::string_view text, std::string_view prefix) {
    return text.size() > prefix.size() && text.starts_with(prefix);
}

bool RemovePrefix(std::string& text, std::string_view prefix) {
    if (!ContainsPrefix(text, prefix)) {
        return false;
    }
    text.erase(0, prefix.size());
    return true;
}

bool MoveSubstring(std::string& text, std::string_view piece, std::size_t position) {
    std::size_t const found = text.find(piece);
    if (found == std::string::npos) {
        return false;
    }
    std::string const moved(piece);  // the argument may point into the text
    text.erase(found, moved.size());
    text.insert(std::min(position, text.size()), moved);
    return true;
}

std::vector<std::string> Parameterize(std::string_view commandLine) {
    std::vector<std::string> arguments;
    CommandLineReader reader(commandLine);
    reader.SkipSpace();
    reader.LookForQuote();
    for (std::string piece; reader.Read(piece); reader.LookForQuote()) {
        if (piece.empty()) {
            continue;
        }
        if (reader.IsQuoted()) {
            piece = ReplaceSubstring(piece, "\\\"", "\"");
            piece.erase(piece.find_last_not_of("\t\n\v\f\r") + 1);
            arguments.push_back(piece);
        } else if (!arguments.empty() && arguments.back().ends_with('\\')) {
            arguments.back().back() = ' ';
            arguments.back() += piece;
        } else {
            arguments.push_back(piece);
        }
    }
    return arguments;
}

std::vector<char*> ArgumentPointers(std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::string HexDump(void const* data, std::size_t size) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string_view const bytes(static_cast<char const*>(data), size);
    std::string hex;
    std::string characters;
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        hex.append({' ', digits[byte >> 4], digits[byte & 15]});
        characters += std::isprint(byte) != 0 ? c : '.';
    }
    return hex + "\n\t" + characters;
}
