#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What the device bridge prints, taken apart. No state; any thread.

/// What an application on a headset is doing. NotListed also stands for a state that is not known.
enum class VqdbPackageState : std::int32_t {
    NotReady = 0,
    StartNotReg = 1,
    Running = 2,
    OnPause = 3,
    Paused = 4,
    OnStop = 5,
    SigkillSent = 6,
    NotListed = 7,
};

/// Serials in a list of devices: what stands before the first TAB of each line that has one.
std::vector<std::string> ParseVqdbDevices(std::string_view output);

/// Gives NotListed for a text that it does not know.
/// @param known  told whether it does
VqdbPackageState ParseVqdbPackageState(std::string_view text, bool& known);

/// The state of one package in a list of processes.
struct VqdbPackageQuery {
    bool parsed = false;            ///< the list is a JSON document
    bool unexpectedFormat = false;  ///< an element up to the match, or the whole, is not what it should be
    bool found = false;
    std::string state;   ///< the state's text, when found
    std::string errors;  ///< the parser's messages, when not parsed
};

/// Looks for the first entry whose package and component are exactly these.
VqdbPackageQuery FindVqdbPackage(std::string_view output, std::string_view package,
                                 std::string_view component);
