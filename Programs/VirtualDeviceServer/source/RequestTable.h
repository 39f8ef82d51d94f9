#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "ApplicationProcesses.h"
#include "DeviceCommands.h"
#include "ServerRequests.pb.h"
#include "VirtualDeviceServer/ChannelDataStore.h"
#include "VirtualDeviceServer/ServerJournal.h"
#include "VirtualDeviceServer/ServerState.h"
#include "VirtualDeviceServer/SharedMemoryStore.h"
#include "VirtualDeviceServer/VirtualDeviceServer.h"

namespace vq::server {

/// An answer to a request: its Reply, its own Error, or vq.vds.Error.
using Answer = std::unique_ptr<google::protobuf::MessageLite>;

class RemoteDevices;

/// Who answers which request, by the request's type name.
///
/// Threads: one.
class RequestTable {
public:
    /// Parses the request's payload; false when it is not what its type says.
    using Decoder = std::function<bool(google::protobuf::MessageLite&)>;

    /// @param handler  takes the Request and gives an Answer, never null
    template <class Request, class Handler>
    void Serve(Handler handler) {
        m_handlers.emplace(Request::default_instance().GetTypeName(),
                           [handler = std::move(handler)](Decoder const& decode) -> Answer {
                               Request request;
                               return decode(request) ? handler(request) : nullptr;
                           });
    }

    /// @return never null: a vq.vds.Error for a type that nobody serves and for what does not decode
    Answer Handle(std::string const& type, Decoder const& decode) const;

private:
    std::unordered_map<std::string, std::function<Answer(Decoder const&)>> m_handlers;
};

/// What the handlers need of the server besides its state.
class ServerControl {
public:
    virtual ~ServerControl() = default;

    virtual ServerOptions const& Options() const = 0;
    virtual PublishingAddresses const& Addresses() const = 0;
    /// A new address for the device's data events; nothing when there is none to be had.
    virtual std::optional<MessageAddress> CreateDataEventAddress(std::int32_t deviceId) = 0;
    virtual DeviceCommands& Commands() = 0;
    virtual ApplicationProcesses& Processes() = 0;
    /// Broadcasts the latest sample of every channel again.
    virtual void ResendLatestSamples() = 0;
    virtual RemoteDevices& Remotes() = 0;
    /// The server ends once the present request is answered.
    virtual void Stop() = 0;
    /// It is on the way out: nothing new may register.
    virtual bool IsStopping() const = 0;
};

// Enter the handlers of one family of requests. What they are given outlives the table.
void ServeGeneralRequests(RequestTable& table, ServerControl& control);
void ServeDeviceRequests(RequestTable& table, ServerState& state, ServerControl& control);
void ServeChannelRequests(RequestTable& table, ServerState& state);
void ServeApplicationRequests(RequestTable& table, ServerState& state, ServerControl& control);
void ServeLaunchRequests(RequestTable& table, ServerState& state, ServerControl& control);
void ServeRemoteRequests(RequestTable& table, ServerControl& control);
void ServeLogRequests(RequestTable& table);
void ServeStatsRequests(RequestTable& table, ServerState& state, ServerControl& control);
void ServePropertyRequests(RequestTable& table, ServerState& state, ServerControl& control);
void ServeChannelDataRequests(RequestTable& table, ChannelDataStore& store, ServerControl& control);
void ServeSharedMemoryRequests(RequestTable& table, SharedMemoryStore& store, ServerControl& control);

/// @name Building answers
///@{
/// Why nothing new may register once ServerControl::IsStopping.
inline constexpr char kStopping[] = "the server is stopping";

Answer GeneralError(std::string const& text);

template <class Request>
Answer Reply() {
    return std::make_unique<typename Request::Reply>();
}

/// The empty reply, or the reason of the refusal as a vq.vds.Error.
template <class Request>
Answer ReplyUnless(ServerState::Refusal const& refusal) {
    return refusal ? GeneralError(*refusal) : Reply<Request>();
}

/// The request's own error with a text.
template <class Request>
Answer OwnError(std::string const& text) {
    auto error = std::make_unique<typename Request::Error>();
    error->set_message(text);
    return error;
}

/// The empty reply, or the reason of the refusal as the request's own error.
template <class Request>
Answer ReplyUnlessOwn(ServerState::Refusal const& refusal) {
    return refusal ? OwnError<Request>(*refusal) : Reply<Request>();
}
///@}

}  // namespace vq::server
