#pragma once

#include <chrono>
#include <utility>

#include "Messaging/MessageUtils.h"
#include "SparseDeviceHelpers/RpcReply.h"

class AMessagePipeRequestReply;

namespace vq {

/// One request to a device and its reply. Runs on the thread that owns the pipe.
/// @tparam M  the request's message, whose nested Reply answers it.
template <class M>
class RpcCommand {
public:
    /// @param pipe  not owned, not null.
    RpcCommand(AMessagePipeRequestReply* pipe, M request) : m_pipe(pipe), m_request(std::move(request)) {}

    /// Sends the request and waits for the answer; each of the two may take the whole timeout.
    /// @return true when the typed reply came. Otherwise the error holds the provider's text, or our own when
    ///         nothing could be sent, or nothing when no answer came.
    bool Execute(std::chrono::milliseconds timeout) {
        if (!MessageUtils::Send(m_pipe, m_request, timeout, nullptr)) {
            m_error.set_message("Communications error");
            return false;
        }
        if (!MessageUtils::ReceiveOneOf(m_pipe, m_reply, m_error, timeout, nullptr)) {
            m_error.Clear();
            return false;
        }
        return !m_error.has_message();
    }

    typename M::Reply& Reply() { return m_reply; }
    vds::Error& Error() { return m_error; }

private:
    AMessagePipeRequestReply* const m_pipe;
    M m_request;
    typename M::Reply m_reply;
    vds::Error m_error;
};

/// Carries a request out on a pipe. Blocks for up to twice the timeout, on the thread that owns the pipe.
/// @param message  by value, so that a caller that is done with it can move it in.
/// @param pipe     not owned; null fails.
template <class M>
RpcReply<typename M::Reply> RpcCommand_CreateAndSend(M message, AMessagePipeRequestReply* pipe,
                                                     std::chrono::milliseconds timeout) {
    using Result = RpcReply<typename M::Reply>;
    if (pipe == nullptr) {
        return Result::Failed("RpcPipe is nullptr");
    }
    RpcCommand<M> command(pipe, std::move(message));
    Result result;
    result.success = command.Execute(timeout);
    if (result.success) {
        result.reply = std::move(command.Reply());
    } else {
        result.error = std::move(command.Error());
    }
    return result;
}

}  // namespace vq
