#include "Messaging/MessageAddress.h"

#include <array>
#include <cstdlib>
#include <ostream>

#include "Logging/Log.h"

namespace {

constexpr std::array<std::string_view, 4> kTransportWords = {"NONE", "LOOPBACK", "SOCKET", "IPC"};

}  // namespace

std::string MessageAddress::ToString() const {
    auto const index = static_cast<std::size_t>(transport);
    std::string text = index < kTransportWords.size() ? std::string(kTransportWords[index])
                                                      : std::to_string(static_cast<std::int32_t>(transport));
    text.reserve(text.size() + location.size() + logicalName.size() + 2);
    text += ':';
    text += location;
    if (!logicalName.empty()) {
        text += '?';
        text += logicalName;
    }
    return text;
}

MessageAddress MessageAddress::FromString(std::string_view text) {
    std::size_t const colon = text.find(':');
    if (colon == std::string_view::npos) {
        return {};
    }
    std::string_view const word = text.substr(0, colon);
    MessageAddress address;
    std::size_t index = 0;
    while (index < kTransportWords.size() && kTransportWords[index] != word) {
        ++index;
    }
    if (index == kTransportWords.size()) {
        LOG_E("Invalid MessageAddress: %s", std::string(text).c_str());
        return address;
    }
    address.transport = static_cast<Transport>(index);
    std::string_view const rest = text.substr(colon + 1);
    std::size_t const question = rest.find('?');
    address.location = rest.substr(0, question);
    if (question != std::string_view::npos) {
        address.logicalName = rest.substr(question + 1);
    }
    return address;
}

int MessageAddress::ExtractPort() const {
    if (transport != Transport::SOCKET || !logicalName.empty()) {
        return -1;
    }
    std::size_t const colon = location.rfind(':');
    return colon == std::string::npos ? -1 : std::atoi(location.c_str() + colon + 1);
}

std::ostream& operator<<(std::ostream& out, MessageAddress const& address) {
    return out << address.ToString();
}
