#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "DescriptorPoll.h"
#include "Messaging/ZMQMessagePipeProvider.h"
#include "Messaging/ZMQMessagePipes.h"
#include "VirtualDeviceServer/DeviceTable.h"

namespace vq::server {

/// Requests of the server to its devices. A device answers when it gets to it, or never: each exchange has a
/// socket of its own, and nobody waits.
///
/// Threads: one.
class DeviceCommands {
public:
    /// Reads the answer into a message; false when it is of another type or does not parse.
    using Decoder = std::function<bool(google::protobuf::MessageLite&)>;
    /// Called once: with the answer, or with a decoder that always fails when there is none in time or the
    /// request cannot be sent.
    using OnAnswer = std::function<void(Decoder const& decode)>;

    /// More exchanges than these at one time are not begun.
    static constexpr std::size_t kMaximum = 1024;

    /// @param provider  the server's; outlives this object, as the poll does
    DeviceCommands(ZMQMessagePipeProvider& provider, DescriptorPoll& poll);
    DeviceCommands(DeviceCommands const&) = delete;
    DeviceCommands& operator=(DeviceCommands const&) = delete;
    ~DeviceCommands();

    /// Begins an exchange.
    /// @param device    copied from: its name and its address
    /// @param limit     after so long the device is not waited for any more
    /// @param onAnswer  may be empty; may begin further exchanges
    void Send(Device const& device, google::protobuf::MessageLite const& request,
              std::chrono::milliseconds limit, OnAnswer const& onAnswer = {});

    /// Ends the exchanges whose time is over.
    void DropLate(TimePoint now);

private:
    struct Exchange {
        std::string what;  ///< device and request, for the log
        TimePoint deadline;
        std::unique_ptr<ZMQMessagePipeRequestReply> pipe;
        OnAnswer onAnswer;
    };
    using Exchanges = std::map<std::uint64_t, Exchange>;

    std::unique_ptr<ZMQMessagePipeRequestReply> Connect(MessageAddress const& address);
    bool Begin(Device const& device, google::protobuf::MessageLite const& request,
               std::chrono::milliseconds limit, OnAnswer const& onAnswer);
    bool TakeAnswer(std::uint64_t number);
    Exchanges::iterator End(Exchanges::iterator exchange);

    ZMQMessagePipeProvider& m_provider;
    DescriptorPoll& m_poll;
    Exchanges m_exchanges;
    std::uint64_t m_next = 0;
};

}  // namespace vq::server
