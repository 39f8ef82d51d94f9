#include "ServerTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>

namespace {

constexpr std::size_t kFieldCount = 7;
using Fields = std::array<std::string_view, kFieldCount>;

/// Takes the first seven fields. Two TABs in a row give an empty field; one at the very end gives no further
/// field.
bool SplitFields(std::string_view line, Fields& fields) {
    std::size_t count = 0;
    while (count < fields.size() && !line.empty()) {
        std::size_t const tab = line.find('\t');
        fields[count++] = line.substr(0, tab);
        line = tab == std::string_view::npos ? std::string_view() : line.substr(tab + 1);
    }
    return count == fields.size();
}

MessageAddress ReadAddress(std::string_view field, char const* complaint) {
    MessageAddress address = MessageAddress::FromString(field);
    if (address.transport == MessageAddress::Transport::NONE) {
        throw std::invalid_argument(complaint);
    }
    return address;
}

std::int32_t ReadInt(std::string_view field) {
    return std::stoi(std::string(field));
}

/// Fields are tested in their order in the line, which decides what else is logged about a line with two
/// faults.
void ReadServer(Fields const& fields, ServerDescriptor& server) {
    if (fields[0].empty()) {
        throw std::invalid_argument("bad server name");
    }
    server.name = fields[0];
    server.address = ReadAddress(fields[1], "bad server address");
    server.pid = static_cast<std::int32_t>(std::stol(std::string(fields[2])));
    server.heartbeatAddress = ReadAddress(fields[3], "bad heartbeat address");
    server.memoryEventAddress = ReadAddress(fields[4], "bad memory address");
    server.protocol = ReadInt(fields[5]);
    server.minimumProtocol = ReadInt(fields[6]);
}

}  // namespace

ServerTable::BadLine ServerTable::Parse(std::string_view text, std::vector<ServerDescriptor>& list) {
    list.reserve(list.size() + static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
    while (!text.empty()) {
        std::size_t const end = text.find('\n');
        std::string_view const line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (line.empty()) {
            continue;
        }
        Fields fields;
        if (!SplitFields(line, fields)) {
            return {BadLine::Reason::TooFewFields, std::string(line)};
        }
        ServerDescriptor& server = list.emplace_back();
        try {
            ReadServer(fields, server);
        } catch (std::exception const&) {
            list.pop_back();
            return {BadLine::Reason::Unparseable, std::string(line)};
        }
    }
    return {};
}

std::string ServerTable::Format(std::vector<ServerDescriptor> const& list) {
    std::string text;
    for (ServerDescriptor const& server : list) {
        text += server.name + '\t';
        text += server.address.ToString() + '\t';
        text += std::to_string(server.pid) + '\t';
        text += server.heartbeatAddress.ToString() + '\t';
        text += server.memoryEventAddress.ToString() + '\t';
        text += std::to_string(server.protocol) + '\t';
        text += std::to_string(server.minimumProtocol) + '\n';
    }
    return text;
}
