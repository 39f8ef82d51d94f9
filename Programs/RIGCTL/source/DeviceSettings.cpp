#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>

#include "Commands.h"

// The settings of a device.

namespace vq::rigctl {

namespace {

std::string NoSetting(std::string const& device, std::string const& name) {
    return "The device '" + device + "' has no setting '" + name + "'.";
}

/// The one value that a variant holds, whatever its case; nothing when it holds none.
Json::Value PlainValue(Json::Value const& variant) {
    for (std::string const& name : variant.getMemberNames()) {
        Json::Value const& value = variant[name];
        if (!value.isObject()) {
            return value;
        }
        if (value.isMember("values")) {
            return value["values"];
        }
        if (value.isMember("entries")) {
            Json::Value map(Json::objectValue);
            for (Json::Value const& entry : value["entries"]) {
                map[entry["name"].asString()] = PlainValue(entry["value"]);
            }
            return map;
        }
        if (value.isMember("maps")) {
            Json::Value list(Json::arrayValue);
            for (Json::Value const& map : value["maps"]) {
                Json::Value wrapped;
                wrapped["named_map"] = map;
                list.append(PlainValue(wrapped));
            }
            return list;
        }
    }
    return {};
}

/// Limits, and the names that an enumeration has, as far as the type says.
void AddLimits(Json::Value const& common, std::string const& type, Json::Value& row) {
    row["lower_limit"] = row["upper_limit"] = Json::Value();
    row["choices"] = Json::Value(Json::arrayValue);
    for (Json::Value const& simple : common["simple_types"]) {
        if (simple["name"].asString() == type) {
            row["lower_limit"] = PlainValue(simple["lower_limit"]);
            row["upper_limit"] = PlainValue(simple["upper_limit"]);
        }
    }
    for (Json::Value const& enumeration : common["enumerations"]) {
        if (enumeration["name"].asString() == type) {
            for (Json::Value const& enumerant : enumeration["enumerants"]) {
                row["choices"].append(enumerant["name"]);
            }
        }
    }
}

/// The device's settings by name, and the properties that declare them.
std::map<std::string, Json::Value> ReadSettings(Session& session, std::string const& device) {
    Json::Value const info = session.AskDevice(device, "vq.sd.GetConfigurationPropertyInfo")["info"];
    std::map<std::string, Json::Value> rows;
    auto const rowOf = [&rows](std::string const& name) -> Json::Value& {
        Json::Value& row = rows[name];
        if (row.isNull()) {
            row["name"] = name;
            row["type"] = row["label"] = row["description"] = "";
            row["default"] = row["value"] = Json::Value();
            row["declared"] = false;
        }
        return row;
    };
    for (Json::Value const& property : info["properties"]) {
        Json::Value const& common = property["common"];
        Json::Value& row = rowOf(common["name"].asString());
        row["declared"] = true;
        row["type"] = common["type"];
        row["label"] = common.get("label", "");
        row["description"] = common.get("description", "");
        row["default"] = PlainValue(common["default_value"]);
    }
    for (Json::Value const list = session.AskDevice(device, "vq.sd.GetDeviceConfiguration")["settings"];
         Json::Value const& setting : list) {
        rowOf(setting["name"].asString())["value"] = PlainValue(setting["value"]);
    }
    for (auto& [name, row] : rows) {
        if (row["value"].isNull()) {
            row["value"] = row["default"];  // as the device itself reads it
        }
        AddLimits(info["common"], row["type"].asString(), row);
    }
    return rows;
}

}  // namespace

Texts SettingNames(Session& session, std::string const& device) {
    Texts names;
    for (auto const& [name, row] : ReadSettings(session, device)) {
        names.push_back(name);
    }
    return names;
}

namespace {

/// Label of a device as the server knows it.
std::string LabelOf(Session& session, std::string const& device) {
    Json::Value question;
    question["device"] = device;
    return session.Ask("vq.vds.GetDeviceInfo", question)["info"]["display_name"].asString();
}

}  // namespace

Status ListSettings(Session& session, std::string const& device) {
    std::vector<Json::Value> rows;
    for (auto const& [name, row] : ReadSettings(session, device)) {
        rows.push_back(row);
    }
    session.Out().List({{"NAME", "name"},
                        {"VALUE", "value"},
                        {"DEFAULT", "default"},
                        {"TYPE", "type"},
                        {"FROM", "lower_limit"},
                        {"TO", "upper_limit"},
                        {"CHOICES", "choices"},
                        {"LABEL", "label"}},
                       rows);
    return Status::Done;
}

Status GetSettings(Session& session, std::string const& device, Texts const& names) {
    std::map<std::string, Json::Value> const rows = ReadSettings(session, device);
    for (std::string const& name : names) {
        auto const found = rows.find(name);
        if (found == rows.end()) {
            throw Failure(Status::Refused, NoSetting(device, name));
        }
        if (session.Out().IsJson()) {
            session.Out().Object(found->second);
        } else {
            session.Out().Line(TextOf(found->second["value"]));
        }
    }
    return Status::Done;
}

Status SetSettings(Session& session, std::string const& device, Texts const& settings) {
    Json::Value fields;
    for (std::string const& text : settings) {
        std::size_t const equals = text.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw Failure(Status::BadUsage, "'" + text + "' is not of the form NAME=VALUE.");
        }
        Json::Value setting;
        setting["name"] = text.substr(0, equals);
        setting["value"]["string_value"] = text.substr(equals + 1);
        fields["settings"].append(setting);
    }
    session.AskDevice(device, "vq.sd.SetDeviceConfiguration", fields);
    return Status::Done;
}

Status ResetSettings(Session& session, std::string const& device, Texts const& names, bool remove) {
    Json::Value fields;
    fields["remove"] = remove;
    for (std::string const& name : names.empty() ? SettingNames(session, device) : names) {
        fields["names"].append(name);
    }
    session.AskDevice(device, "vq.sd.ResetDeviceConfiguration", fields);
    return Status::Done;
}

Status SaveSettings(Session& session, std::string const& device, std::string const& path) {
    Json::Value fields;
    fields["name"] = device;
    fields["label"] = LabelOf(session, device);
    fields["settings"] = session.AskDevice(device, "vq.sd.GetDeviceConfiguration")["settings"];
    std::string const text =
        session.AskDevice(device, "vq.sd.SerializeDeviceConfiguration", fields)["text"].asString();
    if (path == "-") {
        std::fputs(text.c_str(), stdout);
        return Status::Done;
    }
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file) {
        throw Failure(Status::Refused, "Cannot write '" + path + "'.");
    }
    return Status::Done;
}

Status LoadSettings(Session& session, std::string const& device, std::string const& path) {
    std::ifstream file;
    if (path != "-") {
        file.open(path);
        if (!file) {
            throw Failure(Status::Refused, "Cannot read '" + path + "'.");
        }
    }
    std::istream& input = path == "-" ? std::cin : file;
    Json::Value fields;
    fields["text"] = std::string(std::istreambuf_iterator<char>(input), {});
    Json::Value const read = session.AskDevice(device, "vq.sd.DeserializeDeviceConfiguration", fields);
    Json::Value settings;
    settings["settings"] = read["settings"];
    session.AskDevice(device, "vq.sd.SetDeviceConfiguration", settings);
    return Status::Done;
}

}  // namespace vq::rigctl
