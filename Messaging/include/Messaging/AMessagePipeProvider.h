#pragma once

#include <string>

#include "Messaging/AMessagePipe.h"
#include "Messaging/MessageAddress.h"

class AMessageContext;
class RemoteDeviceHandler;

/// Makes, keeps and disposes of the pipes of one context.
///
/// A pipe is known by the address that was asked for and a name: who asks twice gets the same pipe. There is
/// no count of holders, one DisposePipe deletes the pipe for all of them.
///
/// Threads: any, one operation at a time (a lock inside). What the pipes themselves allow is told there.
class AMessagePipeProvider {
public:
    AMessagePipeProvider() = default;
    AMessagePipeProvider(AMessagePipeProvider const&) = delete;
    AMessagePipeProvider& operator=(AMessagePipeProvider const&) = delete;
    virtual ~AMessagePipeProvider() = default;

    /// Deletes every pipe and forgets every port that was given out. No thread may still use a pipe. The
    /// provider can be used again afterwards.
    virtual void Cleanup() = 0;

    virtual AMessageContext* GetContext() const = 0;
    /// The links to headsets; never null, owned by this provider.
    virtual RemoteDeviceHandler* GetDeviceHandler() const = 0;

    /// The physical address of a logical one.
    /// @param force  give a socket address a new port, which later lookups then return too
    /// @return the default address (transport NONE) when the address cannot be resolved
    virtual MessageAddress Resolve(MessageAddress const& address, bool force) = 0;

    /// The four kinds of pipe. A server binds, a client connects, an event pipe does what the role says.
    /// @param address  logical or physical; its resolved form is the pipe's GetRemote(). After a failed
    ///                 attempt on a socket address the next one takes a free port of the system's choice.
    /// @param name     tells pipes on one address apart
    /// @return owned by this provider; null when the address cannot be resolved or five attempts failed
    ///         (logged)
    virtual AMessagePipeRequestReply* GetRequestReplyServer(MessageAddress const& address,
                                                            std::string const& name) = 0;
    virtual AMessagePipeRequestReply* GetRequestReplyClient(MessageAddress const& address,
                                                            std::string const& name) = 0;
    virtual AMessagePipeEventSender* GetEventSender(MessageAddress const& address, std::string const& name,
                                                    SocketRole role) = 0;
    virtual AMessagePipeEventListener* GetEventListener(MessageAddress const& address,
                                                        std::string const& name, SocketRole role) = 0;

    /// Deletes one pipe of this provider; a pointer it does not know, such as that of a pipe already deleted,
    /// is a warning line. (Converting a deleted pipe's pointer to AMessagePipe* is not allowed.)
    virtual void DisposePipe(AMessagePipe* pipe) = 0;
    /// Marks every pipe as disposed and deletes none, which ends the loops that wait on them.
    virtual void DisposePipes() = 0;
};
