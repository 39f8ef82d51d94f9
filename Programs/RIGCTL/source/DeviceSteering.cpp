#include "Codec.h"
#include "Commands.h"

// Commands to one device, and any request at all.

namespace vq::rigctl {

Status UpdateRate(Session& session, std::string const& device, std::optional<double> hertz) {
    if (hertz) {
        Json::Value fields;
        fields["hertz"] = *hertz;
        session.AskDevice(device, "vq.sd.SetDeviceMaximumUpdateRate", fields);
        return Status::Done;
    }
    Json::Value row;
    row["device"] = device;
    row["hertz"] = session.AskDevice(device, "vq.sd.GetDeviceMaximumUpdateRate")["hertz"];
    session.Out().List({{"DEVICE", "device"}, {"HERTZ", "hertz"}}, {row});
    return Status::Done;
}

Status QuitDevice(Session& session, std::string const& device, bool application) {
    session.AskDevice(device, application ? "vq.sd.QuitApplication" : "vq.sd.QuitDevice");
    return Status::Done;
}

Status PruneDevice(Session& session, std::string const& device) {
    Json::Value fields;
    fields["device"] = device;
    session.Ask("vq.vds.PruneDevice", fields);
    return Status::Done;
}

Status LogParameters(Session& session, std::string const& target, Texts const& parameters) {
    bool const server = target == "server";
    auto const ask = [&](char const* command, Json::Value const& fields) {
        return server ? session.Ask(std::string("vq.vds.") + command, fields)
                      : session.AskDevice(target, std::string("vq.sd.") + command, fields);
    };
    if (!parameters.empty()) {
        Json::Value fields;
        for (std::string const& parameter : parameters) {
            fields["parameters"].append(parameter);
        }
        ask("SetLogParameters", fields);
        return Status::Done;
    }
    Json::Value row;
    row["target"] = target;
    row["parameters"] = ask("GetLogParameters", Json::Value(Json::objectValue))["parameters"];
    if (session.Out().IsJson()) {
        session.Out().Object(row);
    } else {
        std::string line;
        for (Json::Value const& parameter : row["parameters"]) {
            line.append(line.empty() ? "" : " ").append(parameter.asString());
        }
        if (line.empty()) {
            Output::Progress("No parameter differs from its default.");
        }
        session.Out().Line(line);
    }
    return Status::Done;
}

namespace {

/// The full name that a user means by the whole or the last part of it. A device serves the requests of one
/// package, and the server those of the other.
MessageType const& FindRequest(std::string const& name, bool ofDevice) {
    Schema const& schema = Schema::Instance();
    std::string const package = ofDevice ? "vq.sd." : "vq.vds.";
    for (std::string const& full : {name, package + name}) {
        if (schema.FindMessage(full + ".Reply") != nullptr) {
            return *schema.FindMessage(full);
        }
    }
    throw Failure(Status::BadUsage,
                  "There is no request '" + name + "': 'RIGCTL call --list' shows those that there are.");
}

void PrintTree(Output const& output, Json::Value const& value, std::size_t depth) {
    std::string const indent(2 * depth, ' ');
    for (std::string const& name : value.getMemberNames()) {
        Json::Value const& member = value[name];
        bool const isTree =
            member.isObject() || (member.isArray() && !member.empty() && member[0].isObject());
        if (!isTree) {
            output.Line(std::string(indent).append(name).append(": ").append(TextOf(member)));
        } else if (member.isObject()) {
            output.Line(std::string(indent).append(name).append(":"));
            PrintTree(output, member, depth + 1);
        } else {
            for (Json::Value const& element : member) {
                output.Line(std::string(indent).append(name).append(":"));
                PrintTree(output, element, depth + 1);
            }
        }
    }
}

}  // namespace

Status Call(Session& session, std::string const& name, Texts const& arguments, std::string const& device) {
    MessageType const& type = FindRequest(name, !device.empty());
    Json::Value fields(Json::objectValue);
    for (std::string const& argument : arguments) {
        AddField(type, argument, fields);
    }
    // What is wrong with the fields shows before anybody is asked.
    Encode(type, fields);
    Json::Value const reply =
        device.empty() ? session.Ask(type.name, fields) : session.AskDevice(device, type.name, fields);
    if (session.Out().IsJson()) {
        session.Out().Object(reply);
    } else {
        PrintTree(session.Out(), reply, 0);
    }
    return Status::Done;
}

Status ListRequests(Session& session) {
    std::vector<Json::Value> rows;
    for (std::string const& name : Schema::Instance().Requests()) {
        Json::Value row;
        row["request"] = name;
        row["fields"] = DescribeFields(*Schema::Instance().FindMessage(name));
        rows.push_back(row);
    }
    session.Out().List({{"REQUEST", "request"}, {"FIELDS", "fields"}}, rows);
    return Status::Done;
}

}  // namespace vq::rigctl
