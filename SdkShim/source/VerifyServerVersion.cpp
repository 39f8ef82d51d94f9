#include "VerifyServerVersion.h"

#include <chrono>

#include "Logging/Log.h"
#include "Messaging/MessageUtils.h"
#include "ProtocolVersion.h"
#include "ServerRequests.pb.h"

namespace vq::SdkShim {

namespace {

constexpr std::chrono::milliseconds kTimeout{5000};
constexpr int kCompatible = 0;
constexpr int kUnknown = 2;
constexpr int kTooNew = 4;

/// Something answers, but not to the question for its protocol: tell the user if it is the older remote tool.
void ReportWrongTool(AMessagePipeRequestReply* pipe, char const* shimName) {
    vds::GetVersion::Reply reply;
    if (MessageUtils::SendReceive(pipe, vds::GetVersion(), reply, kTimeout, nullptr)) {
        LOG_E(
            "[%s Shim] It looks like VQ Remote is running.  These Tessel shim libraries only work with The "
            "Bench.",
            shimName);
    }
}

}  // namespace

int VerifyServerVersion(AMessagePipeRequestReply* pipe, char const* shimName) {
    vds::GetProtocolVersion::Reply reply;
    bool timedOut = false;
    if (!MessageUtils::SendReceive(pipe, vds::GetProtocolVersion(), reply, kTimeout, &timedOut)) {
        if (!timedOut) {
            ReportWrongTool(pipe, shimName);
        }
        LOG_E("[%s Shim] Failed to fetch protocol version from VDS", shimName);
        return kUnknown;
    }
    int const version = static_cast<int>(reply.protocol_version());
    if (version > kProtocolVersion) {
        LOG_E("[%s Shim] Tessel protocol version is too new for these TL shims / support libraries (%d > %d)",
              shimName, version, kProtocolVersion);
        return kTooNew;
    }
    return kCompatible;
}

}  // namespace vq::SdkShim
