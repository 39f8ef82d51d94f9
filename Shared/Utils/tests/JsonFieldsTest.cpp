#include "Utils/JsonFields.h"

#include "TestSupport/LogCapture.h"
#include "Utils/JsonUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vq::test::LogCapture;

Json::Value Parse(std::string const& text) {
    Json::Value root;
    std::string errors;
    EXPECT_TRUE(ParseJson(text, root, errors)) << errors;
    return root;
}

std::string OneLine(LogCapture const& log) {
    std::string lines;
    for (std::string const& line : log.Lines()) {
        lines += (lines.empty() ? "" : "|") + line;
    }
    return lines;
}

TEST(JsonFields, IntsAreReadFromWhatHoldsOne) {
    struct Case {
        char const* json;
        bool found;
        int value;
        char const* line;
    };
    char const* const notAnInt = "E F field is not an int";
    char const* const truncates =
        "E F field contains a double instead of an int, value will not convert without truncation";
    for (Case const& row : std::vector<Case>{
             {"null", false, 0, ""},
             {"-7", true, -7, ""},
             {"2147483647", true, 2147483647, ""},
             {"2147483648", false, 0, notAnInt},
             {"-3000000000", false, 0, notAnInt},
             {"3.0", true, 3,
              "W F field contains a double instead of an int but value converts without truncation"},
             {"3.5", false, 0, truncates},
             {"1e20", false, 0, truncates},
             {"\"12x\"", true, 12, ""},
             {"\"x\"", false, 0, "E F field string does not contain an int"},
             {"\"99999999999\"", false, 0, "E F field string does not contain an int"},
             {"true", false, 0, notAnInt},
             {"[1]", false, 0, notAnInt},
         }) {
        LogCapture log;
        int value = 99;
        EXPECT_EQ(TryGetIntField(Parse(row.json), "F", value), row.found) << row.json;
        EXPECT_EQ(value, row.value) << row.json;
        EXPECT_EQ(OneLine(log), row.line) << row.json;
    }
}

TEST(JsonFields, DoublesAreReadFromWhatHoldsOne) {
    struct Case {
        char const* json;
        bool found;
        double value;
        char const* line;
    };
    for (Case const& row : std::vector<Case>{
             {"null", false, 0, ""},
             {"3", true, 3, ""},
             {"18446744073709551615", true, 18446744073709551615.0, ""},
             {"0.5", true, 0.5, ""},
             {"\"2.5km\"", true, 2.5, ""},
             {"\"km\"", false, 0, "E F field string does not contain a double"},
             {"false", false, 0, "E F field is not a double"},
             {"{}", false, 0, "E F field is not a double"},
         }) {
        LogCapture log;
        double value = 99;
        EXPECT_EQ(TryGetDoubleField(Parse(row.json), "F", value), row.found) << row.json;
        EXPECT_EQ(value, row.value) << row.json;
        EXPECT_EQ(OneLine(log), row.line) << row.json;
    }
}

TEST(JsonFields, GetFormsAddALineAndDefaultsReplaceWhatFails) {
    LogCapture log;
    int number = 99;
    double real = 99;
    bool flag = true;
    EXPECT_FALSE(GetIntField(Json::Value(), "I", number));
    EXPECT_FALSE(GetDoubleField(Json::Value("x"), "D", real));
    EXPECT_FALSE(GetBoolField(Json::Value("true"), "B", flag));
    EXPECT_EQ(number, 0);
    EXPECT_EQ(real, 0);
    EXPECT_FALSE(flag);
    EXPECT_THAT(log.Lines(),
                ElementsAre("E I field does not exist", "E D field string does not contain a double",
                            "E D field does not exist", "E B field does not exist"));
    log.Clear();
    EXPECT_EQ(GetIntFieldWithDefault(Json::Value(), "I", 5), 5);
    EXPECT_EQ(GetDoubleFieldWithDefault(Json::Value(), "D", 5), 5);
    EXPECT_TRUE(GetBoolFieldWithDefault(Json::Value("no"), "B", true));
    EXPECT_FALSE(GetBoolFieldWithDefault(Json::Value(false), "B", true));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(JsonFields, StringMembersMayBeOptionalButNeverOfAnotherKind) {
    Json::Value const object = Parse(R"({ "s": "text", "n": 1 })");
    struct Case {
        char const* key;
        bool optional;
        bool result;
        char const* value;
        char const* line;
    };
    for (Case const& row : std::vector<Case>{
             {"s", false, true, "text", ""},
             {"x", true, true, "fallback", ""},
             {"x", false, false, "fallback", "E expected string for P.x field"},
             {"n", true, false, "fallback", "E expected string for P.n field"},
         }) {
        LogCapture log;
        std::string text;
        EXPECT_EQ(TryGetStringField("P", object, row.key, text, row.optional, "fallback"), row.result);
        EXPECT_EQ(text, row.value);
        EXPECT_EQ(OneLine(log), row.line);
    }
    LogCapture log;
    std::string text = "old";
    EXPECT_FALSE(TryGetStringField("S", Json::Value(1), text));
    EXPECT_EQ(text, "");
    EXPECT_FALSE(TryGetStringField("P", Parse("[1]"), "k", text, false, ""));
    EXPECT_THAT(log.Lines(), ElementsAre("E expected string for S field", "E expected string for P.k field"));
}

}  // namespace
