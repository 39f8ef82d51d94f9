#pragma once

/// Applies command lines that hold logging options.
class LogParameterCLIProcessor {
public:
    /// Applies every logging option among the arguments to the process-wide log and passes over the rest;
    /// what is no option of this kind is told on standard error. Uses getopt_long and its global state: one
    /// thread at a time, and a scan that the program has under way is lost.
    /// @param argv  argv[0] is not looked at; argv[argc] is null. The order of the pointers may change.
    /// @return false at the first bad argument; an error record says why.
    static bool ProcessParams(int argc, char** argv);

    /// Applies the logging options of a program's command line and takes them out, so that the program's own
    /// options are left. Long options must be written in full, and "--" ends the search. Call it from main,
    /// before other threads start.
    /// @param argc       gets the number that is left.
    /// @param argv       as for ProcessParams; gets what is left, in order.
    /// @param helpShown  set when the help text for -V was printed; the program should end then.
    /// @return false at the first bad option; an error record or standard error says why.
    static bool TakeParams(int& argc, char** argv, bool& helpShown);

    /// A line for the end of a program's own help text.
    static char const* GetHelpLine();
};
