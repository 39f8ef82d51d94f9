// What reading configuration costs beside the JSON library's own work.

#include <json/reader.h>
#include <json/value.h>

#include <string>

#include "Config.pb.h"
#include "DataTypes/VariantUtils.h"
#include "SparseDevice/ManifestProcessor.h"
#include "Twin.h"

namespace {

using vq::cfg::Variant;

/// A manifest of two kibibytes, of the kinds of entries that devices have.
char const* const Manifest = R"({
  "ApplicationName": "tablehockey",
  "ApplicationLabel": "Table Hockey",
  "ManifestType": "SparseDevice",
  "Version": 2,
  "DeviceName": "puck_tracker",
  "DeviceLabel": "Puck tracker",
  "DeviceType": "Generic",
  "UpdateHertz": "realtime",
  "ProducerChannels": [ "puck_pose", "puck_speed" ],
  "ObserverChannels": [ "table_pose" ],
  "CustomChannels": [
    { "ChannelName": "puck_state", "ChannelLabel": "Puck state", "ChannelType": "Integer",
      "DefaultProducer": "puck_tracker", "Resizable": false, "UserVisible": true }
  ],
  "AutomapProducerChannels": false,
  "Constants": { "MaxChannels": 8, "Hostname": "localhost" },
  "EnumerationTypes": {
    "Mode": { "Values": [ "Off", "Slow", "Fast" ], "Default": "Slow" },
    "Face": { "Enums": [ { "Name": "left", "Label": "Left side" }, { "Name": "right", "Label": "Right side" } ] }
  },
  "SimpleTypes": [
    { "Name": "Percent", "BaseType": "float", "Default": 50, "LowerLimit": 0, "UpperLimit": 100,
      "OutOfRangeHandling": "clamp" }
  ],
  "ArrayTypes": [
    { "Name": "Gains", "ElementType": "Percent", "ElementCount": "MaxChannels", "Label": "Gains" }
  ],
  "PropertyCategories": [ { "Path": "audio/mix", "Label": "Mix" } ],
  "ConfigurationProperties": {
    "Gain": { "Type": "Percent", "Default": 50, "Description": "output gain", "Category": "audio/mix" },
    "Mode": { "Type": "Mode", "Default": "Fast", "Description": "how the tracker follows the puck" },
    "Offset": { "Type": "vec3", "Default": [ 0.5, 0.25, -1.0 ], "Label": "Offset from the table" },
    "TableName": { "Type": "string", "Default": "main table", "UserVisible": false },
    "Retries": { "Type": "integer", "Default": 3, "LowerLimit": 0, "UpperLimit": 10 },
    "Enabled": { "Type": "boolean", "Default": true, "Priority": 1 },
    "Levels": { "Type": "Gains", "Default": [ 10, 20, 40 ], "Label": "Levels of the channels",
                "Description": "one for each channel of the table" }
  },
  "ConfigurationSettings": { "Gain": 75, "Mode": "Slow", "TableName": "left table", "Enabled": false }
})";

Json::Value ParseBare(std::string const& text) {
    Json::Value root;
    Json::Reader().parse(text, root, false);
    return root;
}

constexpr std::size_t kLoads = 20;

void ManifestLoad(benchmark::State& state) {
    std::string const text = Manifest;
    if (!ManifestProcessor().ProcessManifestString(text)) {
        state.SkipWithError("the manifest does not load");
        return;
    }
    bench::RunTwin(
        state, kLoads, [&text] { return ParseBare(text).size(); },
        [&text] {
            ManifestProcessor processor;
            return processor.ProcessManifestString(text);
        });
}

void ManifestLoadQuiet(benchmark::State& state) {
    std::string const text = Manifest;
    bench::RunQuiet(state, kLoads, [&text] { return ParseBare(text).size(); });
}

/// What one writes by hand for a list of floats.
int ConvertFloatsByHand(Json::Value const& list) {
    Variant value;
    vq::cfg::FloatList& floats = *value.mutable_float_list();
    floats.mutable_values()->Reserve(static_cast<int>(list.size()));
    for (Json::Value const& element : list) {
        floats.add_values(element.asFloat());
    }
    return floats.values_size();
}

/// What one writes by hand for a map of texts, integers, floats and bools.
int ConvertMapByHand(Json::Value const& map) {
    Variant value;
    vq::cfg::NamedMap& entries = *value.mutable_named_map();
    for (auto member = map.begin(); member != map.end(); ++member) {
        vq::cfg::NamedMapFieldEntry& entry = *entries.add_entries();
        entry.set_name(member.name());
        switch (member->type()) {
            case Json::stringValue:
                entry.mutable_value()->set_string_value(member->asString());
                break;
            case Json::intValue:
                entry.mutable_value()->set_integer_value(member->asInt64());
                break;
            case Json::realValue:
                entry.mutable_value()->set_float_value(member->asFloat());
                break;
            case Json::booleanValue:
                entry.mutable_value()->set_boolean_value(member->asBool());
                break;
            default:
                return -1;
        }
    }
    return entries.entries_size();
}

int Convert(Json::Value const& json) {
    static std::string const name = "value";
    Variant value;
    return ConvertJsonToVariant(name, json, value) ? static_cast<int>(value.value_case()) : -1;
}

Json::Value MakeFloats(int count) {
    Json::Value list(Json::arrayValue);
    for (int index = 0; index < count; ++index) {
        list.append(index + 0.5);
    }
    return list;
}

Json::Value MakeMap(int count) {
    Json::Value map(Json::objectValue);
    for (int index = 0; index < count; ++index) {
        Json::Value& value = map["property" + std::to_string(index)];
        switch (index % 4) {
            case 0:
                value = "some text";
                break;
            case 1:
                value = index;
                break;
            case 2:
                value = index + 0.5;
                break;
            default:
                value = true;
                break;
        }
    }
    return map;
}

template <int Count, std::size_t Batch>
void ConvertList(benchmark::State& state) {
    Json::Value const list = MakeFloats(Count);
    bench::RunTwin(
        state, Batch, [&list] { return ConvertFloatsByHand(list); }, [&list] { return Convert(list); });
}

void ConvertMap(benchmark::State& state) {
    Json::Value const map = MakeMap(20);
    bench::RunTwin(
        state, 100, [&map] { return ConvertMapByHand(map); }, [&map] { return Convert(map); });
}

void ConvertQuiet(benchmark::State& state) {
    Json::Value const map = MakeMap(20);
    bench::RunQuiet(state, 100, [&map] { return ConvertMapByHand(map); });
}

VQ_TWIN("manifest_load", ManifestLoad);
VQ_TWIN("manifest_load_quiet", ManifestLoadQuiet);
VQ_TWIN("json_variant_vec3", (ConvertList<3, 1000>));
VQ_TWIN("json_variant_list100", (ConvertList<100, 100>));
VQ_TWIN("json_variant_map20", ConvertMap);
VQ_TWIN("json_variant_quiet", ConvertQuiet);

}  // namespace
