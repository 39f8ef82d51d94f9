#include "Utils/TextUtils.h"

#include "TestSupport/Test.h"
#include "Utils/PathText.h"

namespace {

using Texts = std::vector<std::string>;
template <class... Columns>
using Table = std::vector<std::tuple<Columns...>>;

TEST(TextTest, TokenizesOnTheWholeSeparator) {
    for (auto const& [text, separator, all, nonEmpty] :
         Table<char const*, char const*, Texts, Texts>{{"a:b:", ":", {"a", "b", ""}, {"a", "b"}},
                                                       {":a::b", ":", {"", "a", "", "b"}, {"a", "b"}},
                                                       {"", ":", {}, {}},
                                                       {":", ":", {"", ""}, {}},
                                                       {"a->b-c", "->", {"a", "b-c"}, {"a", "b-c"}},
                                                       {"abc", "", {"abc"}, {"abc"}}}) {
        EXPECT_EQ(Tokenize(text, separator, false), all) << text;
        EXPECT_EQ(Tokenize(text, separator, true), nonEmpty) << text;
    }
}

TEST(TextTest, SplitsLines) {
    for (auto const& [text, bare, whole] :
         Table<char const*, Texts, Texts>{{"", {}, {}},
                                          {"a\r\nb\r\n", {"a", "b"}, {"a\r\n", "b\r\n"}},
                                          {"a\n\nb", {"a", "", "b"}, {"a\n", "\n", "b"}},
                                          {"a\r", {"a\r"}, {"a\r"}},
                                          {"\n", {""}, {"\n"}}}) {
        EXPECT_EQ(SplitLines(text, false), bare);
        EXPECT_EQ(SplitLines(text, true), whole);
    }
}

TEST(TextTest, CutsCommandLinesIntoArguments) {
    for (auto const& [commandLine, arguments] :
         Table<char const*, Texts>{{"", {}},
                                   {"   ", {}},
                                   {"  a   b ", {"a", "b"}},
                                   {R"(a\ b\ c d)", {"a b c", "d"}},
                                   {R"(a "x y")", {"a", "x y"}},
                                   {R"("x""y")", {"x", "y"}},
                                   {R"("a\"b" c)", {"a\"b", "c"}},
                                   {R"("open)", {"open"}},
                                   {R"("" a)", {"a"}},
                                   {"\"x \t\r\n\" z", {"x ", "z"}},
                                   {R"(name="x y")", {"name=\"x", "y\""}},
                                   {"a\tb", {"a\tb"}}}) {
        EXPECT_EQ(Parameterize(commandLine), arguments) << commandLine;
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
    for (auto const& [piece, position, result] : Table<char const*, std::size_t, char const*>{
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
    for (auto const& [path, directory, fileName, asDirectory, asExecutable] :
         Table<char const*, char const*, char const*, char const*, char const*>{
             {"", "./", "", "/", ".x"},
             {"name", "./", "name", "name/", "name.x"},
             {"/a/b.c", "/a/", "b.c", "/a/b.c/", "/a/b.c"},
             {"/a.d/b", "/a.d/", "b", "/a.d/b/", "/a.d/b"},
             {"/a/", "/a/", "", "/a/", "/a/.x"},
             {"a\\b", "a\\", "b", "a\\b/", "a\\b.x"},
             {"a/b\\c", "a/", "b\\c", "a/b\\c/", "a/b\\c.x"},
             {"a\\", "a\\", "", "a\\", "a\\.x"}}) {
        EXPECT_EQ(GetDirectoryOf(path), directory) << path;
        EXPECT_EQ(GetFileNameOf(path), fileName) << path;
        EXPECT_EQ(EnsureDirectoryPath(path), asDirectory) << path;
        EXPECT_EQ(EnsureExecutableExtension(path, ".x"), asExecutable) << path;
    }
    EXPECT_EQ(GetBaseNameOf(".profile") + GetBaseNameOf("a.b.c") + GetBaseNameOf("d"), "a.bd");
}

}  // namespace
