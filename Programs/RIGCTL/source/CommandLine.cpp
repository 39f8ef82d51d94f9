#include "CommandLine.h"

namespace vq::rigctl {

CLI::App* AddCommand(CLI::App& parent, Request& request, char const* name, char const* what,
                     char const* example, Action action) {
    CLI::App* const command = parent.add_subcommand(name, what);
    command->footer(std::string("Example: RIGCTL ") + example);
    command->require_subcommand(0, 1);
    command->final_callback([&request, command, action = std::move(action)] {
        // A part of the command has set its own by now.
        if (command->get_subcommands().empty()) {
            request.action = action;
        }
    });
    return command;
}

void AddCommonOptions(CLI::App& app, Request& r) {
    CLI::Option* const start = app.add_flag("-s,--start", r.start, "Start the server in the background");
    CLI::Option* const stop = app.add_flag("-k,--kill", r.stop, "Stop the server");
    CLI::Option* const restart = app.add_flag("-r,--restart", r.restart, "Stop it, and start it again");
    start->excludes(stop, restart);
    stop->excludes(restart);
    app.add_option("--address", r.common.address, "The server's address, or port");
    app.add_option("--name", r.common.name, "The server's name in the registry");
    app.add_option("--timeout", r.timeoutMs, "Time limit in milliseconds")->capture_default_str();
    app.add_flag("--json", r.common.json, "One JSON object a line");
    app.add_option("--color", r.common.color, "When to use colours")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    app.footer(
        "Without a command: the state of the server. Example: RIGCTL -s\n"
        "'RIGCTL COMMAND --help' tells of one command, with an example.\n"
        "Exit status: 0 done; 1 refused, or failed; 2 bad command line; 3 no server; 4 no answer in time;\n"
        "5 'doctor' found trouble. 'run' gives the program's own, 127 when it cannot be started.");
}

void AddListings(CLI::App& app, Request& r) {
    AddCommand(app, r, "servers", "The servers in the registry", "servers", &ListServers);
    AddCommand(app, r, "devices", "The devices of the server", "devices --json", &ListDevices);
    AddCommand(app, r, "channels", "The channels, and who serves them", "channels", &ListChannels);
    CLI::App* const mappings = AddCommand(app, r, "mappings", "Which device serves which channel",
                                          "mappings add MyDevice my_channel", &ListMappings);
    for (bool const add : {true, false}) {
        char const* const type = add ? "vq.vds.AddChannelMappings" : "vq.vds.RemoveChannelMappings";
        CLI::App* const change = AddCommand(
            *mappings, r, add ? "add" : "remove", add ? "Let a device serve a channel" : "Let it no longer",
            add ? "mappings add MyDevice my_channel" : "mappings remove MyDevice my_channel",
            [&r, type](Session& s) { return ChangeMapping(s, type, r.target, r.name); });
        change->add_option("DEVICE", r.target)->required();
        change->add_option("CHANNEL", r.name)->required();
    }
    CLI::App* const apps =
        AddCommand(app, r, "apps", "The programs that have registered", "apps --json", &ListApplications);
    AddCommand(*apps, r, "available", "Programs that the server can launch", "apps available",
               &ListAvailable);
    CLI::App* const launch =
        AddCommand(*apps, r, "launch", "Let the server launch a program", "apps launch my_device",
                   [&r](Session& s) { return LaunchApplication(s, r.name, r.text); });
    launch->add_option("PROGRAM", r.name)->required();
    launch->add_option("FILE", r.text, "Its manifest");
    AddCommand(*apps, r, "kill", "Let the server end a program", "apps kill 3",
               [&r](Session& s) { return KillApplication(s, r.count); })
        ->add_option("ID", r.count)
        ->required();
    AddCommand(app, r, "stats", "Statistics of devices", "stats MyDevice", [&r](Session& s) {
        return ListStats(s, r.texts);
    })->add_option("DEVICE", r.texts, "Default: all");
}

}  // namespace vq::rigctl
