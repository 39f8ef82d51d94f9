#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <zmq.hpp>

#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/RemoteDeviceHandler.h"
#include "Messaging/TransportProvider.h"
#include "Messaging/ZMQMessagePipes.h"

class ZMQMessageContext;

/// Makes ZeroMQ pipes: servers are REP and clients REQ sockets, senders PUB and listeners SUB.
class ZMQMessagePipeProvider final : public AMessagePipeProvider {
public:
    /// @param context  the owner; outlives the provider
    explicit ZMQMessagePipeProvider(ZMQMessageContext* context);
    ~ZMQMessagePipeProvider() override;

    void Cleanup() override;
    AMessageContext* GetContext() const override;
    RemoteDeviceHandler* GetDeviceHandler() const override { return m_deviceHandler.get(); }
    MessageAddress Resolve(MessageAddress const& address, bool force) override;
    AMessagePipeRequestReply* GetRequestReplyServer(MessageAddress const& address,
                                                    std::string const& name) override;
    AMessagePipeRequestReply* GetRequestReplyClient(MessageAddress const& address,
                                                    std::string const& name) override;
    AMessagePipeEventSender* GetEventSender(MessageAddress const& address, std::string const& name,
                                            SocketRole role) override;
    AMessagePipeEventListener* GetEventListener(MessageAddress const& address, std::string const& name,
                                                SocketRole role) override;
    void DisposePipe(AMessagePipe* pipe) override;
    void DisposePipes() override;

    /// Bounds what the sockets of pipes made from now on take in: a peer that sends a larger message is
    /// disconnected. For servers, which do not choose their peers.
    /// @param bytes  -1 for no bound, which is the default
    void SetMaximumMessageSize(std::int64_t bytes);

    /// Cuts "host:port". No colon means the default server port, an empty host "localhost".
    /// @param host  set to hostPort where the port is bad
    /// @return false (logged) when the port is 0 or no number
    static bool ParseHostPort(std::string const& hostPort, std::string& host, int& port);

    /// The resolver of an address's transport and location, made on first use; null for transport NONE and
    /// for a bad port.
    std::shared_ptr<TransportProvider> EnsureProvider(MessageAddress const& address);

    /// The address as the socket library wants it; empty where EnsureProvider gives null.
    std::string GetURL(MessageAddress const& address);

    /// Attaches a socket to an address. Binding to localhost listens on every interface: the first
    /// "localhost" anywhere in the URL becomes "*", in paths too. Throws zmq::error_t.
    void BindOrConnect(zmq::socket_t* socket, MessageAddress const& address, SocketRole role);

private:
    enum class PipeCategory : std::int32_t {
        RequestReplyServer = 0,
        RequestReplyClient = 1,
        EventSender = 2,
        EventListener = 3,
    };
    /// What was asked for: address and name.
    using Key = std::pair<MessageAddress, std::string>;
    struct KeyHash {
        std::size_t operator()(Key const& key) const noexcept {
            return std::hash<MessageAddress>()(key.first) * 31 + std::hash<std::string>()(key.second);
        }
    };
    template <class Pipe>
    using Pipes = std::unordered_map<Key, std::unique_ptr<Pipe>, KeyHash>;
    template <class Pipe>
    using Creator = std::function<std::unique_ptr<Pipe>(MessageAddress const& resolved,
                                                        std::unique_ptr<zmq::socket_t>& socketOut)>;

    // All need m_mutex.
    template <class Pipe>
    std::unique_ptr<Pipe> ResolveAddressAndCreatePipe(char const* kind, MessageAddress const& address,
                                                      Creator<Pipe> const& create);
    template <class Pipe>
    Pipe* GetPipe(Pipes<Pipe>& pipes, PipeCategory category, char const* kind, Key const& key,
                  Creator<Pipe> const& create);
    template <class Pipe>
    void DeletePipeFromMap(Pipes<Pipe>& pipes, Key const& key);
    AMessagePipeRequestReply* GetRequestReply(Pipes<ZMQMessagePipeRequestReply>& pipes, PipeCategory category,
                                              MessageAddress const& address, std::string const& name);
    template <class Pipe>
    Pipe* GetEventPipe(Pipes<Pipe>& pipes, PipeCategory category, MessageAddress const& address,
                       std::string const& name, SocketRole role);
    std::unique_ptr<zmq::socket_t> NewSocket(int type);

    ZMQMessageContext* const m_context;
    std::unique_ptr<RemoteDeviceHandler> const m_deviceHandler;  ///< links to headsets

    // Guards all below. Two devices of one program may make pipes at the same time.
    std::recursive_mutex m_mutex;
    std::int64_t m_maximumMessageSize = -1;
    std::map<std::pair<std::string, MessageAddress::Transport>, std::shared_ptr<TransportProvider>>
        m_providers;
    Pipes<ZMQMessagePipeRequestReply> m_reqRepServers;
    Pipes<ZMQMessagePipeRequestReply> m_reqRepClients;
    Pipes<ZMQMessagePipeEventSender> m_eventSenders;
    Pipes<ZMQMessagePipeEventListener> m_eventListeners;
    std::unordered_map<AMessagePipe*, std::pair<Key, PipeCategory>> m_pipeIndex;
};
