#include "Utils/TextUtils.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "Utils/PathText.h"

namespace {

using Texts = std::vector<std::string>;

TEST(TextTest, TokenizesOnTheWholeSeparator) {
    struct Case {
        char const* text;
        char const* separator;
        Texts all;
        Texts nonEmpty;
    };
    Case const cases[] = {
        {"a:b:", ":", {"a", "b", ""}, {"a", "b"}},
        {":a::b", ":", {"", "a", "", "b"}, {"a", "b"}},
        {"", ":", {}, {}},
        {":", ":", {"", ""}, {}},
        {"a->b-c", "->", {"a", "b-c"}, {"a", "b-c"}},
        {"abc", "", {"abc"}, {"abc"}},
    };
    for (Case const& c : cases) {
        EXPECT_EQ(Tokenize(c.text, c.separator, false), c.all) << c.text;
        EXPECT_EQ(Tokenize(c.text, c.separator, true), c.nonEmpty) << c.text;
    }
}

TEST(TextTest, SplitsLines) {
    struct Case {
        char const* text;
        Texts bare;
        Texts whole;
    };
    Case const cases[] = {
        {"", {}, {}},
        {"a\r\nb\r\n", {"a", "b"}, {"a\r\n", "b\r\n"}},
        {"a\n\nb", {"a", "", "b"}, {"a\n", "\n", "b"}},
        {"a\r", {"a\r"}, {"a\r"}},
        {"\n", {""}, {"\n"}},
    };
    for (Case const& c : cases) {
        EXPECT_EQ(SplitLines(c.text, false), c.bare);
        EXPECT_EQ(SplitLines(c.text, true), c.whole);
    }
}

TEST(TextTest, CutsCommandLinesIntoArguments) {
    struct Case {
        char const* commandLine;
        Texts arguments;
    };
    Case const cases[] = {
        {"", {}},
        {"   ", {}},
        {"  a   b ", {"a", "b"}},
        {R"(a\ b c)", {"a b", "c"}},
        {R"(a\ b\ c)", {"a b c"}},
        {R"("x y" z)", {"x y", "z"}},
        {R"(a "x y")", {"a", "x y"}},
        {R"("x""y")", {"x", "y"}},
        {R"("a\"b" c)", {"a\"b", "c"}},
        {R"("open)", {"open"}},
        {R"("" a)", {"a"}},
        {"\"x \t\r\n\" z", {"x ", "z"}},
        {R"(name="x y")", {"name=\"x", "y\""}},
        {"a\tb", {"a\tb"}},
    };
    for (Case const& c : cases) {
        EXPECT_EQ(Parameterize(c.commandLine), c.arguments) << c.commandLine;
    }
}

TEST(TextTest, ReplacesWithoutScanningTheReplacement) {
    EXPECT_EQ(ReplaceSubstring("aXbXX", "X", "XY"), "aXYbXYXY");
    EXPECT_EQ(ReplaceSubstring("aaa", "aa", "b"), "ba");
    EXPECT_EQ(ReplaceSubstring("abc", "", "x"), "abc");
}

TEST(TextTest, APrefixLeavesSomethingBehind) {
    EXPECT_FALSE(ContainsPrefix("abc", "abc"));
    EXPECT_TRUE(ContainsPrefix("abcd", "abc"));
    EXPECT_FALSE(ContainsPrefix("ab", "abc"));
    EXPECT_FALSE(ContainsPrefix("", ""));
    std::string text = "abcd";
    EXPECT_TRUE(RemovePrefix(text, "abc"));
    EXPECT_FALSE(RemovePrefix(text, "d"));
    EXPECT_EQ(text, "d");
}

TEST(TextTest, MovesThePieceToAPlaceCountedAfterItsErasure) {
    struct Case {
        char const* piece;
        std::size_t position;
        bool moved;
        char const* text;
    };
    Case const cases[] = {{"cd", 0, true, "cdabef"},
                          {"ab", 2, true, "cdabef"},
                          {"ab", 99, true, "cdefab"},
                          {"", 3, true, "abcdef"},
                          {"x", 0, false, "abcdef"}};
    for (Case const& c : cases) {
        std::string text = "abcdef";
        EXPECT_EQ(MoveSubstring(text, c.piece, c.position), c.moved);
        EXPECT_EQ(text, c.text);
    }
}

TEST(TextTest, TreatsBytesAboveAsciiAsUnsigned) {
    EXPECT_EQ(ToLower("AbC\xC3\x84"), "abc\xC3\x84");
    EXPECT_EQ(HexDump("A\n\xFF", 3), " 41 0a ff\n\tA..");
    EXPECT_EQ(HexDump("", 0), "\n\t");
}

TEST(PathTextTest, PicksPathsApart) {
    struct Case {
        char const* path;
        char const* directory;
        char const* fileName;
        char const* asDirectory;
        char const* asExecutable;
    };
    Case const cases[] = {
        {"", "./", "", "/", ".x"},
        {"name", "./", "name", "name/", "name.x"},
        {"/a/b.c", "/a/", "b.c", "/a/b.c/", "/a/b.c"},
        {"/a.d/b", "/a.d/", "b", "/a.d/b/", "/a.d/b"},
        {"/a/", "/a/", "", "/a/", "/a/.x"},
        {"a\\b", "a\\", "b", "a\\b/", "a\\b.x"},
        {"a/b\\c", "a/", "b\\c", "a/b\\c/", "a/b\\c.x"},
        {"a\\", "a\\", "", "a\\", "a\\.x"},
    };
    for (Case const& c : cases) {
        EXPECT_EQ(GetDirectoryOf(c.path), c.directory) << c.path;
        EXPECT_EQ(GetFileNameOf(c.path), c.fileName) << c.path;
        EXPECT_EQ(EnsureDirectoryPath(c.path), c.asDirectory) << c.path;
        EXPECT_EQ(EnsureExecutableExtension(c.path, ".x"), c.asExecutable) << c.path;
    }
    EXPECT_FALSE(IsFullPath("") || IsFullPath("a/b") || !IsFullPath("/"));
    EXPECT_TRUE(EndsInSlash("a\\") && EndsInSlash("a\\", '\\') && !EndsInSlash("a\\", '/') &&
                !EndsInSlash(""));
    EXPECT_EQ(GetBaseNameOf(".profile"), "");
    EXPECT_EQ(GetBaseNameOf("a.b.c"), "a.b");
    EXPECT_EQ(GetBaseNameOf("abc"), "abc");
}

}  // namespace
