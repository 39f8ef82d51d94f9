#pragma once

#include <mutex>
#include <unordered_map>
#include <zmq.hpp>

#include "Messaging/AMessageManager.h"

/// The manager over ZeroMQ: one ZeroMQ context for all contexts, from the first GetContext to Cleanup.
class ZMQMessageManager final : public AMessageManager {
public:
    ZMQMessageManager() = default;

    void Cleanup() override;
    ~ZMQMessageManager() override;
    MessageAddress GetDefaultProcessLoopbackAddress() override;
    MessageAddress GetServerAddress() override;
    MessageAddress GetDefaultServerTcpAddress() override;
    MessageAddress GetDefaultServerIpcAddress() override;
    AMessageContext* GetContext(MessageAddress const& address) override;
    AMessageContext* FindContext(MessageAddress const& address) const override;

private:
    void ZmqCleanup();  // needs m_mutex

    // Guards all below.
    mutable std::recursive_mutex m_mutex;
    // Both are owned but only deleted by Cleanup: at the end of a process that never called it, threads may
    // still hold sockets, and ending the ZeroMQ context would wait for them.
    zmq::context_t* m_zmqContext = nullptr;
    std::unordered_map<MessageAddress, AMessageContext*> m_contexts;
};
