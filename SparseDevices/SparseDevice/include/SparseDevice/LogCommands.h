#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "Logging/LogParameters.h"
#include "Messaging/MessageUtils.h"
#include "ServerRequests.pb.h"

// Remote control of the process's log, for whoever answers requests on a pipe.

/// Answers with the parameters of the process's log.
template <class Request>
bool OnGetLogParameters(AMessagePipeRequestReply* pipe, AMessage* /*message*/) {
    typename Request::Reply reply;
    for (std::string& parameter : DescribeLogParameters()) {
        reply.add_parameters(std::move(parameter));
    }
    return MessageUtils::Send(pipe, reply, std::chrono::milliseconds::max(), nullptr);
}

/// Applies the request's parameters and answers; with an error when one is bad.
template <class Request>
bool OnSetLogParameters(AMessagePipeRequestReply* pipe, AMessage* message) {
    Request request;
    if (!pipe->GetContext()->DecodeMessage(message, request)) {
        request.Clear();  // nothing of what could be read of it is carried out
    }
    std::string errors;
    if (!ApplyLogParameters({request.parameters().begin(), request.parameters().end()}, errors)) {
        return MessageUtils::SendErrorAndLog<vq::vds::Error>(pipe, errors);
    }
    return MessageUtils::Send(pipe, typename Request::Reply(), std::chrono::milliseconds::max(), nullptr);
}
