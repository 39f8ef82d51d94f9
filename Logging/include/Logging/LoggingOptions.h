#pragma once

#include <string>
#include <vector>

class LogConfig;

// The logging options that every program of ours takes, and a running device by command. Text of the -V
// language is printed by -Vh.

/// Values of the long options in a getopt_long table; the short one, -V, is its letter.
enum LoggingOption : int {
    kVerbosityOption = 'V',
    kConsoleOption = 10000,
    kNoConsoleOption,
    kConsoleColorOption,
    kNoConsoleColorOption,
    kLogfileOption,
    kNoLogfileOption,
    kLogfileColorOption,
    kNoLogfileColorOption,
    kLogfileBufferOption,
    kNoLogfileBufferOption,
    kLogfileMaxsizeOption,
};

/// Applies one option to a configuration. Called from a getopt_long loop, whose state it shares: it looks at
/// optind, and moves it past the path of a log file. One thread at a time in the process.
/// @param option     value of the option; one that is not known is told in an error record, and handled.
/// @param argument   its argument; null for none. The path behind --logfile is taken from argv instead.
/// @param argv       the `argc` elements that getopt_long scans, for that path and for what errors quote.
/// @param helpShown  null, or set when the option asked for the help text.
/// @return false for a bad argument; an error record says why.
bool HandleLoggingOption(int option, char const* argument, int argc, char const* const* argv, bool* helpShown,
                         LogConfig& config);

/// The state of a configuration as arguments for these options. Applied to a fresh configuration they restore
/// the level, the use of colour and the file log, unless the console is off ("c") or its colour is ("C"): the
/// "-" written for that holds on for the letters behind it in the same argument. Whether a console is
/// silenced is not told.
std::vector<std::string> ExportLoggingOptions(LogConfig const& config);
