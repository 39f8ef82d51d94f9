#include "Messaging/SocketServerReply.h"

#include "Logging/Log.h"
#include "Messaging/SocketServerBase.h"

namespace {

/// Length of the word that every reply begins with.
constexpr std::size_t kWordLength = 3;

}  // namespace

bool IsAck(std::string_view reply) {
    return reply.starts_with("ACK");
}

void HandleErrors(std::string_view reply, std::string& error) {
    error = reply.size() >= kWordLength ? reply.substr(kWordLength) : std::string_view();
    if (reply.starts_with("NAK")) {
        LOG_E("Got NAK from server: %s", error.c_str());
    } else if (reply.starts_with("ERR")) {
        LOG_E("Got ERR from server: %s", error.c_str());
    } else if (IsAck(reply)) {
        LOG_E("Got unexpected ACK from server: %s", error.c_str());
        error = "Unexpected content in ACK message: client and server may be different versions";
    } else {
        error = reply;
        LOG_E("Got unknown reply from server: %s", error.c_str());
    }
}

bool HandleErrorsAndLog(std::string_view reply) {
    std::string error;
    HandleErrors(reply, error);
    if (!error.empty()) {
        LOG_E("%s", error.c_str());
    }
    return false;
}

bool ReadPlainReply(std::string_view reply) {
    return (reply.size() == kWordLength && IsAck(reply)) || HandleErrorsAndLog(reply);
}

bool ReadPortReply(std::string_view reply, int& port) {
    bool const expected = reply.size() == kWordLength + sizeof(std::uint16_t) && IsAck(reply);
    port = expected ? SocketServerBase::ReadUint16(reply, kWordLength) : 0;
    if (port == 0) {
        port = -1;
        return HandleErrorsAndLog(reply);
    }
    return true;
}

bool ReadVersionReply(std::string_view reply, std::uint32_t minimumLevel, std::string& error) {
    if (!IsAck(reply)) {
        HandleErrors(reply, error);
        if (error == "Bad VER message") {
            error =
                "The com.corvane.tl_server package on device is out-of-date.  Please install a newer "
                "version.";
        }
        return false;
    }
    if (reply.size() < kWordLength + sizeof(std::uint32_t)) {
        error =
            "Unexpectedly short reply to VER command.  "
            "Verify that Tessel and the com.corvane.tl_server package match.";
        return false;
    }
    std::uint32_t const level = SocketServerBase::ReadUint32(reply, kWordLength);
    if (level < minimumLevel) {
        error = "The device is running an older platform API level (" + std::to_string(level) +
                ") than the minimum level (" + std::to_string(minimumLevel) +
                "). Verify that you are using a Orbis SDK and Tessel compatible with the device image.";
        return false;
    }
    LOG_V("Got ACK from remote");
    return true;
}
