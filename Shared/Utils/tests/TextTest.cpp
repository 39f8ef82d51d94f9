#include "Utils/TextUtils.h"

#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/PathText.h"

namespace {

/// Its texts with slashes between them; one that is empty shows, none at all is "~".
std::string Joined(std::vector<std::string> const& texts) {
    std::string joined;
    for (std::string const& text : texts) {
        joined += "/" + text;
    }
    return texts.empty() ? kNone : joined.substr(1);
}

TEST(TextTest, TokenizesOnTheWholeSeparator) {
    for (auto const& [text, separator, all, nonEmpty] : Rows<4>("Text", "tokens")) {
        EXPECT_EQ(Joined(Tokenize(text, separator, false)), all) << text;
        EXPECT_EQ(Joined(Tokenize(text, separator, true)), nonEmpty) << text;
    }
}

TEST(TextTest, SplitsLines) {
    for (auto const& [text, bare, whole] : Rows<3>("Text", "lines")) {
        EXPECT_EQ(Joined(SplitLines(text, false)), bare);
        EXPECT_EQ(Joined(SplitLines(text, true)), whole);
    }
}

TEST(TextTest, CutsCommandLinesIntoArguments) {
    for (auto const& [commandLine, arguments] : Rows<2>("Text", "arguments")) {
        EXPECT_EQ(Joined(Parameterize(commandLine)), arguments) << commandLine;
    }
}

TEST(TextTest, ReplacesAndRemovesAndMovesPieces) {
    EXPECT_EQ(ReplaceSubstring("aXbXX", "X", "XY"), "aXYbXYXY");
    EXPECT_EQ(ReplaceSubstring("aaa", "aa", "b"), "ba");
    EXPECT_EQ(ReplaceSubstring("abc", "", "x"), "abc");
    EXPECT_FALSE(ContainsPrefix("abc", "abc") || ContainsPrefix("ab", "abc") || ContainsPrefix("", ""));
    std::string text = "abcd";
    EXPECT_TRUE(RemovePrefix(text, "abc"));
    EXPECT_FALSE(RemovePrefix(text, "d"));
    EXPECT_EQ(text, "d");
    // The place is counted after the erasure of the piece.
    for (auto const& [piece, position, result] :
         std::vector<std::tuple<char const*, std::size_t, char const*>>{
             {"cd", 0, "cdabef"}, {"ab", 2, "cdabef"}, {"ab", 99, "cdefab"}, {"", 3, "abcdef"}}) {
        text = "abcdef";
        EXPECT_TRUE(MoveSubstring(text, piece, position));
        EXPECT_EQ(text, result);
    }
    EXPECT_FALSE(MoveSubstring(text, "x", 0));
}

TEST(TextTest, TreatsBytesAboveAsciiAsUnsigned) {
    EXPECT_EQ(ToLower("AbC\xC3\x84"), "abc\xC3\x84");
    EXPECT_EQ(HexDump("A\n\xFF", 3), " 41 0a ff\n\tA..");
    EXPECT_EQ(HexDump("", 0), "\n\t");
}

TEST(PathTextTest, PicksPathsApart) {
    for (auto const& [path, directory, fileName, asDirectory, asExecutable] : Rows<5>("Text", "paths")) {
        EXPECT_EQ(GetDirectoryOf(path), directory) << path;
        EXPECT_EQ(GetFileNameOf(path), fileName) << path;
        EXPECT_EQ(EnsureDirectoryPath(path), asDirectory) << path;
        EXPECT_EQ(EnsureExecutableExtension(path, ".x"), asExecutable) << path;
    }
    EXPECT_EQ(GetBaseNameOf(".profile") + GetBaseNameOf("a.b.c") + GetBaseNameOf("d"), "a.bd");
}

}  // namespace
