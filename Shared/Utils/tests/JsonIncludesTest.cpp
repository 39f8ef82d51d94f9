#include "Utils/JsonIncludes.h"

#include "TestSupport/JsonText.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/JsonUtils.h"
#include "Utils/OSUtils.h"

namespace {

using vq::test::LogCapture;

/// Documents in a directory of their own, and a data root beside it.
class JsonIncludes : public testing::Test {
protected:
    void SetUp() override {
        for (std::string const& directory : {m_directory, m_directory + "parts", m_dataRoot}) {
            ASSERT_TRUE(CreateDirectoryPath(directory));
        }
        ::setenv("VQ_VDS_DATA", m_dataRoot.c_str(), 1);
    }

    static void Write(std::string const& path, std::string const& text) {
        std::ofstream(path, std::ios::binary) << text;
    }

    std::string const m_directory = vq::test::HomeDirectory() + "documents/";
    std::string const m_main = m_directory + "main.json";
    std::string const m_dataRoot = vq::test::HomeDirectory() + "data/";
    std::ostringstream m_errors;
    Json::Value m_root;
};

TEST_F(JsonIncludes, ExpandEverywhereAndMergeByTheirRules) {
    for (auto const& [name, text] : Rows<2>("JsonIncludes", "files")) {
        Write(m_directory + name, text);
    }
    for (auto const& [text, expanded] : Rows<2>("JsonIncludes", "expanded")) {
        Write(m_main, text);
        m_root = Json::Value();
        EXPECT_TRUE(GetJsonRootOfFile(m_main, m_root, m_errors)) << m_errors.str();
        EXPECT_EQ(m_root, Parse(expanded)) << text;
    }
}

TEST_F(JsonIncludes, FilesAreSoughtInTheDataRootAndThereByFileNameAlone) {
    Write(m_dataRoot + "shared.json", R"({ "Shared": 1 })");
    Write(m_main, R"({ "Includes": [ "gone/shared.json" ] })");
    LogCapture log(LogLevel::Verbose);
    ASSERT_TRUE(GetJsonRootOfFile(m_main, m_root, m_errors)) << m_errors.str();
    EXPECT_EQ(m_root, Parse(R"({ "Shared": 1 })"));
    std::string const second = "V Trying " + m_dataRoot + "gone/shared.json";
    EXPECT_THAT(log.Lines(),
                testing::IsSupersetOf({"V Trying " + m_directory + "gone/shared.json", second, second}));
    EXPECT_TRUE(log.Has(LogLevel::Verbose, "JSON content from " + m_main + ":\n"));
}

TEST_F(JsonIncludes, EveryProblemIsReportedAndNoneStopsTheWalk) {
    Write(m_directory + "broken.json", "{");
    Write(m_directory + "good.json", R"({ "Good": 1 })");
    Write(m_main, R"({ "Includes": [ 7, "absent.json", "broken.json", "good.json" ],
                       "Sub": { "Includes": "good.json" } })");
    LogCapture log;
    EXPECT_FALSE(GetJsonRootOfFile(m_main, m_root, m_errors));
    EXPECT_EQ(m_errors.str(), "Expected string for \"Includes\" key in " + m_main + ", got 7\n\n" +
                                  "Could not locate 'absent.json' for \"Includes\" key in " + m_main + "\n" +
                                  "Failed to load '" + m_directory + "broken.json'\n" +
                                  "Expected string array for \"Includes\" key in " + m_main + ".Sub\n");
    EXPECT_EQ(m_root, Parse(R"({ "Good": 1, "Sub": {} })"));
    ASSERT_EQ(log.Lines().size(), 1U);
    EXPECT_THAT(log.Lines()[0], HasSubstr("Failed to parse JSON file '" + m_directory + "broken.json'\n"));
}

TEST_F(JsonIncludes, AFileThatIncludesItselfIsAnErrorAndMayBeIncludedTwice) {
    std::string const back = m_directory + "back.json";
    Write(back, R"({ "Includes": [ "main.json", "./main.json" ], "Back": true })");
    Write(m_main, R"({ "A": { "Includes": [ "back.json" ] }, "B": { "Includes": [ "back.json" ] } })");
    LogCapture const log;
    EXPECT_FALSE(GetJsonRootOfFile(m_main, m_root, m_errors));
    EXPECT_EQ(m_errors.str(), "Failed to load '" + back + "'\nFailed to load '" + back + "'\n");
    EXPECT_TRUE(log.Has(LogLevel::Error,
                        "Failed to parse JSON file '" + m_main + "'\n'" + m_main + "' includes itself\n"));
    Write(back, R"({ "Back": true })");
    EXPECT_TRUE(GetJsonRootOfFile(m_main, m_root, m_errors));
    EXPECT_EQ(m_root, Parse(R"({ "A": { "Back": true }, "B": { "Back": true } })"));
}

TEST(JsonMerge, FollowsTheKindsOfBothSides) {
    for (auto const& [existing, included, result] : Rows<3>("JsonIncludes", "merge")) {
        bool const merged = result != kNone;
        Json::Value json = Parse(existing);
        std::ostringstream errors;
        EXPECT_EQ(MergeJsonIncludeContent("doc", Parse(included), json, errors), merged);
        EXPECT_EQ(json, Parse(merged ? result : existing));
        EXPECT_EQ(errors.str().empty(), merged);
        if (existing == "{}") {
            EXPECT_EQ(errors.str(), "doc: mismatched content (including '[\n\t1\n]', existing '{}')\n");
        }
    }
}

TEST_F(JsonIncludes, DocumentsThatCannotBeReadSayWhyAndLargeOnesAreWhole) {
    LogCapture log;
    EXPECT_EQ(JsonFileToString(m_directory + "absent.json"), "");
    Write(m_main, "");
    EXPECT_EQ(JsonFileToString(m_main), "");
    EXPECT_EQ(JsonFileToString(m_directory), "") << "a directory reads as nothing";
    EXPECT_EQ(log.Lines(), (Lines{"E Failed to open " + m_directory + "absent.json"}));
    EXPECT_FALSE(GetJsonRootOfFile(m_main, m_root, m_errors));
    EXPECT_EQ(m_errors.str(), "");
    EXPECT_FALSE(GetJsonRootOfString("{\"a\" 1}", m_root, m_errors));
    EXPECT_FALSE(GetJsonRootOfString(std::string(1500, '['), m_root, m_errors));
    EXPECT_THAT(m_errors.str(), AllOf(HasSubstr("Missing ':'"), HasSubstr("stackLimit")));

    std::string const text = "\"" + std::string(3 * 16 * 1024 - 2, 'x') + "\"";
    Write(m_main, text);
    EXPECT_EQ(JsonFileToString(m_main), text);
}

}  // namespace
