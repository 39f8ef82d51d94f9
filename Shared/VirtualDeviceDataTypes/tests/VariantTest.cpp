#include "DataTypes/PropertyInfo.h"
#include "DataTypes/PropertyType.h"
#include "DataTypes/VariantUtils.h"
#include "JsonText.h"
#include "TestSupport/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vq::cfg::Variant;
using vq::test::LogCapture;

std::string CaseOf(Variant const& value) {
    return ConvertVariantValueCaseToString(value.value_case());
}

struct JsonCase {
    char const* json;
    char const* valueCase;
    char const* text;  // quoted
    char const* back;  // as JSON again; null when it is the same as `json`
};

void PrintTo(JsonCase const& row, std::ostream* out) {
    *out << row.json;
}

class JsonValues : public testing::TestWithParam<JsonCase> {};

TEST_P(JsonValues, BecomeVariantsTextsAndJsonAgain) {
    JsonCase const& row = GetParam();
    Variant value;
    ASSERT_TRUE(ConvertJsonToVariant("v", Parse(row.json), value));
    EXPECT_EQ(CaseOf(value), row.valueCase);
    EXPECT_EQ(ConvertVariantToString(value, true), row.text);
    Json::Value back;
    ASSERT_TRUE(ConvertVariantToJson(value, back));
    // As text, since a signed and an unsigned number of one value don't compare equal.
    EXPECT_EQ(back.toStyledString(), Parse(row.back != nullptr ? row.back : row.json).toStyledString());
}

INSTANTIATE_TEST_SUITE_P(
    Variants, JsonValues,
    testing::Values(JsonCase{"7", "integer", "7", nullptr},
                    JsonCase{"-3000000000", "integer", "-3000000000", nullptr},
                    JsonCase{"4294967296", "integer", "4294967296", nullptr},
                    JsonCase{"9223372036854775808", "integer", "-9223372036854775808",
                             "-9223372036854775808"},
                    JsonCase{"3.0", "float", "3", nullptr}, JsonCase{"1e9", "float", "1e+09", nullptr},
                    JsonCase{R"("a\"b")", "string", R"("a"b")", nullptr},
                    JsonCase{"true", "boolean", "true", nullptr}, JsonCase{"[]", "stringList", "[]", nullptr},
                    JsonCase{R"(["a", "b"])", "stringList", "[a, b]", nullptr},
                    JsonCase{"[1, 9007199254740993]", "integerList", "[1, 9007199254740993]", nullptr},
                    JsonCase{"[1, 2.5, 3]", "floatList", "[1, 2.5, 3]", "[1.0, 2.5, 3.0]"},
                    JsonCase{"[2.5, 1]", "floatList", "[2.5, 1]", "[2.5, 1.0]"},
                    JsonCase{"[true, false]", "booleanList", "[true, false]", nullptr},
                    JsonCase{R"({"mode": "fast", "gains": [1, 2.5], "rate": 3})", "namedMap",
                             R"({"gains": [1, 2.5], "mode": "fast", "rate": 3})",
                             R"({"mode": "fast", "gains": [1.0, 2.5], "rate": 3})"},
                    JsonCase{R"([{"a": {"b": [1]}}, {"c": 2}])", "namedMapList",
                             R"([{"a": {"b": [1]}}, {"c": 2}])", nullptr}));

TEST(JsonToVariant, RefusesWithThePathOfTheBadElement) {
    struct Case {
        char const* json;
        char const* line;
    };
    for (Case const& row : std::vector<Case>{
             {"null", "E v cannot contain null value"},
             {R"({"a": [{"b": null}]})", "E v.a.0.b cannot contain null value"},
             {"[1, \"a\", null]", "E v.2 cannot contain null value"},
             {"[1, \"a\"]", "E Array in v must have homogenous elements"},
             {"[1.5, 2, true]", "E Array in v must have homogenous elements"},
             {R"([{"a": 1}, {}])", "E Array in v must have homogenous elements"},
             {"[[1], [2]]", "E Array in v must consist of scalar elements (not lists)"},
             {"[[], []]", "E Array in v must consist of scalar elements (not lists)"},
             {R"([[{"a": 1}], [{"a": 2}]])", "E Unexpected value in v"},
             {"[{}, {}]", "E Unexpected value in v"},
             {R"({"list": [[1], ["a"]]})", "E Array in v.list must have homogenous elements"},
         }) {
        LogCapture log;
        Variant value;
        EXPECT_FALSE(ConvertJsonToVariant("v", Parse(row.json), value)) << row.json;
        EXPECT_THAT(log.Lines(), ElementsAre(row.line)) << row.json;
    }
}

TEST(JsonToVariant, LeavesAnEmptyObjectUnset) {
    LogCapture log;
    Variant value;
    EXPECT_TRUE(ConvertJsonToVariant("v", Parse("{}"), value));
    EXPECT_EQ(value.value_case(), Variant::VALUE_NOT_SET);
    EXPECT_EQ(ConvertVariantToString(value, true), "(not set)");
    Json::Value json;
    EXPECT_FALSE(ConvertVariantToJson(value, json));
    EXPECT_TRUE(ConvertJsonToVariant("v", Parse(R"({"sub": {}})"), value));
    EXPECT_TRUE(value.IsInitialized()) << "the entry has its required value, though an empty one";
    EXPECT_FALSE(ConvertVariantToJson(value, json)) << "one bad entry fails the whole";
    EXPECT_EQ(log.Count(LogLevel::Error, "Unexpected variant type 0 not processed"), 2U);
}

/// Types to coerce to.
PropertyInfo MakeInfo() {
    PropertyInfo info;
    auto color = std::make_unique<vq::cfg::Enumeration>();
    color->set_name("Color");
    color->add_enumerants()->set_name("Red");
    info.enumerations.Add("Color", std::move(color));
    for (auto const& [name, base] : {std::pair("Percent", "float"), std::pair("Paint", "Color")}) {
        auto type = std::make_unique<vq::cfg::SimpleType>();
        type->set_name(name);
        type->set_base_type(base);
        info.simpleTypes.Add(name, std::move(type));
    }
    return info;
}

struct CoercionCase {
    char const* json;
    char const* type;
    bool result;
    char const* valueCase;
    char const* text;
    char const* line;
};

void PrintTo(CoercionCase const& row, std::ostream* out) {
    *out << row.json << " to " << row.type;
}

class Coercion : public testing::TestWithParam<CoercionCase> {};

TEST_P(Coercion, BringsAValueToItsTypeOrSaysNo) {
    CoercionCase const& row = GetParam();
    Variant value;
    ASSERT_TRUE(ConvertJsonToVariant("v", Parse(row.json), value));
    LogCapture log;
    EXPECT_EQ(CoerceVariantToType(value, row.type, MakeInfo()), row.result);
    EXPECT_EQ(CaseOf(value), row.valueCase);
    EXPECT_EQ(ConvertVariantToString(value, false), row.text);
    if (row.line[0] == '\0') {
        EXPECT_THAT(log.Lines(), IsEmpty());
    } else {
        ASSERT_EQ(log.Records().size(), 1U);
        EXPECT_THAT(log.Lines()[0], testing::StartsWith(row.line));
        EXPECT_TRUE(log.Records()[0].plain);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Variants, Coercion,
    testing::Values(
        CoercionCase{R"("y")", "boolean", true, "boolean", "true", ""},
        CoercionCase{R"("0")", "boolean", true, "boolean", "false", ""},
        CoercionCase{R"("Yes")", "boolean", false, "string", "Yes", "E Unexpected value for boolean: Yes"},
        CoercionCase{R"("-12")", "integer", true, "integer", "-12", ""},
        CoercionCase{R"("12abc")", "integer", false, "integer", "12",
                     "E Unexpected value for integer: 12abc"},
        CoercionCase{R"("2.5")", "Percent", true, "float", "2.5", ""},
        CoercionCase{R"("2.5%")", "Percent", false, "float", "2.5", "E Unexpected value for float: 2.5%"},
        CoercionCase{R"("x")", "any", true, "string", "x", ""},
        CoercionCase{R"("x")", "string", true, "string", "x", ""},
        CoercionCase{R"("RED")", "Color", true, "string", "Red", ""},
        CoercionCase{R"("RED")", "Paint", true, "string", "Red", ""},
        CoercionCase{R"("blue")", "Color", false, "string", "blue",
                     "E Unrecognized enumerant 'blue' for 'Color'"},
        CoercionCase{R"("[1, 2]")", "vec3", true, "integerList", "[1, 2]", ""},
        CoercionCase{R"("{}")", "namedMap", true, "string", "{}", ""},
        CoercionCase{R"("[1,")", "vec3", false, "string", "[1,", "E Failed to convert from string: "},
        CoercionCase{"5", "Percent", true, "float", "5", ""},
        CoercionCase{"[1, 2]", "rgb", true, "floatList", "[1, 2]", ""},
        CoercionCase{R"({"a": 1})", "namedMap", true, "namedMap", R"({"a": 1})", ""},
        CoercionCase{R"([{"a": 1}])", "namedMapList", true, "namedMapList", R"([{"a": 1}])", ""},
        CoercionCase{"2.5", "integer", false, "float", "2.5", ""},
        CoercionCase{"[]", "floatList", true, "floatList", "[]", ""},
        CoercionCase{"[]", "quat", true, "floatList", "[1, 0, 0, 0]", ""},
        CoercionCase{"[]", "integer", true, "integer", "0", ""},
        CoercionCase{"[true]", "floatList", false, "booleanList", "[true]", ""},
        CoercionCase{"7", "keyOrButton", true, "integer", "7", ""}));

TEST(CoercionOfText, ThrowsWithoutALeadingNumberAndTheTryFormDoesNot) {
    PropertyInfo const info = MakeInfo();
    Variant value;
    EXPECT_THROW(ConvertStringToVariant("integer", "abc", info, value), std::invalid_argument);
    EXPECT_EQ(value.string_value(), "abc");
    EXPECT_THROW(ConvertStringToVariant("float", "1e400", info, value), std::out_of_range);
    EXPECT_FALSE(TryCoerceVariantToType(value, "float", info));
}

TEST(Variants, GiveFloatsOrTheFallback) {
    LogCapture log;
    Variant value;
    EXPECT_EQ(GetVariantFloat("n", value, 9), 9);
    value.set_integer_value(3);
    EXPECT_EQ(GetVariantFloat("n", value, 9), 3);
    value.set_float_value(2.5F);
    EXPECT_EQ(GetVariantFloat("n", value, 9), 2.5F);
    EXPECT_THAT(log.Lines(), ElementsAre("W Expected float or integer for 'n', got type 0"));
}

TEST(PropertyTypes, HaveDefaultsOfTheirCase) {
    struct Case {
        char const* type;
        char const* text;  // null: no default
    };
    for (Case const& row : std::vector<Case>{
             {"boolean", "false"},
             {"integer", "0"},
             {"float", "0"},
             {"string", ""},
             {"booleanList", "[]"},
             {"namedMap", "{}"},
             {"point2", "[0, 0]"},
             {"rgb", "[0, 0, 0]"},
             {"vec4", "[0, 0, 0, 0]"},
             {"quat", "[1, 0, 0, 0]"},
             {"rgba", "[0, 0, 0, 1]"},
             {"any", nullptr},
             {"analogInput", nullptr},
             {"", nullptr},
         }) {
        Variant value;
        EXPECT_EQ(GetPropertyTypeDefaultValue(row.type, value), row.text != nullptr) << row.type;
        if (row.text != nullptr) {
            EXPECT_EQ(ConvertVariantToString(value, false), row.text) << row.type;
        }
    }
}

TEST(PropertyTypes, AnyIsKnownButNotBuiltInAndBooleanListTheReverse) {
    EXPECT_TRUE(PropertyType::IsKnownType("any"));
    EXPECT_FALSE(PropertyType::IsBuiltinType("any"));
    EXPECT_FALSE(PropertyType::IsKnownType("booleanList"));
    EXPECT_TRUE(PropertyType::IsBuiltinType("booleanList"));
    PropertyInfo const info = MakeInfo();
    for (char const* const name : {"any", "booleanList", "quat", "Color", "Percent"}) {
        EXPECT_TRUE(info.IsKnownType(name)) << name;
    }
    EXPECT_FALSE(info.IsKnownType("Colour"));
}

}  // namespace
