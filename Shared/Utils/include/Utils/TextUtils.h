#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Text helpers without state; any thread.

/// A copy with tolower applied to each byte.
std::string ToLower(std::string_view text);

/// Splits on the whole separator text. An empty text gives no tokens; an empty separator gives one, the text.
/// @param skipEmpty  drop empty tokens. Otherwise they stay, and a text that ends in the separator gives a
///                   last empty token.
std::vector<std::string> Tokenize(std::string_view text, std::string_view separator, bool skipEmpty);

/// Splits at line feeds. A last line without one is kept; a trailing one gives no extra empty line.
/// @param keepEndings  the line feed stays in its line. Otherwise it goes, with a carriage return before it.
std::vector<std::string> SplitLines(std::string_view text, bool keepEndings);

/// The text with every occurrence of `from` replaced, left to right; a replacement is never scanned again.
/// An empty `from` changes nothing.
std::string ReplaceSubstring(std::string_view text, std::string_view from, std::string_view to);

/// True only when the text begins with the prefix and is longer: a text equal to it does not count, since
/// callers go on to read what follows.
bool ContainsPrefix(std::string_view text, std::string_view prefix);

/// The same test; when it holds, strips the prefix and returns true.
bool RemovePrefix(std::string& text, std::string_view prefix);

/// Erases the first occurrence of `piece` and inserts it at `position`.
/// @param piece     an empty one counts as found at 0.
/// @param position  counts in the text after the erasure; beyond its end means at its end.
/// @return false, with the text as it was, when the piece is not found.
bool MoveSubstring(std::string& text, std::string_view piece, std::size_t position);

/// Cuts one command-line text into arguments at blanks. A backslash before a blank keeps the blank; a piece
/// in double quotes is one argument, and a backslash before a quote in it keeps the quote.
std::vector<std::string> Parameterize(std::string_view commandLine);

/// Arguments as exec and getopt take them: a pointer to each of the texts, which must outlive the result, and
/// a null.
std::vector<char*> ArgumentPointers(std::vector<std::string>& arguments);

/// Two lines: " xx" for each byte, and "\n\t" followed by each byte as a character ('.' when unprintable).
std::string HexDump(void const* data, std::size_t size);
