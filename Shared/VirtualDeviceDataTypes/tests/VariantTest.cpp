#include "DataTypes/PropertyInfo.h"
#include "DataTypes/PropertyType.h"
#include "DataTypes/PropertyUtils.h"
#include "DataTypes/VariantUtils.h"
#include "TestSupport/JsonText.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"

namespace {

using vq::cfg::Variant;
using vq::test::LogCapture;

std::string CaseOf(Variant const& value) {
    return ConvertVariantValueCaseToString(value.value_case());
}

TEST(JsonValues, BecomeVariantsTextsAndJsonAgain) {
    for (auto const& [json, valueCase, quoted, back] : Rows<4>("Variant", "json")) {
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
    for (auto const& [json, line] : Rows<2>("Variant", "refused")) {
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
    EXPECT_TRUE(ParseTypeInfo(Parse(R"({ "EnumerationTypes": { "Color": { "Values": [ "Red" ] } },
                                         "SimpleTypes": [ { "Name": "Percent", "BaseType": "float" },
                                                          { "Name": "Paint", "BaseType": "Color" } ] })"),
                              info));
    return info;
}

TEST(Coercion, BringsAValueToItsTypeOrSaysNo) {
    for (auto const& [json, type, result, valueCase, text, line] : Rows<6>("Variant", "coercion")) {
        Variant value;
        ASSERT_TRUE(ConvertJsonToVariant("v", Parse(json), value));
        LogCapture log;
        EXPECT_EQ(CoerceVariantToType(value, type, MakeInfo()), result == "true") << json;
        EXPECT_EQ(CaseOf(value), valueCase) << json;
        EXPECT_EQ(ConvertVariantToString(value, false), text);
        ASSERT_EQ(log.Records().size(), !line.empty()) << json;
        for (LogRecord const& record : log.Records()) {
            EXPECT_TRUE(record.plain && ("E " + record.message).starts_with(line)) << record.message;
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
    for (auto const& [type, text] : Rows<2>("Variant", "defaults")) {
        Variant value;
        EXPECT_EQ(GetPropertyTypeDefaultValue(type, value), text != kNone) << type;
        EXPECT_TRUE(text == kNone || ConvertVariantToString(value, false) == text) << type;
    }
}

TEST(PropertyTypes, AnyIsKnownButNotBuiltInAndBooleanListTheReverse) {
    EXPECT_TRUE(PropertyType::IsKnownType("any") && !PropertyInfo::IsBuiltinType("any"));
    EXPECT_TRUE(!PropertyType::IsKnownType("booleanList") && PropertyInfo::IsBuiltinType("booleanList"));
    PropertyInfo const info = MakeInfo();
    for (char const* const name : {"any", "booleanList", "quat", "Color", "Percent"}) {
        EXPECT_TRUE(info.IsKnownType(name)) << name;
    }
    EXPECT_FALSE(info.IsKnownType("Colour"));
}

}  // namespace
