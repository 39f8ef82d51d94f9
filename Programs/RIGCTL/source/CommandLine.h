#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "Commands.h"

namespace vq::rigctl {

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
    double number = 0;
    unsigned count = 0;
    std::vector<unsigned> ports;
    bool flag = false;
};

// Each adds commands to the program, which keep a reference to the request. Names of positional arguments
// are what the completion goes by.

void AddCommonOptions(CLI::App& app, Request& request);
/// What there is.
void AddListings(CLI::App& app, Request& request);
/// What is done to one device, and any request at all.
void AddDeviceCommands(CLI::App& app, Request& request);
/// What goes on for a while, and what concerns this machine.
void AddMachineCommands(CLI::App& app, Request& request);

/// Headsets behind the device bridge.
void AddRemoteCommands(CLI::App& app, Request& request);

/// A command, or a part of one.
/// @param example  arguments that make sense
CLI::App* AddCommand(CLI::App& parent, Request& request, char const* name, char const* what,
                     char const* example, Action action);

/// Prints, one a line, what the last word could be. Quiet about whatever goes wrong.
/// @param words  of the command line so far, without the program's name
void Complete(CLI::App const& app, Texts const& words);

}  // namespace vq::rigctl
