#pragma once

#include <chrono>

#include "Logging/Log.h"
#include "Messaging/MessageUtils.h"

/// A server that takes longer than this to take a request, or to answer it, counts as gone.
inline constexpr std::chrono::milliseconds kServerTimeout{15000};

/// One request to the server on a pipe that must be there and not disposed, or the process ends.
template <class Request, class Reply>
bool ExchangeWithServer(AMessagePipeRequestReply* pipe, Request const& request, Reply& reply,
                        std::chrono::milliseconds timeout = kServerTimeout) {
    VQ_CHECK(pipe != nullptr && !pipe->IsDisposed());
    bool timedOut = false;
    return MessageUtils::SendReceive(pipe, request, reply, timeout, &timedOut);
}

/// The same for a request with an error type of its own: that one counts as an answer.
/// @param timedOut  may be null. Set when the server was silent: the pipe then waits for that answer, and no
///                  later exchange on it succeeds.
template <class Request, class Reply, class Error>
bool ExchangeWithServer(AMessagePipeRequestReply* pipe, Request const& request, Reply& reply, Error& error,
                        std::chrono::milliseconds timeout = kServerTimeout, bool* timedOut = nullptr) {
    VQ_CHECK(pipe != nullptr && !pipe->IsDisposed());
    bool silent = false;
    return MessageUtils::SendReceive(pipe, request, reply, error, timeout,
                                     timedOut != nullptr ? timedOut : &silent);
}
