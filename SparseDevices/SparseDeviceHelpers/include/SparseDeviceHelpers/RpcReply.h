#pragma once

#include "ServerRequests.pb.h"

namespace vq {

/// What came of one command: the typed reply when `success`, otherwise `error`, whose text may be empty.
template <class R>
struct RpcReply {
    R reply;
    vds::Error error;
    bool success = false;

    /// A command that failed before anything was sent.
    static RpcReply Failed(char const* text) {
        RpcReply failed;
        failed.error.set_message(text);
        return failed;
    }
};

}  // namespace vq
