#include "Utils/JsonIncludes.h"

#include "TestSupport/LogCapture.h"
#include "TestSupport/TestHome.h"
#include "Utils/JsonUtils.h"
#include "Utils/OSUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vq::test::LogCapture;

Json::Value Parse(std::string const& text) {
    Json::Value root;
    std::string errors;
    EXPECT_TRUE(ParseJson(text, root, errors)) << errors;
    return root;
}

/// Documents in a directory of their own, and a data root beside it.
class JsonIncludes : public testing::Test {
protected:
    void SetUp() override {
        for (std::string const& directory : {m_directory, m_directory + "parts", m_dataRoot}) {
            ASSERT_TRUE(CreateDirectoryPath(directory));
        }
        ::setenv("VQ_VDS_DATA", m_dataRoot.c_str(), 1);
    }

    std::string Write(std::string const& path, std::string const& text) {
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    /// Loads the text as "main.json".
    bool Load(std::string const& text) {
        m_errors.str("");
        return GetJsonRootOfFile(Write(m_directory + "main.json", text), m_root, m_errors);
    }

    std::string const m_directory = vq::test::HomeDirectory() + "documents/";
    std::string const m_dataRoot = vq::test::HomeDirectory() + "data/";
    std::ostringstream m_errors;
    Json::Value m_root;
};

TEST_F(JsonIncludes, TheIncluderWinsScalarsAndIncludedElementsComeBehind) {
    Write(m_directory + "base.json", R"({ "Rate": 9, "Name": "x", "Tags": [ "b" ] })");
    ASSERT_TRUE(Load(R"({ "Includes": [ "base.json" ], "Rate": 5, "Tags": [ "a" ] })")) << m_errors.str();
    EXPECT_EQ(m_root, Parse(R"({ "Name": "x", "Rate": 5, "Tags": [ "a", "b" ] })"));
}

TEST_F(JsonIncludes, OfTwoIncludesTheFirstWinsAndObjectsMergeInDepth) {
    Write(m_directory + "one.json", R"({ "A": { "x": 1 }, "B": 1 })");
    Write(m_directory + "two.json", R"({ "A": { "x": 2, "y": 2 }, "B": 2, "C": 2 })");
    ASSERT_TRUE(Load(R"({ "Includes": [ "one.json", "two.json" ] })")) << m_errors.str();
    EXPECT_EQ(m_root, Parse(R"({ "A": { "x": 1, "y": 2 }, "B": 1, "C": 2 })"));
}

TEST_F(JsonIncludes, ExpandInsideArraysAndRelativeToTheIncludedDocument) {
    Write(m_directory + "parts/outer.json", R"({ "Outer": true, "Includes": [ "inner.json" ] })");
    Write(m_directory + "parts/inner.json", R"({ "Inner": true })");
    ASSERT_TRUE(Load(R"([ { "Includes": [ "parts/outer.json" ] }, { "Includes": [] } ])")) << m_errors.str();
    EXPECT_EQ(m_root, Parse(R"([ { "Inner": true, "Outer": true }, {} ])"));
}

TEST_F(JsonIncludes, FilesAreSoughtInTheDataRootAndThereByFileNameAlone) {
    Write(m_dataRoot + "shared.json", R"({ "Shared": 1 })");
    LogCapture log(LogLevel::Verbose);
    ASSERT_TRUE(Load(R"({ "Includes": [ "gone/shared.json" ] })")) << m_errors.str();
    EXPECT_EQ(m_root, Parse(R"({ "Shared": 1 })"));
    std::string const second = "V Trying " + m_dataRoot + "gone/shared.json";
    EXPECT_THAT(log.Lines(),
                testing::IsSupersetOf({"V Trying " + m_directory + "gone/shared.json", second, second}));
    EXPECT_TRUE(log.Has(LogLevel::Verbose, "JSON content from " + m_directory + "main.json:\n"));
}

TEST_F(JsonIncludes, EveryProblemIsReportedAndNoneStopsTheWalk) {
    Write(m_directory + "broken.json", "{");
    Write(m_directory + "good.json", R"({ "Good": 1 })");
    LogCapture log;
    EXPECT_FALSE(Load(R"({ "Includes": [ 7, "absent.json", "broken.json", "good.json" ],
                           "Sub": { "Includes": "good.json" } })"));
    std::string const path = m_directory + "main.json";
    EXPECT_EQ(m_errors.str(), "Expected string for \"Includes\" key in " + path + ", got 7\n\n" +
                                  "Could not locate 'absent.json' for \"Includes\" key in " + path + "\n" +
                                  "Failed to load '" + m_directory + "broken.json'\n" +
                                  "Expected string array for \"Includes\" key in " + path + ".Sub\n");
    EXPECT_EQ(m_root, Parse(R"({ "Good": 1, "Sub": {} })"));
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_THAT(log.Lines()[0], HasSubstr("Failed to parse JSON file '" + m_directory + "broken.json'\n"));
}

TEST_F(JsonIncludes, AnIncludedScalarTakesAnObjectsPlaceAndEndsItsExpansion) {
    Write(m_directory + "scalar.json", "9");
    ASSERT_TRUE(Load(R"({ "Sub": { "Includes": [ "scalar.json" ], "Zoo": { "Includes": [] } } })"));
    EXPECT_EQ(m_root, Parse(R"({ "Sub": 9 })"));
}

TEST(JsonMerge, FollowsTheKindsOfBothSides) {
    struct Case {
        char const* existing;
        char const* included;
        char const* result;  // null: refused
    };
    for (Case const& row : std::vector<Case>{
             {R"({"Rate":{"Max":1}})", R"({"Rate":9})", R"({"Rate":9})"},
             {R"([1])", "2", "2"},
             {"null", "[1]", "[1]"},
             {"1", R"({"a":2})", "1"},
             {"[1]", "[2,3]", "[1,2,3]"},
             {R"({"a":[1]})", R"({"a":{"b":1}})", nullptr},
             {"{}", "[]", nullptr},
         }) {
        Json::Value existing = Parse(row.existing);
        std::ostringstream errors;
        EXPECT_EQ(MergeJsonIncludeContent("doc", Parse(row.included), existing, errors),
                  row.result != nullptr);
        EXPECT_EQ(existing, Parse(row.result != nullptr ? row.result : row.existing));
        EXPECT_EQ(errors.str().empty(), row.result != nullptr);
    }
    Json::Value existing(Json::objectValue);
    std::ostringstream errors;
    EXPECT_FALSE(MergeJsonIncludeContent("doc", Parse("[1]"), existing, errors));
    EXPECT_EQ(errors.str(), "doc: mismatched content (including '[\n\t1\n]', existing '{}')\n");
}

TEST(JsonDocuments, ThatCannotBeReadSayWhy) {
    LogCapture log;
    std::string const home = vq::test::HomeDirectory();
    EXPECT_EQ(JsonFileToString(home + "absent.json"), "");
    EXPECT_THAT(log.Lines(), ElementsAre("E Failed to open " + home + "absent.json"));
    log.Clear();
    std::ofstream(home + "empty.json").flush();
    EXPECT_EQ(JsonFileToString(home + "empty.json"), "");
    EXPECT_EQ(JsonFileToString(home), "") << "a directory reads as nothing";
    EXPECT_THAT(log.Lines(), IsEmpty());

    Json::Value root;
    std::ostringstream errors;
    EXPECT_FALSE(GetJsonRootOfFile(home + "empty.json", root, errors));
    EXPECT_EQ(errors.str(), "");
    EXPECT_FALSE(GetJsonRootOfString("{\"a\" 1}", root, errors));
    EXPECT_THAT(errors.str(), HasSubstr("Missing ':'"));
    errors.str("");
    EXPECT_FALSE(GetJsonRootOfString(std::string(1500, '['), root, errors));
    EXPECT_THAT(errors.str(), HasSubstr("stackLimit"));
}

TEST(JsonDocuments, LargerThanOneReadAreWhole) {
    std::string const path = vq::test::HomeDirectory() + "large.json";
    std::string const text = "\"" + std::string(3 * 16 * 1024 - 2, 'x') + "\"";
    std::ofstream(path, std::ios::binary) << text;
    EXPECT_EQ(JsonFileToString(path), text);
}

}  // namespace
