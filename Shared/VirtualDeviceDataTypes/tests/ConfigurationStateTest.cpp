#include "DataTypes/ConfigurationState.h"

#include "DataTypes/ConfigurationUtils.h"
#include "DataTypes/PropertyUtils.h"
#include "DataTypes/VariantUtils.h"
#include "TestSupport/JsonText.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"

namespace {

using vq::cfg::Variant;
using vq::test::LogCapture;

void Declare(ConfigurationState& state, std::string const& properties) {
    ASSERT_TRUE(ParseProperties("Test", Parse("{\"P\": " + properties + "}"), "P", state,
                                [&state](Json::Value const&, vq::cfg::CommonProperty& common) {
                                    auto property = std::make_unique<vq::cfg::ConfigurationProperty>();
                                    *property->mutable_common() = common;
                                    state.properties.Add(common.name(), std::move(property));
                                    return true;
                                }));
}

/// A state with limits of each number kind.
ConfigurationState MakeState() {
    ConfigurationState state;
    Declare(state, R"({ "x": { "Type": "integer", "Default": 7, "LowerLimit": 0, "UpperLimit": 100,
                               "OutOfRangeHandling": "wrap" },
                        "f": { "Type": "float", "LowerLimit": 0.5 },
                        "key": { "Type": "keyOrButton" } })");
    return state;
}

std::string TextOf(ConfigurationState const& state, std::string const& name) {
    return ConvertVariantToString(state.GetValue(name), true);
}

TEST(Settings, AreClampedWhenSetWhateverTheTypeSaysOfWrapping) {
    using State = ConfigurationState;
    auto const variant = [](State& state, char const* name, char const* json) {
        Variant value;
        ASSERT_TRUE(ConvertJsonToVariant("v", Parse(json), value));
        state.SetValue(name, value);
    };
    Lines const both = {"E Lower limit type does not match property type for setting x",
                        "E Upper limit type does not match property type for setting x"};
    std::pair<std::vector<int>, std::vector<bool>> const lists{{500, -1}, {true, false}};
    struct Case {
        char const* name;
        std::function<void(State&)> set;
        char const* text;
        Lines lines;
    };
    for (Case const& c : std::vector<Case>{
             {"x", [](State& s) { s.SetValue("x", 150); }, "100", {}},
             {"x", [](State& s) { s.SetValue("x", -5LL); }, "0", {}},
             {"x", [](State& s) { s.SetValue("x", 4294967295U); }, "100", {}},
             {"x", [](State& s) { s.SetValue("x", 1.5F); }, "0", {}},
             {"x", [&](State& s) { variant(s, "x", "150"); }, "100", {}},
             {"x", [&](State& s) { variant(s, "x", "1.5"); }, "1.5", both},
             {"x", [&](State& s) { variant(s, "x", "\"s\""); }, "\"s\"", both},
             {"x", [](State& s) { s.SetValue("x", "s"); }, "\"s\"", {}},
             {"x", [](State& s) { s.SetValue("x", true); }, "true", {}},
             {"x", [&](State& s) { s.SetValue("x", lists.first); }, "[500, -1]", {}},
             {"f", [](State& s) { s.SetValue("f", 0.25F); }, "0.5", {}},
             {"f", [](State& s) { s.SetValue("f", -5); }, "0", {}},
             {"f", [&](State& s) { variant(s, "f", "0.25"); }, "0.5", {}},
             {"new",
              [](State& s) {
                  s.SetValue("new", {"a", "b"});
              },
              "[a, b]",
              {}},
             {"new", [](State& s) { s.SetValue("new", std::vector<float>{1.5F}); }, "[1.5]", {}},
             {"new", [&](State& s) { s.SetValue("new", lists.second); }, "[true, false]", {}}}) {
        ConfigurationState state = MakeState();
        LogCapture log;
        c.set(state);
        EXPECT_EQ(TextOf(state, c.name), c.text);
        EXPECT_EQ(log.Lines(), c.lines) << c.text;
    }
}

TEST(Settings, ComeIntoBeingWhenRead) {
    ConfigurationState state = MakeState();
    LogCapture log(LogLevel::Verbose);
    EXPECT_EQ(state.GetValue("x").integer_value(), 7);
    ConfigurationState const& readOnly = state;
    EXPECT_EQ(readOnly.GetValue("unknown").value_case(), Variant::VALUE_NOT_SET);
    EXPECT_FALSE(state.settings.Find("unknown")->has_value());
    EXPECT_FALSE(state.EnsureValue("key")->has_value()) << "declared, but its type has no default";
    readOnly.GetValue("unknown");
    state.GetValue("unknown").set_integer_value(1);
    EXPECT_EQ(TextOf(state, "unknown"), "1");
    EXPECT_THAT(log.Lines(),
                ElementsAre("V Configuration setting unknown does not exist, creating empty setting"));
}

TEST(Settings, TellTheirHandlersInOrder) {
    ConfigurationState state = MakeState();
    std::string heard;
    state.RegisterAnyPropertyChangedHandler([&](std::string const& name) { heard += "any:" + name + ' '; });
    state.RegisterPropertyChangedHandler("x", [&] { heard += "1:" + TextOf(state, "x") + ' '; });
    state.RegisterPropertyChangedHandler("x", [&] { heard += "2 "; });
    EXPECT_EQ(heard, "1:7 2 ") << "each starts from the present value";
    heard.clear();
    state.SetValue("x", 7);
    state.SetValue("f", 1.0F);
    EXPECT_EQ(heard, "1:7 2 any:x any:f ") << "also when nothing changed";
    heard.clear();
    EXPECT_TRUE(state.RemoveValue(state.settings.Find("x")->name())) << "the name may be the setting's own";
    EXPECT_EQ(heard, "1:7 2 any:x ");
    EXPECT_FALSE(state.RemoveValue("nothing"));

    int late = 0;  // registered by another handler, and so often that the list has to move
    state.RegisterPropertyChangedHandler(
        "z", [&] { std::fill_n(std::back_inserter(state.propertyHandlers["z"]), 20, [&] { ++late; }); });
    EXPECT_EQ(late, 0);
    state.IssuePropertyChangedEvent("z");
    EXPECT_EQ(late, 20);
    EXPECT_THROW(state.RegisterPropertyChangedHandler("y", {}), std::bad_function_call);
}

TEST(SettingsFromJson, AreCoercedButNeitherClampedNorAnnounced) {
    ConfigurationState state = MakeState();
    int calls = 0;
    state.RegisterAnyPropertyChangedHandler([&](std::string const&) { ++calls; });
    ASSERT_TRUE(ParseConfigurationSettings(
        Parse(R"({"S": {"x": "150", "f": 3, "extra": [1, 2], "empty": {}}})"), "S", state));
    EXPECT_EQ(TextOf(state, "x"), "150");
    EXPECT_EQ(state.GetValue("f").float_value(), 3);
    EXPECT_EQ(calls, 0);
    vq::cfg::CommonProperty const& hidden = state.properties.Find("extra")->common();
    EXPECT_EQ(hidden.type(), "integerList");
    EXPECT_FALSE(hidden.user_visible());
    EXPECT_EQ(ConvertVariantToString(hidden.default_value(), false), "[1, 2]");
    EXPECT_EQ(state.properties.Find("empty")->common().type(), "");
    ASSERT_TRUE(ParseConfigurationSettings(Parse(R"({"S": {"extra": [3]}})"), "S", state));
    EXPECT_EQ(ConvertConfigurationSettingToString(*state.settings.Find("extra")), "[3]");
}

TEST(SettingsFromJson, ThatDoNotFitEndWithALine) {
    for (auto const& [json, line] : Rows<2>("ConfigurationState", "misfits")) {
        ConfigurationState state = MakeState();
        EXPECT_TRUE(ParseConfigurationSettings(Parse(R"({"S": null})"), "S", state));
        LogCapture log;
        EXPECT_FALSE(ParseConfigurationSettings(Parse(json), "S", state)) << json;
        EXPECT_THAT(log.Lines(), ElementsAre(line));
    }
}

TEST(SettingsFromJson, OfAChangeMessageKeepWhatCameBeforeAFailure) {
    LogCapture log;
    std::map<std::string, vq::cfg::ConfigurationSetting> out;
    EXPECT_FALSE(ConvertJsonObjectToConfigurationSettings("n", Parse("[1]"), out));
    EXPECT_FALSE(ConvertJsonObjectToConfigurationSettings("n", Parse(R"({"a": 1, "b": null, "c": 2})"), out));
    ASSERT_EQ(out.size(), 1U);
    EXPECT_EQ(out["a"].value().integer_value(), 1);
    EXPECT_FALSE(out["a"].has_name());
    EXPECT_THAT(log.Lines(), ElementsAre("E setting contains unexpected n type (expected object)",
                                         "E Configuaration setting 'b' cannot contain null value"));
}

}  // namespace
