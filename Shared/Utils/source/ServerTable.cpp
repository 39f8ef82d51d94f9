#include "ServerTable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>

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

/// Reads as the standard text conversions do: blanks and a sign before the digits, anything behind them.
/// Those conversions take the odd texts, and throw for what is no number.
template <class Number>
Number ReadNumber(std::string_view field, Number (*convert)(std::string const&, std::size_t*, int)) {
    Number number = 0;
    auto const plain = std::from_chars(field.data(), field.data() + field.size(), number);
    return plain.ec == std::errc() ? number : convert(std::string(field), nullptr, 10);
}

/// Fields are tested in their order in the line, which decides what else is logged about a line with two
/// faults.
void ReadServer(Fields const& fields, ServerDescriptor& server) {
    if (fields[0].empty()) {
        throw std::invalid_argument("bad server name");
    }
    server.name = fields[0];
    server.address = ReadAddress(fields[1], "bad server address");
    server.pid = static_cast<std::int32_t>(ReadNumber<long>(fields[2], &std::stol));
    server.heartbeatAddress = ReadAddress(fields[3], "bad heartbeat address");
    server.memoryEventAddress = ReadAddress(fields[4], "bad memory address");
    server.protocol = ReadNumber<int>(fields[5], &std::stoi);
    server.minimumProtocol = ReadNumber<int>(fields[6], &std::stoi);
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
