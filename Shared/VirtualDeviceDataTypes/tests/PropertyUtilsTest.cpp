#include "DataTypes/PropertyUtils.h"

#include "DataTypes/VariantUtils.h"
#include "JsonText.h"
#include "TestSupport/LogCapture.h"

#include <gmock/gmock.h>
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vq::cfg::CommonProperty;
using vq::test::LogCapture;

char const* const ExampleTypes = R"({
  "Constants": { "MaxChannels": 8, "Hostname": "localhost" },
  "EnumerationTypes": {
    "Mode": { "Values": [ "Off", "Slow", "Fast" ], "Default": "Slow" },
    "Face": { "Enums": [ { "Name": "left", "Label": "Left side" },
                         { "Name": "hiddenFace", "UserVisible": false } ] } },
  "SimpleTypes": [
    { "Name": "Percent", "BaseType": "float", "Default": 50,
      "LowerLimit": 0, "UpperLimit": 100, "OutOfRangeHandling": "CLAMP" },
    { "Name": "Speed", "BaseType": "Mode" },
    { "Name": "Plain", "BaseType": "integer" } ],
  "ArrayTypes": [
    { "Name": "Gains", "ElementType": "Percent", "ElementCount": "MaxChannels" },
    { "Name": "Names", "ElementType": "string", "ElementCount": "resizable",
      "Label": "Channel names", "Description": "one for each channel" },
    { "Name": "Pair", "ElementType": "integer", "ElementCount": 2 } ],
  "PropertyCategories": [ { "Path": "audio/mix", "Label": "Mix" }, { "Path": 7, "Label": "Odd" } ]
})";

TEST(TypeDeclarations, FillTheRegistries) {
    LogCapture log;
    PropertyInfo info;
    ASSERT_TRUE(ParseTypeInfo(Parse(ExampleTypes), info));
    EXPECT_THAT(log.Lines(), ElementsAre("E PropertyCategories.1 does not have a string Path field"));

    EXPECT_EQ(info.constants.Find("MaxChannels")->value().integer_value(), 8);
    EXPECT_EQ(DefaultOf(*info.enumerations.Find("Mode")), "Slow");
    vq::cfg::Enumeration const& face = *info.enumerations.Find("Face");
    ASSERT_EQ(face.enumerants_size(), 2);
    EXPECT_EQ(face.enumerants(0).label(), "Left side");
    EXPECT_TRUE(face.enumerants(0).flag());
    EXPECT_EQ(face.enumerants(1).label(), "hiddenFace");
    EXPECT_FALSE(face.enumerants(1).flag());

    vq::cfg::SimpleType const& percent = *info.simpleTypes.Find("Percent");
    EXPECT_EQ(percent.upper_limit().float_value(), 100) << "coerced to the base type";
    EXPECT_EQ(percent.default_value().integer_value(), 50) << "as declared";
    EXPECT_EQ(percent.out_of_range_handling(), vq::cfg::OutOfRangeHandling_Clamp);

    EXPECT_EQ(ElementCountOf(*info.arrayTypes.Find("Gains")).string_value(), "MaxChannels");
    EXPECT_FALSE(HasElementCount(*info.arrayTypes.Find("Names")));
    EXPECT_EQ(info.arrayTypes.Find("Names")->label(), "Channel names");
    EXPECT_EQ(ElementCountOf(*info.arrayTypes.Find("Pair")).integer_value(), 2);
    EXPECT_EQ(info.categories.Find("")->label(), "Odd");

    vq::cfg::CommonPropertyInfo message;
    message.add_constants();
    FillCommonPropertyInfo(info, message);
    EXPECT_TRUE(message.IsInitialized());
    EXPECT_EQ((std::vector{message.categories_size(), message.constants_size(), message.simple_types_size(),
                           message.enumerations_size(), message.array_types_size()}),
              (std::vector{2, 2, 3, 2, 3}));
}

TEST(TypeDeclarations, AreAllOptional) {
    for (char const* const text : {"{}", "[1]", "\"text\"", "null"}) {
        PropertyInfo info;
        EXPECT_TRUE(ParseTypeInfo(Parse(text), info)) << text;
        EXPECT_TRUE(info.IsKnownType("quat"));
    }
}

TEST(TypeDeclarations, ThatAreWrongStopTheSectionWithALine) {
    auto const enumeration = [](std::string const& text) {
        return R"({"EnumerationTypes": {"E": )" + text + "}}";
    };
    auto const types = [](std::string const& more) {
        return R"({"SimpleTypes": [{"Name": "T", "BaseType": )" + more + "}]}";
    };
    auto const array = [](std::string const& more) {
        return R"({"ArrayTypes": [{"Name": "A", "ElementType": "float")" + more + "}]}";
    };
    for (auto const& [json, line] : std::vector<std::pair<std::string, std::string>>{
             {R"({"Constants": []})", "E Constants is not an object"},
             {R"({"Constants": {"a": [1, "x"]}})", "E Array in Constants.a must have homogenous elements"},
             {R"({"EnumerationTypes": []})", "E EnumerationTypes should be an object"},
             {enumeration(R"({"Values": "x"})"), "E Enumeration 'E' Values should be a list"},
             {enumeration(R"({"Values": [[]]})"), "E Enumeration 'E' Values should be a list"},
             {enumeration(R"({"Values": ["a", "a"]})"), "E Enumeration 'E' reused value a"},
             {enumeration("3"), "E Enumeration 'E' defines neither Values nor Enums"},
             {enumeration(R"({"Enums": {}})"), "E Enumeration 'E' Enums should be a list"},
             {enumeration(R"({"Enums": [{"Name": "a"}, 7]})"),
              "E expected string for Enumeration 'E'.1.Name field"},
             {enumeration(R"({"Enums": [{"Name": "a"}, {"Name": "a"}]})"), "E Enumeration 'E' reused Name a"},
             {enumeration(R"({"Enums": [{"Name": "a"}, {"Name": "b", "Label": "a"}]})"),
              "E Enumeration 'E' reused Label a for b"},
             {enumeration(R"({"Values": [], "Default": 1})"), "E Enumeration 'E' Default should be a string"},
             {R"({"SimpleTypes": {}})", "E SimpleTypes is not an array"},
             {R"({"SimpleTypes": [[]]})", "E expected string for SimpleTypes.Name field"},
             {types("1"), "E expected string for SimpleTypes[T].BaseType field"},
             {types(R"("float"}, {"Name": "T", "BaseType": "float")"), "E Redefined SimpleTypes 'T'"},
             {types(R"("integer", "LowerLimit": 1.5)"),
              "E SimpleTypes[T] has mismatched Type integer and Lower Limit 1.5"},
             {types(R"("integer", "UpperLimit": "x")"),
              "E SimpleTypes[T] has mismatched Type integer and Upper Limit x"},
             {types(R"("float", "UpperLimit": 1, "OutOfRangeHandling": "clamp")"),
              "E SimpleTypes[T] cannot define OutOfRangeHandling unless both LowerLimit and UpperLimit are "
              "provided"},
             {types(R"("float", "LowerLimit": 0, "UpperLimit": 1, "OutOfRangeHandling": "Bounce")"),
              "E SimpleTypes[T] has unknown OutOfRangeHandling value 'Bounce'"},
             {R"({"ArrayTypes": 1})", "E ArrayTypes is not an array"},
             {array(R"(, "ElementCount": "Unknown")"),
              "E expected integer or Constants name for ArrayTypes[A].Size, got Unknown"},
             {array(R"(, "ElementCount": 2.0)"),
              "E expected integer or constant name for ArrayTypes[A].Size"},
             {array(R"(}, {"Name": "A", "ElementType": "x")"), "E Redefined ArrayTypes A"},
             {R"({"PropertyCategories": {}})", "E PropertyCategories should be an array"}}) {
        LogCapture log;
        PropertyInfo info;
        EXPECT_FALSE(ParseTypeInfo(Parse(json), info)) << json;
        EXPECT_THAT(log.Lines(), ElementsAre(line)) << json;
    }
}

/// Reads properties against the example's types.
class Properties : public testing::Test {
protected:
    Properties() { EXPECT_TRUE(ParseTypeInfo(Parse(ExampleTypes), m_info)); }

    bool Read(std::string const& section) {
        return ParseProperties("Test", Parse("{\"P\": " + section + "}"), "P", m_info,
                               [this](Json::Value const&, CommonProperty& property) {
                                   m_read[property.name()] = property;
                                   return true;
                               });
    }

    PropertyInfo m_info;
    std::map<std::string, CommonProperty> m_read;
};

TEST_F(Properties, AreCompletedFromTypeAndDefault) {
    for (auto const& [json, type, text] :  // the text of the default; null for none
         std::vector<std::tuple<char const*, char const*, char const*>>{
             {R"({"Type": "quat"})", "quat", "[1, 0, 0, 0]"},
             {R"({"Type": "keyOrButton"})", "keyOrButton", nullptr},
             {R"({"Type": "Gains"})", "Gains", nullptr},
             {R"({"Type": "Percent"})", "Percent", "50"},
             {R"({"Type": "Percent", "Default": "7.5"})", "Percent", "7.5"},
             {R"({"Type": "Plain"})", "Plain", "0"},
             {R"({"Type": "Mode"})", "Mode", "Slow"},
             {R"({"Type": "Face"})", "Face", "left"},
             {R"({"Type": "Speed"})", "Speed", "Slow"},
             {R"({"Type": "Mode", "Default": ""})", "Mode", "Slow"},
             {R"({"Type": "Face", "Default": ""})", "Face", ""},
             {R"({"Type": "Speed", "Default": "FAST"})", "Speed", "Fast"},
             {R"({"Default": [1, 2]})", "integerList", "[1, 2]"}}) {
        LogCapture log;
        ASSERT_TRUE(Read(std::string("{\"x\": ") + json + "}")) << json;
        CommonProperty const& property = m_read["x"];
        EXPECT_EQ(property.type(), type);
        EXPECT_EQ(property.has_default_value(), text != nullptr) << json;
        EXPECT_TRUE(text == nullptr || ConvertVariantToString(property.default_value(), false) == text)
            << json;
        EXPECT_THAT(log.Lines(), IsEmpty());
    }
}

TEST_F(Properties, KeepWhatTheyDeclareAndGetTheRest) {
    LogCapture log;
    ASSERT_TRUE(Read(R"({ "updateHertz": { "Default": 3, "Priority": "soon", "UserVisible": 1 },
                          "volume": { "Type": "integer", "Label": "", "Description": "loud", "Priority": 4,
                                      "UserVisible": false, "Category": "audio/mix",
                                      "Metadata": { "unit": "dB", "steps": [1, 2] } } })"));
    CommonProperty const& bare = m_read["updateHertz"];
    EXPECT_EQ(bare.label(), "updateHertz");
    EXPECT_TRUE(bare.has_description());
    EXPECT_TRUE(bare.user_visible());
    EXPECT_FALSE(bare.has_priority());
    CommonProperty const& full = m_read["volume"];
    EXPECT_EQ(full.label(), "") << "declared, though empty";
    EXPECT_EQ(full.priority(), 4);
    EXPECT_FALSE(full.user_visible());
    EXPECT_EQ(full.category(), "audio/mix");
    EXPECT_EQ(full.metadata().entries(0).name(), "steps");
    EXPECT_EQ(full.metadata().entries(1).value().string_value(), "dB");
    EXPECT_THAT(log.Lines(), ElementsAre("E UserVisible field does not exist",
                                         "E Priority field string does not contain an int",
                                         "E Priority field does not exist"));
}

TEST_F(Properties, WithRangesGetATypeOfTheirOwn) {
    ASSERT_TRUE(Read(R"({ "x": { "Type": "integer", "LowerLimit": -1, "UpperLimit": "9",
                                 "OutOfRangeHandling": "wrap" },
                          "y": { "Default": 5, "LowerLimit": 1 } })"));
    EXPECT_EQ(m_read["x"].type(), "xSimpleType");
    EXPECT_EQ(m_read["x"].default_value().integer_value(), 0);
    vq::cfg::SimpleType const& type = *m_info.simpleTypes.Find("xSimpleType");
    EXPECT_EQ(type.base_type(), "integer");
    EXPECT_EQ(type.lower_limit().integer_value(), -1);
    EXPECT_EQ(type.upper_limit().integer_value(), 9);
    EXPECT_EQ(type.out_of_range_handling(), vq::cfg::OutOfRangeHandling_Wrap);
    EXPECT_TRUE(m_info.simpleTypes.Find("ySimpleType")->has_base_type());
    EXPECT_EQ(m_info.simpleTypes.Find("ySimpleType")->base_type(), "");

    LogCapture log;
    EXPECT_FALSE(Read(R"({ "x": { "Type": "integer", "LowerLimit": 0 } })"));
    EXPECT_THAT(log.Lines(),
                ElementsAre("E Test 'x' unexpectedly overlaps another simple type (xSimpleType); "
                            "make an explicit type or fix this bug"));
}

TEST_F(Properties, ThatAreWrongEndTheSectionWithALine) {
    for (auto const& [json, line] : std::vector<std::pair<char const*, char const*>>{
             {R"([])", "E Test: P is expected to be an object"},
             {R"({"x": {}})", "E Test 'x' should have a Type or Default"},
             {R"({"x": 5})", "E Test 'x' should have a Type or Default"},
             {R"({"x": {"Label": 5, "Default": 1}})", "E expected string for Test 'x'.Label field"},
             {R"({"x": {"Default": null}})", "E Test 'x'.Default cannot contain null value"},
             {R"({"x": {"Type": "any"}})", "E Test 'x' should have a Default (I can't guess for type any)"},
             {R"({"x": {"Type": "integer", "Default": 1.5}})",
              "E Test 'x' has mismatched Type integer and Default 1.5"},
             {R"({"x": {"Type": "integer", "Default": "abc"}})",
              "E Test 'x' has mismatched Type integer and Default abc"},
             {R"({"x": {"Type": "Mode", "Default": 1}})",
              "E Test 'x' should have a string value for enumeration Mode"},
             {R"({"x": {"Type": "Mode", "Default": "FAST"}})",
              "E Test 'x' has unknown value 'FAST' for enumeration Mode"},
             {R"({"x": {"Default": 1, "Metadata": []}})", "E Test 'x'.Metadata is not an object"},
             {R"({"x": {"Default": 1, "UpperLimit": 2, "OutOfRangeHandling": "wrap"}})",
              "E Test 'x' cannot define OutOfRangeHandling unless both LowerLimit and UpperLimit are "
              "provided"},
         }) {
        LogCapture log;
        EXPECT_FALSE(Read(json)) << json;
        EXPECT_THAT(log.Lines(), ElementsAre(line)) << json;
    }
}

TEST_F(Properties, WithUndefinedNamesWarn) {
    LogCapture log;
    EXPECT_TRUE(Read(R"({"x": {"Type": "Later", "Default": 1, "Category": "later"}})"));
    EXPECT_FALSE(Read(R"({"x": {"Type": "Never"}})"));
    EXPECT_THAT(log.Lines(), ElementsAre("W Test 'x' has undefined type 'Later'",
                                         "W Test 'x' has undefined category 'later'",
                                         "W Test 'x' has undefined type 'Never'",
                                         "E Test 'x' should have a Default (I can't guess for type Never)"));
}

TEST_F(Properties, OfAnEnumerationWithNothingToChooseAreFatal) {
    ASSERT_TRUE(ParseTypeInfo(Parse(R"({"EnumerationTypes": {"None": {"Values": []}}})"), m_info));
    EXPECT_THROW(Read(R"({"x": {"Type": "None"}})"), google::protobuf::FatalException);
}

TEST(Labels, AreSynthesizedFromNames) {
    for (auto const& [name, label] : std::map<std::string, std::string>{{"UpdateHertz", "Update hertz"},
                                                                        {"MaxFPS", "Max fPS"},
                                                                        {"my_value", "my value"},
                                                                        {"frameRateHz", "frameRate hz"},
                                                                        {"A_B", "A B"},
                                                                        {"my-Value", "my Value"},
                                                                        {"a_bC", "a bC"},
                                                                        {"Ab_cDe", "Ab cde"},
                                                                        {"", ""}}) {
        EXPECT_EQ(SynthesizeLabel(name), label) << name;
    }
}

TEST(PathProperties, AreRelativeToTheRootTheyName) {
    ::setenv("VQSDK", "/opt/kit", 1);
    ::setenv("VQ_VDS_DATA", "/srv/vds", 1);
    for (auto const& [root, path, resolved] : std::vector<std::tuple<char const*, char const*, std::string>>{
             {"NONE", "a/b", "a/b"},
             {"VQSDK", "/a", "/a"},
             {"VQSDK", "a", "/opt/kit/a"},
             {"VQ_VDS_DATA", "a", "/srv/vds/a"},
             {"USER_HOME", "a", std::string(std::getenv("HOME")) + "/a"}}) {
        EXPECT_EQ(ResolveRelativePathPropertyValue(root, path), resolved);
    }
    ::unsetenv("VQSDK");
    EXPECT_EQ(ResolveRelativePathPropertyValue("VQSDK", "a"), "a");
    LogCapture log;
    EXPECT_EQ(ResolveRelativePathPropertyValue("MOON", "a"), "a");
    EXPECT_THAT(log.Lines(), ElementsAre("W Unhandled RelativePathRoot 'MOON'"));
}

}  // namespace
