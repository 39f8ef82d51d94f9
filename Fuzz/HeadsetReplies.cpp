// What a headset answers, and what the device bridge prints. The first byte says which.

#include "FuzzTarget.h"
#include "Messaging/SocketServerReply.h"
#include "Messaging/VqdbOutput.h"
#include "QuietLog.h"

namespace {

void ReadReply(std::string_view reply) {
    int port = 0;
    bool const isPort = ReadPortReply(reply, port);
    FUZZ_CHECK(isPort ? port >= 1 && port <= 65535 && reply.size() == 5 : port == -1);
    FUZZ_CHECK(ReadPlainReply(reply) == (reply == "ACK"));
    std::string error;
    bool const anyLevel = ReadVersionReply(reply, 0, error);
    FUZZ_CHECK(anyLevel == (IsAck(reply) && reply.size() >= 7));
    FUZZ_CHECK(!anyLevel || error.empty());
    FUZZ_CHECK(anyLevel || !ReadVersionReply(reply, UINT32_MAX, error));
    HandleErrors(reply, error);
    FUZZ_CHECK(IsAck(reply) || error.size() <= reply.size());
}

void ReadDevices(std::string_view output) {
    for (std::string const& serial : ParseVqdbDevices(output)) {
        FUZZ_CHECK(serial.find_first_of("\t\n") == std::string::npos);
        FUZZ_CHECK(output.find(serial + "\t") != std::string_view::npos);
    }
}

void ReadProcesses(std::string_view output) {
    VqdbPackageQuery const query = FindVqdbPackage(output, "com.corvane.tl_server", "");
    FUZZ_CHECK(query.parsed != !query.errors.empty());
    FUZZ_CHECK(query.parsed || (!query.found && !query.unexpectedFormat));
    bool known = false;
    VqdbPackageState const state = ParseVqdbPackageState(query.state, known);
    FUZZ_CHECK(known == (state != VqdbPackageState::NotListed));
}

}  // namespace

void TryInput(std::string_view input) {
    KeepLogQuiet();
    if (!input.empty()) {
        constexpr void (*kReaders[])(std::string_view) = {ReadReply, ReadDevices, ReadProcesses};
        kReaders[static_cast<unsigned char>(input[0]) % 3](input.substr(1));
    }
}
