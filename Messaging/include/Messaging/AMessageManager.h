#pragma once

#include "Messaging/MessageAddress.h"

class AMessageContext;

/// The root of messaging in a process: finds the server's address and owns one context per address.
///
/// Threads: any, one operation at a time (a lock inside). Cleanup must follow the join of every thread that
/// uses a pipe. The owner of the process calls it before exit: the destructor deletes nothing, because at
/// that time sockets may still be in use.
class AMessageManager {
public:
    AMessageManager() = default;
    AMessageManager(AMessageManager const&) = delete;
    AMessageManager& operator=(AMessageManager const&) = delete;

    /// The manager of this process, built on first use.
    static AMessageManager& Instance();

    /// Deletes every context with its pipes. The manager can be used again afterwards.
    virtual void Cleanup() = 0;

    virtual ~AMessageManager() = default;

    /// Address for messages inside this process.
    virtual MessageAddress GetDefaultProcessLoopbackAddress() = 0;
    /// The server to talk to: VQ_VDS_ADDRESS (an address or a bare port), else the one registered server,
    /// else the default TCP address, whether or not anybody listens there. Takes up to 5 s when another
    /// process holds the registry.
    virtual MessageAddress GetServerAddress() = 0;
    virtual MessageAddress GetDefaultServerTcpAddress() = 0;
    virtual MessageAddress GetDefaultServerIpcAddress() = 0;

    /// The context of an address, made on first use; owned by the manager, valid until Cleanup. Two ways to
    /// write one server's address are two contexts.
    virtual AMessageContext* GetContext(MessageAddress const& address) = 0;
    /// The same, but null when there is none yet.
    virtual AMessageContext* FindContext(MessageAddress const& address) const = 0;
};
