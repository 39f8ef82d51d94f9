#pragma once

#include <string>
#include <vector>

// Remote control of the process's log, for whoever answers requests.

/// The process's log as command line arguments that would set it up like this again. Any thread.
std::vector<std::string> DescribeLogParameters();

/// Applies logging options to the process's log. One thread at a time in the process, as getopt is used.
/// @param errors  on failure what the log had to say meanwhile, of every thread, never empty.
bool ApplyLogParameters(std::vector<std::string> const& parameters, std::string& errors);
