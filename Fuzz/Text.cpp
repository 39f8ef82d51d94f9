// Command lines cut into arguments, and the other operations on text.
//
// The input is two short texts, each up to a NUL, and a longer one that they are used on.

#include <algorithm>

#include "FuzzTarget.h"
#include "Utils/TextUtils.h"

namespace {

std::string_view Cut(std::string_view& rest) {
    std::string_view const piece = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min(rest.size(), piece.size() + 1));
    return piece;
}

std::string Join(std::vector<std::string> const& pieces, std::string_view separator) {
    std::string text;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        text.append(i == 0 ? "" : separator).append(pieces[i]);
    }
    return text;
}

}  // namespace

void TryInput(std::string_view input) {
    std::string_view text = input;
    std::string_view const from = Cut(text);
    std::string_view const to = Cut(text);

    FUZZ_CHECK(Join(Tokenize(text, from, false), from) == text);
    for (std::string const& token : Tokenize(text, from, true)) {
        FUZZ_CHECK(!token.empty() && (from.empty() || token.find(from) == std::string::npos));
    }
    FUZZ_CHECK(Join(SplitLines(text, true), "") == text);
    for (std::string const& line : SplitLines(text, false)) {
        FUZZ_CHECK(line.find('\n') == std::string::npos);
    }
    // A text is replaced by another as a list is joined by another.
    FUZZ_CHECK(from.empty() || ReplaceSubstring(text, from, to) == Join(Tokenize(text, from, false), to));

    std::string moved(text);
    bool const found = MoveSubstring(moved, from, to.size());
    FUZZ_CHECK(found == (text.find(from) != std::string_view::npos) && moved.size() == text.size());
    std::string tail(text);
    FUZZ_CHECK(ContainsPrefix(text, from) == RemovePrefix(tail, from));

    std::size_t length = 0;
    for (std::string const& argument : Parameterize(text)) {
        length += argument.size();
    }
    FUZZ_CHECK(length <= text.size());
    FUZZ_CHECK(HexDump(text.data(), text.size()).size() >= 4 * text.size());
}
