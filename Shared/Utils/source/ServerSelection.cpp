// Which server a client takes: the user's choice, or what the table offers.

#include <cstdlib>
#include <exception>
#include <string>

#include "Logging/Log.h"
#include "Utils/ServerRegistry.h"

namespace {

constexpr std::chrono::milliseconds kReadTimeout{5000};

MessageAddress AtLocalhost(std::string const& port) {
    return {"localhost:" + port, MessageAddress::Transport::SOCKET, {}};
}

}  // namespace

MessageAddress ServerRegistry::GetUserServerAddress() {
    char const* const variable = std::getenv("VQ_VDS_ADDRESS");
    if (variable == nullptr) {
        return {};
    }
    std::string const value = variable;
    if (MessageAddress address = MessageAddress::FromString(value);
        address.transport != MessageAddress::Transport::NONE) {
        return address;
    }
    try {
        static_cast<void>(std::stoi(value));
    } catch (std::exception const&) {
        LOG_E("Invalid address or port for server: %s", value.c_str());
        return {};
    }
    // The text as it stands: the number was only a test, and letters behind it stay.
    return AtLocalhost(value);
}

MessageAddress ServerRegistry::GetServerAddress() {
    if (MessageAddress chosen = GetUserServerAddress(); chosen.transport != MessageAddress::Transport::NONE) {
        return chosen;
    }
    if (char const* const name = std::getenv("VQ_VDS_NAME"); name != nullptr && *name != '\0') {
        ServerDescriptor server;
        if (!Instance().FindServerByName(name, server, kReadTimeout, nullptr)) {
            LOG_E("No running Tessel server named '%s'", name);
            return {};
        }
        return server.address;
    }
    Servers list;
    if (Instance().GetServers(list, kReadTimeout, nullptr) && !list.empty()) {
        if (list.size() > 1) {
            LOG_W("More than one Tessel server is running: set VQ_VDS_NAME or VQ_VDS_ADDRESS to select one");
        }
        return list.front().address;
    }
    return AtLocalhost(std::to_string(kDefaultServerPort));
}
