#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace vq {

/// Version of the project, such as "1.2.3". A static text.
char const* GetProgramVersion();

/// Where a data file of the programs lies: in the data directory (GetDataRootPath), else where an
/// installation puts it, seen from the program.
/// @param file  name without a directory.
/// @return the directory, with a slash at its end; that of GetDataRootPath when the file is in neither.
std::string FindDataDirectory(std::string const& file);

/// Gives a program the option --version, which prints the name and the version and ends it.
/// @param name  of the program.
void AddVersionOption(CLI::App& commandLine, std::string const& name);

}  // namespace vq
