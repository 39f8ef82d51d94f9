#include "DataTypes/PropertyInfo.h"
#include "DataTypes/PropertyType.h"
#include "DataTypes/VariantUtils.h"
#include "JsonText.h"
#include "TestSupport/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace {

using testing::ElementsAre;
using vq::cfg::Variant;
using vq::test::LogCapture;

std::string CaseOf(Variant const& value) {
    return ConvertVariantValueCaseToString(value.value_case());
}

template <class... Columns>
using Table = std::vector<std::tuple<Columns...>>;
using Text = char const*;

TEST(JsonValues, BecomeVariantsTextsAndJsonAgain) {
    for (auto const& [json, valueCase, quoted, back] : Table<Text, Text, Text, Text>{
             {"7", "integer", "7", "7"},
             {"-3000000000", "integer", "-3000000000", "-3000000000"},
             {"4294967296", "integer", "4294967296", "4294967296"},
             {"9223372036854775808", "integer", "-9223372036854775808", "-9223372036854775808"},
             {"3.0", "float", "3", "3.0"},
             {"1e9", "float", "1e+09", "1e9"},
             {R"("a\"b")", "string", R"("a"b")", R"("a\"b")"},
             {"true", "boolean", "true", "true"},
             {"[]", "stringList", "[]", "[]"},
             {R"(["a", "b"])", "stringList", "[a, b]", R"(["a", "b"])"},
             {"[1, 9007199254740993]", "integerList", "[1, 9007199254740993]", "[1, 9007199254740993]"},
             {"[1, 2.5, 3]", "floatList", "[1, 2.5, 3]", "[1.0, 2.5, 3.0]"},
             {"[true, false]", "booleanList", "[true, false]", "[true, false]"},
             {R"({"mode": "fast", "gains": [1, 2.5], "rate": 3})", "namedMap",
              R"({"gains": [1, 2.5], "mode": "fast", "rate": 3})",
              R"({"mode": "fast", "gains": [1.0, 2.5], "rate": 3})"},
             {R"([{"a": {"b": [1]}}, {"c": 2}])", "namedMapList", R"([{"a": {"b": [1]}}, {"c": 2}])",
              R"([{"a": {"b": [1]}}, {"c": 2}])"}}) {
        Variant value;
        ASSERT_TRUE(ConvertJsonToVariant("v", Parse(json), value)) << json;
        EXPECT_EQ(CaseOf(value), valueCase) << json;
        EXPECT_EQ(ConvertVariantToString(value, true), quoted) << json;
        Json::Value again;
        ASSERT_TRUE(ConvertVariantToJson(value, again));
        // As text, since a signed and an unsigned number of one value don't compare equal.
        EXPECT_EQ(again.toStyledString(), Parse(back).toStyledString());
    }
}

TEST(JsonToVariant, RefusesWithThePathOfTheBadElement) {
    for (auto const& [json, line] : Table<Text, Text>{
             {"null", "E v cannot contain null value"},
             {R"({"a": [{"b": null}]})", "E v.a.0.b cannot contain null value"},
             {"[1, \"a\", null]", "E v.2 cannot contain null value"},
             {"[1.5, 2, true]", "E Array in v must have homogenous elements"},
             {R"([{"a": 1}, {}])", "E Array in v must have homogenous elements"},
             {"[[], []]", "E Array in v must consist of scalar elements (not lists)"},
             {R"([[{"a": 1}], [{"a": 2}]])", "E Unexpected value in v"},
             {"[{}, {}]", "E Unexpected value in v"},
             {R"({"list": [[1], ["a"]]})", "E Array in v.list must have homogenous elements"}}) {
        LogCapture log;
        Variant value;
        EXPECT_FALSE(ConvertJsonToVariant("v", Parse(json), value)) << json;
        EXPECT_THAT(log.Lines(), ElementsAre(line)) << json;
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

TEST(Coercion, BringsAValueToItsTypeOrSaysNo) {
    for (auto const& [json, type, result, valueCase, text, line] : Table<Text, Text, bool, Text, Text, Text>{
             {R"("y")", "boolean", true, "boolean", "true", ""},
             {R"("0")", "boolean", true, "boolean", "false", ""},
             {R"("Yes")", "boolean", false, "string", "Yes", "E Unexpected value for boolean: Yes"},
             {R"("-12")", "integer", true, "integer", "-12", ""},
             {R"("12abc")", "integer", false, "integer", "12", "E Unexpected value for integer: 12abc"},
             {R"("2.5")", "Percent", true, "float", "2.5", ""},
             {R"("2.5%")", "Percent", false, "float", "2.5", "E Unexpected value for float: 2.5%"},
             {R"("x")", "any", true, "string", "x", ""},
             {R"("x")", "string", true, "string", "x", ""},
             {R"("RED")", "Paint", true, "string", "Red", ""},
             {R"("blue")", "Color", false, "string", "blue", "E Unrecognized enumerant 'blue' for 'Color'"},
             {R"("[1, 2]")", "vec3", true, "integerList", "[1, 2]", ""},
             {R"("{}")", "namedMap", true, "string", "{}", ""},
             {R"("[1,")", "vec3", false, "string", "[1,", "E Failed to convert from string: "},
             {"5", "Percent", true, "float", "5", ""},
             {"[1, 2]", "rgb", true, "floatList", "[1, 2]", ""},
             {R"({"a": 1})", "namedMap", true, "namedMap", R"({"a": 1})", ""},
             {R"([{"a": 1}])", "namedMapList", true, "namedMapList", R"([{"a": 1}])", ""},
             {"2.5", "integer", false, "float", "2.5", ""},
             {"[]", "floatList", true, "floatList", "[]", ""},
             {"[]", "quat", true, "floatList", "[1, 0, 0, 0]", ""},
             {"[]", "integer", true, "integer", "0", ""},
             {"[true]", "floatList", false, "booleanList", "[true]", ""},
             {"7", "keyOrButton", true, "integer", "7", ""}}) {
        Variant value;
        ASSERT_TRUE(ConvertJsonToVariant("v", Parse(json), value));
        LogCapture log;
        EXPECT_EQ(CoerceVariantToType(value, type, MakeInfo()), result) << json;
        EXPECT_EQ(CaseOf(value), valueCase) << json;
        EXPECT_EQ(ConvertVariantToString(value, false), text);
        std::string const begin = line;
        ASSERT_EQ(log.Records().size(), !begin.empty()) << json;
        for (LogRecord const& record : log.Records()) {
            EXPECT_TRUE(record.plain && record.message.starts_with(begin.substr(2))) << record.message;
        }
    }
}

TEST(CoercionOfText, ThrowsWithoutALeadingNumberAndTheTryFormDoesNot) {
    PropertyInfo const info = MakeInfo();
    Variant value;
    EXPECT_THROW(ConvertStringToVariant("integer", "abc", info, value), std::invalid_argument);
    EXPECT_EQ(value.string_value(), "abc");
    EXPECT_THROW(ConvertStringToVariant("float", "1e400", info, value), std::out_of_range);
    EXPECT_FALSE(TryCoerceVariantToType(value, "float", info));
}

TEST(PropertyTypes, HaveDefaultsOfTheirCase) {
    for (auto const& [type, text] :  // null: no default
         Table<Text, Text>{{"boolean", "false"},
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
                           {"", nullptr}}) {
        Variant value;
        EXPECT_EQ(GetPropertyTypeDefaultValue(type, value), text != nullptr) << type;
        EXPECT_TRUE(text == nullptr || ConvertVariantToString(value, false) == text) << type;
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
