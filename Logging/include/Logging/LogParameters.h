#pragma once

#include <string>
#include <vector>

// Remote control of the process's log, for whoever answers requests. Any thread.

/// The process's log as command line arguments that would set it up like this again.
std::vector<std::string> DescribeLogParameters();

/// Applies logging options to the process's log. Uses getopt_long and its global state: a scan that the
/// program has under way meanwhile is lost.
/// @param errors  on failure what the log had to say meanwhile, of every thread, never empty.
bool ApplyLogParameters(std::vector<std::string> const& parameters, std::string& errors);
