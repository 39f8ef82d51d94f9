#pragma once

#include <chrono>
#include <string>

#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipe.h"

/// The vocabulary of typed exchange. A receiver says what it expects by the objects it passes; they should be
/// fresh, because IsInitialized() is how the caller finds out which of them was filled.
///
/// Every timeout is in milliseconds, 0 not to wait and milliseconds::max() to wait without limit. timedOut
/// may be null; it becomes true only when the time ran out. All failures are logged at the place of failure.
///
/// Threads: no state of its own; the thread rules of the pipes hold.
class MessageUtils {
public:
    /// Sends one protobuf message on a request/reply pipe. One with an unset required field is not sent.
    static bool Send(AMessageWriter* writer, google::protobuf::MessageLite const& proto,
                     std::chrono::milliseconds timeout, bool* timedOut);

    /// Publishes one protobuf message as an event of a channel (id 0 and "" where no channel is meant).
    static bool SendEvent(AMessagePipeEventSender* sender, int channelId, std::string const& channelName,
                          google::protobuf::MessageLite const& proto, std::chrono::milliseconds timeout,
                          bool* timedOut);

    /// Receives the next message into the object of its type. A message of another type, or one that does not
    /// parse, is lost: false, an error line, and a second one with the text when it was a vq.vds.Error.
    static bool Receive(AMessageReader* reader, google::protobuf::MessageLite& proto,
                        std::chrono::milliseconds timeout, bool* timedOut);
    static bool ReceiveOneOf(AMessageReader* reader, google::protobuf::MessageLite& first,
                             google::protobuf::MessageLite& second, std::chrono::milliseconds timeout,
                             bool* timedOut);
    static bool ReceiveOneOf(AMessageReader* reader, google::protobuf::MessageLite& first,
                             google::protobuf::MessageLite& second, google::protobuf::MessageLite& third,
                             std::chrono::milliseconds timeout, bool* timedOut);

    /// Logs the text of a message that is a vq.vds.Error; deletes the message, whatever it is.
    static void ReportUnexpectedErrorAndDelete(AMessageReader* reader, AMessage* message);

    /// One request and its reply; each of the two may take the whole timeout. A vq.vds.Error instead of the
    /// reply is false and an error line with its text. A time-out is logged only when timedOut is given. The
    /// pipe cannot be used again after a reply timed out, until that reply has been read.
    template <class Request, class Reply, class Pipe>
    static bool SendReceive(Pipe pipe, Request const& request, Reply& reply,
                            std::chrono::milliseconds timeout, bool* timedOut) {
        return Exchange(pipe, request, reply, nullptr, timeout, timedOut);
    }

    /// The same for a request with an error type of its own, which counts as an answer: true, and the caller
    /// looks which of the two was filled.
    template <class Request, class Reply, class ErrorReply, class Pipe>
    static bool SendReceive(Pipe pipe, Request const& request, Reply& reply, ErrorReply& errorReply,
                            std::chrono::milliseconds timeout, bool* timedOut) {
        return Exchange(pipe, request, reply, &errorReply, timeout, timedOut);
    }

    /// Answers with an error message that has a required text field `message`; waits without limit.
    template <class ErrorMessage, class Pipe>
    static bool SendError(Pipe pipe, std::string const& text) {
        ErrorMessage error;
        error.set_message(text);
        return Send(pipe, error, std::chrono::milliseconds::max(), nullptr);
    }

    /// The same, and the text as an error line before it.
    template <class ErrorMessage, class Pipe>
    static bool SendErrorAndLog(Pipe pipe, std::string const& text) {
        LogErrorText(text);
        return SendError<ErrorMessage>(pipe, text);
    }

private:
    static bool Exchange(AMessagePipeRequestReply* pipe, google::protobuf::MessageLite const& request,
                         google::protobuf::MessageLite& reply, google::protobuf::MessageLite* errorReply,
                         std::chrono::milliseconds timeout, bool* timedOut);
    static void LogErrorText(std::string const& text);
};
