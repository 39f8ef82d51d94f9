// RIGCTL: shows and steers the servers and devices of this machine.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>

#include "Commands.h"
#include "Logging/LogConfig.h"

using namespace vq::rigctl;

namespace {

using Action = std::function<Status(Session&)>;

/// What the command line has been found to want.
struct Request {
    CommonOptions common;
    unsigned timeoutMs = 2000;
    bool start = false;
    bool stop = false;
    bool restart = false;
    Action action = &ShowStatus;
    // Arguments of the commands.
    std::string target;
    std::string name;
    std::string text;
    Texts texts;
    double hertz = 0;
    unsigned id = 0;
    std::vector<unsigned> ports;
    bool flag = false;
};

CLI::App* Add(CLI::App& app, Request& request, char const* name, char const* what, char const* example,
              Action action) {
    CLI::App* const command = app.add_subcommand(name, what);
    command->footer(std::string("Example: RIGCTL ") + example);
    command->callback([&request, command, action = std::move(action)] {
        // A part of the command has set its own by now.
        if (command->get_subcommands().empty()) {
            request.action = action;
        }
    });
    return command;
}

void AddListings(CLI::App& app, Request& r) {
    Add(app, r, "servers", "The servers in the registry", "servers", &ListServers);
    Add(app, r, "devices", "The devices of the server", "devices --json", &ListDevices);
    Add(app, r, "channels", "The channels, and who serves them", "channels", &ListChannels);
    CLI::App* const mappings =
        Add(app, r, "mappings", "Which device serves which channel",
            "mappings add MockVQ1IdentitySparseDevice identity_feature", &ListMappings);
    for (char const* const verb : {"add", "remove"}) {
        bool const add = verb[0] == 'a';
        CLI::App* const change = mappings->add_subcommand(verb, add ? "Map a channel to a device" : "End it");
        change->add_option("DEVICE", r.target)->required();
        change->add_option("CHANNEL", r.name)->required();
        char const* const type = add ? "vq.vds.AddChannelMappings" : "vq.vds.RemoveChannelMappings";
        change->final_callback([&r, type] {
            r.action = [&r, type](Session& s) { return ChangeMapping(s, type, r.target, r.name); };
        });
    }
    Add(app, r, "apps", "The programs that have registered", "apps --json", &ListApplications);
    CLI::App* const stats = Add(app, r, "stats", "Statistics of devices", "stats MyDevice",
                                [&r](Session& s) { return ListStats(s, r.texts); });
    stats->add_option("DEVICE", r.texts, "Default: all");
}

void AddConfig(CLI::App& app, Request& r) {
    CLI::App* const config = Add(app, r, "config", "Settings of a device", "config MyDevice set Count=3",
                                 [&r](Session& s) { return ListSettings(s, r.target); });
    config->add_option("DEVICE", r.target)->required();
    auto const verb = [&](char const* name, char const* what, Action action) {
        CLI::App* const command = config->add_subcommand(name, what);
        command->final_callback([&r, action = std::move(action)] { r.action = action; });
        return command;
    };
    verb("get", "Show values", [&r](Session& s) { return GetSettings(s, r.target, r.texts); })
        ->add_option("NAME", r.texts)
        ->required();
    verb("set", "Change values", [&r](Session& s) { return SetSettings(s, r.target, r.texts); })
        ->add_option("NAME=VALUE", r.texts)
        ->required();
    CLI::App* const reset = verb("reset", "Go back to the defaults",
                                 [&r](Session& s) { return ResetSettings(s, r.target, r.texts, r.flag); });
    reset->add_option("NAME", r.texts, "Default: all");
    reset->add_flag("--remove", r.flag, "Remove the values instead");
    verb("save", "Write a manifest", [&r](Session& s) { return SaveSettings(s, r.target, r.text); })
        ->add_option("FILE", r.text, "- is standard output")
        ->required();
    verb("load", "Read a manifest", [&r](Session& s) { return LoadSettings(s, r.target, r.text); })
        ->add_option("FILE", r.text, "- is standard input")
        ->required();
}

void AddSteering(CLI::App& app, Request& r) {
    CLI::App* const rate = Add(app, r, "rate", "Steps of a device a second", "rate MyDevice 60", nullptr);
    rate->add_option("DEVICE", r.target)->required();
    CLI::Option* const hertz = rate->add_option("HERTZ", r.hertz, "Default: show it");
    rate->callback([&r, hertz] {
        bool const given = hertz->count() > 0;
        r.action = [&r, given](Session& s) {
            return UpdateRate(s, r.target, given ? std::optional(r.hertz) : std::nullopt);
        };
    });
    CLI::App* const quit = Add(app, r, "quit", "End a device", "quit MyDevice --application",
                               [&r](Session& s) { return QuitDevice(s, r.target, r.flag); });
    quit->add_option("DEVICE", r.target)->required();
    quit->add_flag("--application", r.flag, "End the whole program of the device");
    Add(app, r, "prune", "Drop a device from the server, as if it had fallen silent", "prune MyDevice",
        [&r](Session& s) { return PruneDevice(s, r.target); })
        ->add_option("DEVICE", r.target)
        ->required();
    CLI::App* const call = Add(app, r, "call", "Any request of the protocols, and its answer",
                               "call GetDeviceInfo device=MyDevice", nullptr);
    CLI::Option* const type = call->add_option("TYPE", r.name, "Full name, or its last part");
    call->add_option("FIELD=VALUE", r.texts, "Fields of the request");
    call->add_option("--device", r.target, "Ask this device instead of the server");
    call->add_flag("--list", r.flag, "Show the requests and their fields");
    call->callback([&r, type] {
        if (!r.flag && type->count() == 0) {
            throw CLI::RequiredError("TYPE");
        }
        r.action = [&r](Session& s) { return r.flag ? ListRequests(s) : Call(s, r.name, r.texts, r.target); };
    });
}

void AddRemote(CLI::App& app, Request& r) {
    CLI::App* const remote =
        Add(app, r, "remote", "Headsets behind the device bridge", "remote connect 4711", &ListHeadsets);
    auto const verb = [&](char const* name, char const* what, Action action) {
        CLI::App* const command = remote->add_subcommand(name, what);
        command->final_callback([&r, action = std::move(action)] { r.action = action; });
        return command;
    };
    verb("list", "Show those that the bridge knows", &ListHeadsets);
    CLI::App* const connect = verb("connect", "Let the server make a link to one",
                                   [&r](Session& s) { return ConnectHeadset(s, r.target, r.ports[0]); });
    CLI::App* const disconnect =
        verb("disconnect", "End the link", [&r](Session& s) { return DisconnectHeadset(s, r.target); });
    for (CLI::App* const command : {connect, disconnect}) {
        command->add_option("--device", r.target, "Serial (default: VQ_SERIAL, or the only one)");
    }
    CLI::App* const forwards =
        verb("forwards", "Connect ports of the headset to new ones here, and show both",
             [&r](Session& s) { return ForwardPorts(s, r.ports, r.flag); });
    forwards->add_flag("--reverse", r.flag, "The ports are of this machine, and get new ones on the headset");
    CLI::Range const isPort(1, 65535);
    connect->add_option("PORT", r.ports, "Of the socket server on the headset")
        ->required()
        ->expected(1)
        ->check(isPort);
    forwards->add_option("PORT", r.ports, "Where somebody takes connections")->required()->check(isPort);
}

void AddCommon(CLI::App& app, Request& r) {
    CLI::Option* const start = app.add_flag("-s,--start", r.start, "Start the server in the background");
    CLI::Option* const stop = app.add_flag("-k,--kill", r.stop, "Stop the server");
    CLI::Option* const restart = app.add_flag("-r,--restart", r.restart, "Stop it, and start it again");
    start->excludes(stop, restart);
    stop->excludes(restart);
    app.add_option("--address", r.common.address, "The server's address, or port");
    app.add_option("--name", r.common.name, "The server's name in the registry");
    app.add_option("--timeout", r.timeoutMs, "Time limit in milliseconds")->capture_default_str();
    app.add_flag("--json", r.common.json, "One JSON object a line");
    app.add_option("--color", r.common.color)->check(CLI::IsMember({"auto", "always", "never"}));
    app.footer(
        "Without a command: the state of the server. Example: RIGCTL -s\n"
        "Exit status: 0 done, 1 refused or failed, 2 bad command line, 3 no server, 4 no answer in time.");
}

Status RunRequest(Request const& request) {
    Session session(request.common);
    if (request.restart) {
        return RestartServer(session);
    }
    return request.stop    ? StopServer(session)
           : request.start ? StartServer(session)
                           : request.action(session);
}

}  // namespace

int main(int argc, char** argv) {
    Request request;
    CLI::App app("Shows and steers the servers and devices of this machine.");
    app.fallthrough();
    app.require_subcommand(0, 1);
    AddCommon(app, request);
    AddListings(app, request);
    AddConfig(app, request);
    AddSteering(app, request);
    AddRemote(app, request);
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(Status::BadUsage);
    }
    request.common.timeout = std::chrono::milliseconds(request.timeoutMs);
    request.common.timeoutGiven = app.count("--timeout") > 0;
    // What goes wrong is said in a sentence of our own.
    LogConfig::Instance().SetLogCallback(
        [](LogRecord const& record) { return record.level == LogLevel::Fatal; });
    try {
        return static_cast<int>(RunRequest(request));
    } catch (Failure const& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return static_cast<int>(failure.GetStatus());
    } catch (std::exception const& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return static_cast<int>(Status::Refused);
    }
}
