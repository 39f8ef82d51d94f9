#pragma once

#include <string>
#include <vector>

// Remote control of the process's log, for whoever answers requests. Any thread.

/// The process's log as command line arguments that would set it up like this again.
std::vector<std::string> DescribeLogParameters();

/// Applies logging options to the process's log. Uses getopt_long and its global state: a scan that the
/// program has under way meanwhile is lost.
/// @param parameters  elements of a command line, without the program.
/// @param errors      on failure the errors logged meanwhile, by any thread; never empty then.
/// @return false at the first bad option; those before it hold.
bool ApplyLogParameters(std::vector<std::string> const& parameters, std::string& errors);
