#include "DataTypes/PropertyUtils.h"

#include "DataTypes/VariantUtils.h"
#include "TestSupport/JsonText.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"

#include <google/protobuf/stubs/logging.h>

namespace {

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
    for (auto const& [json, line] : Rows<2>("PropertyUtils", "bad-types")) {
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
    for (auto const& [json, type, text] : Rows<3>("PropertyUtils", "completed")) {
        LogCapture log;
        ASSERT_TRUE(Read("{\"x\": " + json + "}")) << json;
        CommonProperty const& property = m_read["x"];
        EXPECT_EQ(property.type(), type);
        EXPECT_EQ(property.has_default_value(), text != kNone) << json;
        EXPECT_TRUE(text == kNone || ConvertVariantToString(property.default_value(), false) == text) << json;
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
    for (auto const& [json, line] : Rows<2>("PropertyUtils", "bad-properties")) {
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
    for (auto const& [name, label] : Rows<2>("PropertyUtils", "labels")) {
        EXPECT_EQ(SynthesizeLabel(name), label) << name;
    }
}

TEST(PathProperties, AreRelativeToTheRootTheyName) {
    ::setenv("VQSDK", "/opt/kit", 1);
    ::setenv("VQ_VDS_DATA", "/srv/vds", 1);
    ::setenv("HOME", "/home/any", 1);
    for (auto const& [root, path, resolved] : Rows<3>("PropertyUtils", "paths")) {
        EXPECT_EQ(ResolveRelativePathPropertyValue(root, path), resolved) << root;
    }
    ::unsetenv("VQSDK");
    EXPECT_EQ(ResolveRelativePathPropertyValue("VQSDK", "a"), "a");
    LogCapture log;
    EXPECT_EQ(ResolveRelativePathPropertyValue("MOON", "a"), "a");
    EXPECT_THAT(log.Lines(), ElementsAre("W Unhandled RelativePathRoot 'MOON'"));
}

}  // namespace
