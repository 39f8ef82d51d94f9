#include "Utils/JsonFields.h"

#include "TestSupport/JsonText.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/JsonUtils.h"

namespace {

using vq::test::LogCapture;

Lines LineOrNone(std::string const& line) {
    return line.empty() ? Lines{} : Lines{line};
}

TEST(JsonFields, NumbersAreReadFromWhatHoldsOne) {
    for (auto const& [json, isInt, integer, intLine, isDouble, real, doubleLine] :
         Rows<7>("JsonFields", "numbers")) {
        LogCapture log;
        int asInt = 99;
        EXPECT_EQ(TryGetIntField(Parse(json), "F", asInt), isInt == "true") << json;
        EXPECT_EQ(asInt, std::stoi(integer)) << json;
        EXPECT_EQ(log.Lines(), LineOrNone(intLine)) << json;
        log.Clear();
        double asDouble = 99;
        EXPECT_EQ(TryGetDoubleField(Parse(json), "F", asDouble), isDouble == "true") << json;
        EXPECT_EQ(asDouble, std::stod(real)) << json;
        EXPECT_EQ(log.Lines(), LineOrNone(doubleLine)) << json;
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
    EXPECT_TRUE(number == 0 && real == 0 && !flag);
    EXPECT_EQ(log.Lines(), (Lines{"E I field does not exist", "E D field string does not contain a double",
                                  "E D field does not exist", "E B field does not exist"}));
    log.Clear();
    EXPECT_EQ(GetIntFieldWithDefault(Json::Value(), "I", 5), 5);
    EXPECT_EQ(GetDoubleFieldWithDefault(Json::Value(), "D", 5), 5);
    EXPECT_TRUE(GetBoolFieldWithDefault(Json::Value("no"), "B", true));
    EXPECT_FALSE(GetBoolFieldWithDefault(Json::Value(false), "B", true));
    EXPECT_EQ(log.Lines(), Lines{});
}

TEST(JsonFields, StringMembersMayBeOptionalButNeverOfAnotherKind) {
    struct Case {
        char const *object, *key;
        bool optional, result;
        char const *value, *line;
    };
    char const* const object = R"({ "s": "text", "n": 1 })";
    for (Case const& c : {Case{object, "s", false, true, "text", ""},
                          {object, "x", true, true, "fallback", ""},
                          {object, "x", false, false, "fallback", "E expected string for P.x field"},
                          {object, "n", true, false, "fallback", "E expected string for P.n field"},
                          {"[1]", "k", false, false, "fallback", "E expected string for P.k field"}}) {
        LogCapture log;
        std::string text;
        EXPECT_EQ(TryGetStringField("P", Parse(c.object), c.key, text, c.optional, "fallback"), c.result);
        EXPECT_EQ(text, c.value);
        EXPECT_EQ(log.Lines(), LineOrNone(c.line));
    }
    LogCapture log;
    std::string text = "old";
    EXPECT_TRUE(TryGetStringField("S", Json::Value("new"), text) && text == "new");
    EXPECT_FALSE(TryGetStringField("S", Json::Value(1), text));
    EXPECT_EQ(text, "");
    EXPECT_EQ(log.Lines(), (Lines{"E expected string for S field"}));
}

}  // namespace
