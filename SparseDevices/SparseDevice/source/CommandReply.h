#pragma once

#include <chrono>

#include "Messaging/MessageUtils.h"

/// The request in a message; an empty one when it does not decode, and nothing of what could be read of it.
template <class Request>
Request DecodeCommand(AMessagePipeRequestReply* pipe, AMessage const* message) {
    Request request;
    if (!pipe->GetContext()->DecodeMessage(message, request)) {
        request.Clear();
    }
    return request;
}

/// Answers on a device's own pipe, waiting without limit.
template <class Reply>
bool SendReply(AMessagePipeRequestReply* pipe, Reply const& reply) {
    return MessageUtils::Send(pipe, reply, std::chrono::milliseconds::max(), nullptr);
}
