#include <algorithm>

#include "Commands.h"

// What there is: servers, devices, channels, mappings, applications. The keys of the rows are part of the
// program's interface.

namespace vq::rigctl {

namespace {

Json::Value MappingOf(std::string const& device, std::string const& channel) {
    Json::Value fields;
    fields["mappings"][0]["device"] = device;
    fields["mappings"][0]["channel"] = channel;
    return fields;
}

bool Answers(ServerDescriptor const& line, Clock::time_point deadline) {
    if (!Session::IsAlive(line.pid)) {
        return false;
    }
    try {
        Peer(line.address.ToString(), line.name).Ask("vq.vds.Ping", deadline);
        return true;
    } catch (Failure const&) {
        return false;
    }
}

/// Ids of devices to names; of one that is gone its number.
Json::Value NamesOf(Json::Value const& ids, Json::Value const& devices) {
    Json::Value names(Json::arrayValue);
    for (Json::Value const& id : ids) {
        auto const found =
            std::ranges::find_if(devices, [&](Json::Value const& device) { return device["id"] == id; });
        names.append(found != devices.end() ? (*found)["name"] : Json::Value(id.asString()));
    }
    return names;
}

Json::Value ApplicationRow(Json::Value const& info, char const* kind, Json::Value const& devices) {
    Json::Value row;
    row["kind"] = kind;
    row["id"] = info["application_id"];
    row["devices"] = NamesOf(info["device_ids"], devices);
    return row;
}

}  // namespace

Status ListServers(Session& session) {
    std::vector<ServerDescriptor> const lines = ReadRegistry(session.Deadline()).lines;
    std::vector<Json::Value> rows;
    // All of them within the one time limit, and each with a fair part of it.
    Clock::duration const share =
        (session.Deadline() - Clock::now()) / static_cast<int>(std::max<std::size_t>(lines.size(), 1));
    for (ServerDescriptor const& line : lines) {
        Json::Value row;
        row["name"] = line.name;
        row["address"] = line.address.ToString();
        row["process"] = line.pid;
        row["protocol"] = line.protocol;
        row["minimum_protocol"] = line.minimumProtocol;
        row["answers"] = Answers(line, Clock::now() + share);
        rows.push_back(row);
    }
    session.Out().List({{"NAME", "name"},
                        {"ADDRESS", "address"},
                        {"PROCESS", "process"},
                        {"PROTOCOL", "protocol"},
                        {"ANSWERS", "answers"}},
                       rows);
    return Status::Done;
}

Status ListDevices(Session& session) {
    std::vector<Json::Value> rows;
    for (Json::Value const list = session.Ask("vq.vds.GetDeviceInfos")["infos"];
         Json::Value const& info : list) {
        Json::Value row;
        row["id"] = info["id"];
        row["name"] = info["name"];
        row["label"] = info["display_name"];
        row["type"] = info["type"];
        row["ready"] = info["flag_7"];
        row["producers"] = info["producer_channels"];
        row["observers"] = info["observer_channels"];
        row["application"] = info["process_id"];
        row["shim_process"] = info["second_process_id"];
        rows.push_back(row);
    }
    session.Out().List({{"ID", "id"},
                        {"NAME", "name"},
                        {"TYPE", "type"},
                        {"READY", "ready"},
                        {"PRODUCES", "producers"},
                        {"OBSERVES", "observers"},
                        {"LABEL", "label"}},
                       rows);
    return Status::Done;
}

Status ListChannels(Session& session) {
    Json::Value const infos = session.Ask("vq.vds.GetChannelInfos")["infos"];
    Json::Value const mappings = session.Ask("vq.vds.GetChannelMappings")["mappings"];
    std::vector<Json::Value> rows;
    for (Json::Value const& info : infos) {
        Json::Value row;
        row["id"] = info["id"];
        row["name"] = info["name"];
        row["type"] = info["text_4"];
        row["default_producer"] = info["text_5"];
        row["resizable"] = info["flag_6"];
        row["visible"] = info["flag_7"];
        row["served_by"] = Json::Value(Json::arrayValue);
        for (Json::Value const& mapping : mappings) {
            if (mapping["channel"] == info["name"]) {
                row["served_by"].append(mapping["device"]);
            }
        }
        rows.push_back(row);
    }
    session.Out().List({{"ID", "id"}, {"NAME", "name"}, {"TYPE", "type"}, {"SERVED BY", "served_by"}}, rows);
    return Status::Done;
}

Status ListMappings(Session& session) {
    std::vector<Json::Value> rows;
    for (Json::Value const list = session.Ask("vq.vds.GetChannelMappings")["mappings"];
         Json::Value const& mapping : list) {
        rows.push_back(mapping);
    }
    session.Out().List({{"CHANNEL", "channel"}, {"DEVICE", "device"}}, rows);
    return Status::Done;
}

Status ChangeMapping(Session& session, std::string const& request, std::string const& device,
                     std::string const& channel) {
    session.Ask(request, MappingOf(device, channel));
    return Status::Done;
}

Status ListApplications(Session& session) {
    Json::Value const devices = session.Ask("vq.vds.GetDeviceInfos")["infos"];
    std::vector<Json::Value> rows;
    for (Json::Value const list = session.Ask("vq.vds.GetDeviceApplicationInfos")["infos"];
         Json::Value const& info : list) {
        Json::Value row = ApplicationRow(info, "device", devices);
        row["name"] = info["description"]["field_1"];
        row["label"] = info["description"]["field_2"];
        row["process"] = info["description"]["field_7"];
        row["ready"] = info["initialized"];
        rows.push_back(row);
    }
    for (Json::Value const list = session.Ask("vq.vds.GetVQSDKApplicationInfos")["infos"];
         Json::Value const& info : list) {
        Json::Value row = ApplicationRow(info, "sdk", devices);
        row["name"] = info["description"]["name"];
        row["label"] = info["description"]["name"];
        row["process"] = info["description"]["process_id"];
        row["ready"] = true;
        rows.push_back(row);
    }
    session.Out().List({{"ID", "id"},
                        {"KIND", "kind"},
                        {"NAME", "name"},
                        {"PROCESS", "process"},
                        {"READY", "ready"},
                        {"DEVICES", "devices"}},
                       rows);
    return Status::Done;
}

Status ListAvailable(Session& session) {
    std::vector<Json::Value> rows;
    for (Json::Value const list = session.Ask("vq.vds.GetAvailableDeviceApplications")["applications"];
         Json::Value const& name : list) {
        Json::Value row;
        row["name"] = name;
        rows.push_back(row);
    }
    session.Out().List({{"NAME", "name"}}, rows);
    return Status::Done;
}

Status LaunchApplication(Session& session, std::string const& name, std::string const& manifest) {
    Json::Value fields;
    fields["application"] = name;
    fields["flag_3"] = false;
    if (!manifest.empty()) {
        fields["text_2"] = manifest;
    }
    Json::Value row;
    row["process"] = session.Ask("vq.vds.LaunchDeviceApplication", fields)["process_id"];
    session.Out().List({{"PROCESS", "process"}}, {row});
    return Status::Done;
}

Status KillApplication(Session& session, unsigned id) {
    Json::Value fields;
    fields["application_id"] = id;
    session.Ask("vq.vds.KillDeviceApplication", fields);
    return Status::Done;
}

}  // namespace vq::rigctl
