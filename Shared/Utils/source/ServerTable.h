#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Utils/ServerDescriptor.h"

/// The text of the server table. Each server is one line of seven fields between TABs, closed by a line feed;
/// readers pass over further fields, so that later versions can append some.
namespace ServerTable {

/// What stopped a reader.
struct BadLine {
    enum class Reason { None, TooFewFields, Unparseable } reason = Reason::None;
    std::string text;
};

/// Appends the servers of the text to the list, up to the first bad line.
BadLine Parse(std::string_view text, std::vector<ServerDescriptor>& list);

std::string Format(std::vector<ServerDescriptor> const& list);

}  // namespace ServerTable
