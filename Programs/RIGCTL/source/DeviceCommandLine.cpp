#include "CommandLine.h"

namespace vq::rigctl {

namespace {

void AddConfig(CLI::App& app, Request& r) {
    CLI::App* const config =
        AddCommand(app, r, "config", "Settings of a device, with types and limits",
                   "config MyDevice set Count=3", [&r](Session& s) { return ListSettings(s, r.target); });
    config->add_option("DEVICE", r.target)->required();
    AddCommand(*config, r, "get", "Show values", "config MyDevice get Count",
               [&r](Session& s) { return GetSettings(s, r.target, r.texts); })
        ->add_option("NAME", r.texts)
        ->required();
    AddCommand(*config, r, "set", "Change values", "config MyDevice set Count=3 Label=left",
               [&r](Session& s) { return SetSettings(s, r.target, r.texts); })
        ->add_option("NAME=VALUE", r.texts)
        ->required();
    CLI::App* const reset =
        AddCommand(*config, r, "reset", "Go back to the defaults", "config MyDevice reset Count",
                   [&r](Session& s) { return ResetSettings(s, r.target, r.texts, r.flag); });
    reset->add_option("NAME", r.texts, "Default: all");
    reset->add_flag("--remove", r.flag, "Remove the values instead");
    AddCommand(*config, r, "save", "Write a manifest", "config MyDevice save my_device.json",
               [&r](Session& s) { return SaveSettings(s, r.target, r.text); })
        ->add_option("FILE", r.text, "- is standard output")
        ->required();
    AddCommand(*config, r, "load", "Read a manifest", "config MyDevice load my_device.json",
               [&r](Session& s) { return LoadSettings(s, r.target, r.text); })
        ->add_option("FILE", r.text, "- is standard input")
        ->required();
}

void AddCall(CLI::App& app, Request& r) {
    CLI::App* const call = AddCommand(
        app, r, "call", "Any request of the protocols, and its answer", "call GetDeviceInfo device=MyDevice",
        [&r](Session& s) { return r.flag ? ListRequests(s) : Call(s, r.name, r.texts, r.target); });
    CLI::Option* const type = call->add_option("TYPE", r.name, "Full name, or its last part");
    call->add_option("FIELD=VALUE", r.texts,
                     "Fields of the request; FIELD.INNER=VALUE, or JSON for a message");
    call->add_option("--device", r.target, "Ask this device instead of the server");
    CLI::Option* const list = call->add_flag("--list", r.flag, "Show the requests and their fields");
    call->parse_complete_callback([type, list] {
        if (list->count() == 0 && type->count() == 0) {
            throw CLI::RequiredError("TYPE");
        }
    });
}

}  // namespace

void AddDeviceCommands(CLI::App& app, Request& r) {
    AddConfig(app, r);
    CLI::App* const log = AddCommand(app, r, "log", "Log parameters of a device, or of the server",
                                     "log MyDevice -- -V verbose --logfile /tmp/my.log",
                                     [&r](Session& s) { return LogParameters(s, r.target, r.texts); });
    log->add_option("DEVICE", r.target, "Or 'server'")->required();
    log->add_option("PARAMETER", r.texts, "Logging options to set, behind '--'; default: show them");
    CLI::App* const rate =
        AddCommand(app, r, "rate", "Steps of a device a second", "rate MyDevice 60", nullptr);
    rate->add_option("DEVICE", r.target)->required();
    CLI::Option* const hertz = rate->add_option("HERTZ", r.number, "Default: show it");
    rate->final_callback([&r, hertz] {
        bool const given = hertz->count() > 0;
        r.action = [&r, given](Session& s) {
            return UpdateRate(s, r.target, given ? std::optional(r.number) : std::nullopt);
        };
    });
    CLI::App* const quit = AddCommand(app, r, "quit", "End a device", "quit MyDevice --application",
                                      [&r](Session& s) { return QuitDevice(s, r.target, r.flag); });
    quit->add_option("DEVICE", r.target)->required();
    quit->add_flag("--application", r.flag, "End the whole program of the device");
    AddCommand(app, r, "prune", "Drop a device from the server, as if it had fallen silent", "prune MyDevice",
               [&r](Session& s) { return PruneDevice(s, r.target); })
        ->add_option("DEVICE", r.target)
        ->required();
    AddCall(app, r);
}

}  // namespace vq::rigctl
