// Where things are: addresses, the table of servers, and headers of events. The first byte says which.

#include "FuzzTarget.h"
#include "Messaging/EventHeader.h"
#include "Messaging/MessageAddress.h"
#include "QuietLog.h"
#include "ServerTable.h"
#include "Utils/PathText.h"

namespace {

void ReadAddress(std::string_view text) {
    MessageAddress const address = MessageAddress::FromString(text);
    FUZZ_CHECK(MessageAddress::FromString(address.ToString()) == address);
    FUZZ_CHECK(address.transport == MessageAddress::Transport::SOCKET || address.ExtractPort() == -1);
}

/// What was read of a table is written in a form that is read as the same.
void ReadTable(std::string_view text) {
    std::vector<ServerDescriptor> servers;
    ServerTable::Parse(text, servers);
    std::string const table = ServerTable::Format(servers);
    std::vector<ServerDescriptor> again;
    FUZZ_CHECK(ServerTable::Parse(table, again).reason == ServerTable::BadLine::Reason::None);
    FUZZ_CHECK(again.size() == servers.size() && ServerTable::Format(again) == table);
}

void ReadHeader(std::string_view frame) {
    auto const header = EventHeader::Parse(frame);
    FUZZ_CHECK(!header || header->type.size() + header->channel.size() + 6 == frame.size());
}

void ReadPath(std::string_view path) {
    FUZZ_CHECK(GetFileNameOf(path) == GetFileNameView(path));
    FUZZ_CHECK(EndsInSlash(GetDirectoryOf(path)) && EndsInSlash(EnsureDirectoryPath(path)));
    FUZZ_CHECK(GetBaseNameOf(path).size() <= path.size());
    FUZZ_CHECK(EnsureExecutableExtension(path, ".x").find('.') != std::string::npos);
}

}  // namespace

void TryInput(std::string_view input) {
    KeepLogQuiet();
    if (!input.empty()) {
        constexpr void (*kReaders[])(std::string_view) = {ReadAddress, ReadTable, ReadHeader, ReadPath};
        kReaders[static_cast<unsigned char>(input[0]) % 4](input.substr(1));
    }
}
