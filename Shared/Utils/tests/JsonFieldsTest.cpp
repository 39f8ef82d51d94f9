#include "Utils/JsonFields.h"

#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "Utils/JsonUtils.h"

namespace {

using vq::test::LogCapture;

Json::Value Parse(std::string const& text) {
    Json::Value root;
    std::string errors;
    EXPECT_TRUE(ParseJson(text, root, errors)) << errors;
    return root;
}

Lines LineOrNone(std::string const& line) {
    return line.empty() ? Lines{} : Lines{line};
}

TEST(JsonFields, NumbersAreReadFromWhatHoldsOne) {
    struct Case {
        char const* json;
        bool isInt;
        int integer;
        char const* intLine;
        bool isDouble;
        double real;
        char const* doubleLine;
    };
    std::string const truncates =
        "E F field contains a double instead of an int, value will not convert without truncation";
    char const* const noInt = "E F field is not an int";
    char const* const noIntText = "E F field string does not contain an int";
    char const* const noDouble = "E F field is not a double";
    for (Case const& c : {
             Case{"null", false, 0, "", false, 0, ""},
             {"-7", true, -7, "", true, -7, ""},
             {"2147483647", true, 2147483647, "", true, 2147483647, ""},
             {"2147483648", false, 0, noInt, true, 2147483648, ""},
             {"-3000000000", false, 0, noInt, true, -3000000000, ""},
             {"18446744073709551615", false, 0, noInt, true, 18446744073709551615.0, ""},
             {"3.0", true, 3,
              "W F field contains a double instead of an int but value converts without truncation", true, 3,
              ""},
             {"3.5", false, 0, truncates.c_str(), true, 3.5, ""},
             {"1e20", false, 0, truncates.c_str(), true, 1e20, ""},
             {"\"12x\"", true, 12, "", true, 12, ""},
             {"\"2.5km\"", true, 2, "", true, 2.5, ""},
             {"\"x\"", false, 0, noIntText, false, 0, "E F field string does not contain a double"},
             {"\"99999999999\"", false, 0, noIntText, true, 99999999999, ""},
             {"true", false, 0, noInt, false, 0, noDouble},
             {"[1]", false, 0, noInt, false, 0, noDouble},
         }) {
        LogCapture log;
        int integer = 99;
        EXPECT_EQ(TryGetIntField(Parse(c.json), "F", integer), c.isInt) << c.json;
        EXPECT_EQ(integer, c.integer) << c.json;
        EXPECT_EQ(log.Lines(), LineOrNone(c.intLine)) << c.json;
        log.Clear();
        double real = 99;
        EXPECT_EQ(TryGetDoubleField(Parse(c.json), "F", real), c.isDouble) << c.json;
        EXPECT_EQ(real, c.real) << c.json;
        EXPECT_EQ(log.Lines(), LineOrNone(c.doubleLine)) << c.json;
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
    EXPECT_FALSE(TryGetStringField("S", Json::Value(1), text));
    EXPECT_EQ(text, "");
    EXPECT_EQ(log.Lines(), (Lines{"E expected string for S field"}));
}

}  // namespace
