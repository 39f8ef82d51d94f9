#include "SparseDevice/ManifestProcessor.h"

#include "DataTypes/VariantUtils.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/TextUtils.h"

namespace {

using vq::test::LogCapture;

char const* const PuckTracker = R"({
  "ApplicationName": "tablehockey", "ApplicationLabel": "Table Hockey",
  "ManifestType": "SparseDevice", "Version": 2,
  "DeviceName": "puck_tracker", "DeviceLabel": "Puck tracker", "DeviceType": "Generic",
  "UpdateHertz": "RealTime",
  "ProducerChannels": [ "puck_pose" ], "ObserverChannels": [ "table_pose" ],
  "CustomChannels": [
    { "ChannelName": "puck_state", "ChannelLabel": "Puck state", "ChannelType": "Integer",
      "DefaultProducer": "puck_tracker", "Resizable": true, "UserVisible": false },
    { "ChannelName": "bare", "ChannelType": "Vec3" } ],
  "AutomapProducerChannels": false,
  "Constants": { "MaxChannels": 8 },
  "SimpleTypes": [ { "Name": "Percent", "BaseType": "float" } ],
  "ConfigurationProperties": {
    "Gain": { "Type": "Percent", "Default": 50, "Description": "output gain" } },
  "ConfigurationSettings": { "Gain": 75 }
})";

std::string Device(std::string const& name, std::string const& more = "") {
    return R"({ "DeviceName": ")" + name + R"(", "DeviceType": "Generic")" + more + " }";
}

std::string Single(std::string const& name, std::string const& more = "") {
    return Device(name, R"(, "ManifestType": "SparseDevice")" + more);
}

std::vector<std::string> NamesOf(ManifestProcessor const& processor) {
    std::vector<std::string> names;
    LogCapture quiet;
    for (ManifestProcessor::ManifestData const& data : processor.GetDatas()) {
        names.push_back(data.deviceName);
    }
    return names;
}

TEST(Manifests, OfOneDeviceAreReadWhole) {
    ManifestProcessor processor;
    LogCapture log;
    ASSERT_TRUE(processor.ProcessManifestString(PuckTracker));
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(processor.GetAppData().applicationName, "tablehockey");
    EXPECT_EQ(processor.GetAppData().applicationLabel, "Table Hockey");
    EXPECT_FALSE(processor.GetAppData().disableAutomap);

    ManifestProcessor::ManifestData const& data = processor.GetData();
    EXPECT_EQ(data.deviceName, "puck_tracker");
    EXPECT_EQ(data.deviceLabel, "Puck tracker");
    EXPECT_EQ(data.deviceType, "Generic");
    EXPECT_EQ(data.updateHertz, 30);
    EXPECT_THAT(data.producerChannels, ElementsAre("puck_pose"));
    EXPECT_THAT(data.observerChannels, ElementsAre("table_pose"));
    EXPECT_FALSE(data.automapProducerChannels);
    std::string channels;
    for (ChannelDescriptor const& c : data.customChannels) {
        channels += c.name + "/" + c.label + "/" + c.dataType + "/" + c.defaultProducer +
                    (c.resizable ? "/resizable" : "") + (c.userVisible ? "/visible" : "") + " ";
    }
    EXPECT_EQ(channels,
              "puck_state/Puck state/Integer/puck_tracker/resizable bare/bare/Vec3/undefined/visible ");
    EXPECT_EQ(data.configurationState.GetValue("Gain").float_value(), 75);
    EXPECT_EQ(data.configurationState.properties.Find("Gain")->common().default_value().float_value(), 50);
}

TEST(Manifests, ThatAreWrongSayWhyAndLeaveNothing) {
    for (auto const& [text, line] : Rows<2>("Manifests", "wrong")) {
        ManifestProcessor processor;
        ASSERT_TRUE(processor.ProcessManifestString(Single("earlier")));
        LogCapture log;
        EXPECT_FALSE(processor.ProcessManifestString(text));
        EXPECT_EQ(log.Lines(), Tokenize(line, "\n", false)) << text;
        EXPECT_THAT(NamesOf(processor), IsEmpty()) << "earlier documents go too";
    }
}

TEST(Manifests, ThatAreNoJsonKeepWhatIsThere) {
    ManifestProcessor processor;
    ASSERT_TRUE(processor.ProcessManifestString(Single("earlier")));
    LogCapture log;
    EXPECT_FALSE(processor.ProcessManifestString("{"));
    EXPECT_FALSE(processor.ProcessManifestString(std::string(1500, '[')));
    EXPECT_THAT(log.Lines(), ElementsAre(StartsWith("E Failed to parse manifest JSON data\n* Line 1"),
                                         HasSubstr("stackLimit")));
    EXPECT_THAT(NamesOf(processor), ElementsAre("earlier"));
}

TEST(Manifests, OfSeveralDevicesAreSortedAndEndAtANull) {
    ManifestProcessor processor;
    ASSERT_TRUE(processor.ProcessManifestString(
        R"({"ApplicationName": "app", "Manifests": [)" + Device("b") + "," + Device("C") + "," +
        Device("a", R"(, "UpdateHertz": 1001)") + ", null, " + Device("never") + "]}"));
    EXPECT_THAT(NamesOf(processor), ElementsAre("C", "a", "b"));
    EXPECT_EQ(processor.GetAppData().applicationLabel, "Unknown Application");
    ASSERT_NE(processor.GetDataForDevice("a"), nullptr);
    EXPECT_EQ(processor.GetDataForDevice("a")->updateHertz, 1001);
    EXPECT_EQ(processor.GetDataForDevice("never"), nullptr);

    LogCapture log;
    EXPECT_EQ(processor.GetData("aa").deviceName, "aa");
    EXPECT_EQ(processor.GetMutableData("a").updateHertz, 1001);
    EXPECT_EQ(processor.GetData().deviceName, "C");
    EXPECT_THAT(log.Lines(),
                ElementsAre("W Unable to find manifest entry for aa, creating empty data...",
                            "W More than one manifest data entry found, returning first data entry"));
    EXPECT_THAT(NamesOf(processor), ElementsAre("C", "a", "aa", "b"));
}

TEST(Manifests, MayHoldADeviceAndItsConfiguration) {
    ManifestProcessor processor;
    std::string const configuration = R"(, "ManifestType": "Configuration", "UpdateHertz": 5)";
    ASSERT_TRUE(processor.ProcessManifestString(R"({"Manifests": [)" + Device("a") + "," +
                                                Device("a", configuration) + "]}"));
    EXPECT_THAT(NamesOf(processor), ElementsAre("a", "a"));
    EXPECT_EQ(processor.GetDataForDevice("a")->updateHertz, 0) << "the one declared first";
}

TEST(Manifests, IgnoreLenientlyWhatIsOfAnotherKind) {
    ManifestProcessor processor;
    LogCapture log;
    ASSERT_TRUE(processor.ProcessManifestString(Single(
        "a",
        R"(, "AutomapProducerChannels": "no", "CustomChannels": {}, "ProducerChannels": [ 7, null, true ],
                 "ArrayTypes": [ { "Name": "L", "ElementType": "Later" } ])")));
    EXPECT_TRUE(processor.GetData().automapProducerChannels);
    EXPECT_THAT(processor.GetData().customChannels, IsEmpty());
    EXPECT_THAT(processor.GetData().producerChannels, ElementsAre("7", "", "true"));
    EXPECT_THAT(log.Lines(), ElementsAre("W a.L has undefined element type 'Later'"));
}

TEST(Manifests, OfFilesMayIncludeOthers) {
    std::string const home = vq::test::HomeDirectory();
    std::ofstream(home + "base.json") << R"({ "DeviceType": "Audio", "UpdateHertz": 5 })";
    std::ofstream(home + "device.json") << Single("a", R"(, "Includes": [ "base.json" ])");
    std::ofstream(home + "bad.json") << R"({ "Includes": [ "gone.json" ] })";
    ManifestProcessor processor;
    ASSERT_TRUE(processor.ProcessManifest(home + "device.json"));
    EXPECT_EQ(processor.GetData().deviceType, "Generic") << "the including file wins";
    EXPECT_EQ(processor.GetData().updateHertz, 5);
    LogCapture log;
    EXPECT_FALSE(processor.ProcessManifest(home + "bad.json"));
    EXPECT_THAT(log.Lines(), ElementsAre("E Failed to parse manifest JSON data from " + home +
                                         "bad.json\nCould not locate 'gone.json' for \"Includes\" key in " +
                                         home + "bad.json\n"));
}

TEST(Manifests, MayBeMissing) {
    ManifestProcessor processor;
    LogCapture log;
    EXPECT_TRUE(processor.ProcessManifest(std::string()));
    EXPECT_TRUE(processor.GetDatas().empty());
    EXPECT_EQ(processor.GetData().deviceName, "");
    EXPECT_THAT(log.Lines(),
                ElementsAre("W Empty path passed to ManifestProcessor::ProcessManifest",
                            "W Manifest datas empty", "W No manifest data found, creating empty data..."));
}

TEST(ConfigurationManifests, AreWrittenAndReadBack) {
    ManifestProcessor processor;
    ASSERT_TRUE(processor.ProcessManifestString(PuckTracker));
    ManifestProcessor::ManifestData& data = processor.GetMutableData();
    data.configurationState.SetValue("names", {"a", "b"});
    data.configurationState.EnsureValue("unset");
    std::string const text = ManifestProcessor::BuildConfigurationJsonString(data);
    EXPECT_EQ(text, R"({
   "ConfigurationSettings" : {
      "Gain" : 75.0,
      "names" : [ "a", "b" ]
   },
   "DeviceLabel" : "Puck tracker",
   "DeviceName" : "puck_tracker",
   "DeviceType" : "Generic",
   "ManifestType" : "Configuration"
}
)");
    ManifestProcessor back;
    ASSERT_TRUE(back.ProcessManifestString(text));
    EXPECT_EQ(back.GetData().configurationState.GetValue("Gain").float_value(), 75);
    EXPECT_EQ(ConvertVariantToString(back.GetData().configurationState.GetValue("names"), false), "[a, b]");

    std::string const several = ManifestProcessor::BuildMultiConfigurationJsonString({data, data});
    ManifestProcessor both;
    ASSERT_TRUE(both.ProcessManifestString(several));
    EXPECT_THAT(NamesOf(both), ElementsAre("puck_tracker", "puck_tracker"));
    EXPECT_THAT(several, HasSubstr("\"Version\" : 2\n"));
}

/// The fenced JSON of the guide, by the file names that it gives them.
std::map<std::string, std::string> ExamplesOfTheGuide() {
    std::ifstream guide(VQ_SOURCE_DIR "/docs/manifests.md");
    std::map<std::string, std::string> examples;
    std::string name;
    for (std::string line; std::getline(guide, line);) {
        if (line.starts_with("```")) {
            name = line.starts_with("```json ") ? line.substr(std::string("```json ").size()) : "";
        } else if (!name.empty()) {
            examples[name] += line + "\n";
        }
    }
    return examples;
}

TEST(Manifests, OfTheGuideAreReadWithoutAWarning) {
    std::string const& home = vq::test::HomeDirectory();
    auto const examples = ExamplesOfTheGuide();
    for (auto const& [name, text] : examples) {
        std::ofstream(home + name) << text;
    }
    int devices = 0;
    for (auto const& [name, text] : examples) {
        LogCapture log;
        ManifestProcessor processor;
        if (text.find("\"Device") != std::string::npos) {  // the others are included
            EXPECT_TRUE(processor.ProcessManifest(home + name)) << name;
            devices += static_cast<int>(processor.GetDatas().size());
        }
        EXPECT_THAT(log.Lines(), IsEmpty()) << name;
    }
    EXPECT_EQ(devices, 6);
}

}  // namespace
