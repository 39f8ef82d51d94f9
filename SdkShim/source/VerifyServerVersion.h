#pragma once

class AMessagePipeRequestReply;

namespace vq::SdkShim {

/// Asks the server for its protocol version and says in the log what is wrong with it. Waits up to 5 s to
/// send and 5 s for an answer, twice at most. On the thread that owns the pipe.
/// @param pipe      client to the server; not owned.
/// @param shimName  for the log lines.
/// @return 0 when the shims can work with the server, 4 when its protocol is too new, 2 when it did not tell.
int VerifyServerVersion(AMessagePipeRequestReply* pipe, char const* shimName);

}  // namespace vq::SdkShim
