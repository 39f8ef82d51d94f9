#include "CommandLine.h"

namespace vq::rigctl {

void AddRemoteCommands(CLI::App& app, Request& r) {
    CLI::App* const remote = AddCommand(app, r, "remote", "Headsets behind the device bridge",
                                        "remote connect 4711", &ListHeadsets);
    AddCommand(*remote, r, "list", "Show those that the bridge knows", "remote list", &ListHeadsets);
    CLI::App* const connect =
        AddCommand(*remote, r, "connect", "Let the server make a link to one", "remote connect 4711",
                   [&r](Session& s) { return ConnectHeadset(s, r.target, r.ports[0]); });
    CLI::App* const disconnect = AddCommand(*remote, r, "disconnect", "End the link", "remote disconnect",
                                            [&r](Session& s) { return DisconnectHeadset(s, r.target); });
    for (CLI::App* const command : {connect, disconnect}) {
        command->add_option("--device", r.target, "Serial (default: VQ_SERIAL, or the only one)");
    }
    CLI::App* const forwards = AddCommand(
        *remote, r, "forwards", "Connect ports of the headset to new ones here, and show both",
        "remote forwards 4711 4712", [&r](Session& s) { return ForwardPorts(s, r.ports, r.flag); });
    forwards->add_flag("--reverse", r.flag, "The ports are of this machine, and get new ones on the headset");
    CLI::Range const isPort(1, 65535);
    connect->add_option("PORT", r.ports, "Of the socket server on the headset")
        ->required()
        ->expected(1)
        ->check(isPort);
    forwards->add_option("PORT", r.ports, "Where somebody takes connections")->required()->check(isPort);
}

}  // namespace vq::rigctl
