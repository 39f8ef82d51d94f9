#pragma once

#include <string>
#include <unordered_map>

#include "Messaging/MessageAddress.h"

/// Turns the logical names under one location of one transport into physical addresses. Not locked: used by
/// one thread at a time.
class TransportProvider {
public:
    virtual ~TransportProvider() = default;

    /// @param logicalName  endpoint under the provider's location; empty for the location itself.
    /// @param force        take a new place even where the name already has one (TCP ports; else ignored).
    /// @return the physical address; the default address (kind NONE) when there is none to be had.
    virtual MessageAddress Resolve(std::string const& logicalName, bool force) = 0;

protected:
    TransportProvider() = default;
    TransportProvider(TransportProvider const&) = default;
    TransportProvider& operator=(TransportProvider const&) = default;
};

/// Names inside this process: "location.name".
class ZMQLoopbackAddressProvider final : public TransportProvider {
public:
    /// @param location  "_" stands in for an empty one.
    explicit ZMQLoopbackAddressProvider(std::string const& location);
    MessageAddress Resolve(std::string const& logicalName, bool force) override;

private:
    std::string m_base;
};

/// TCP: the empty name has the configured port, every other name an ephemeral port that it keeps for the life
/// of the provider, or until a forced Resolve moves it.
class ZMQSocketAddressProvider final : public TransportProvider {
public:
    /// @param host  "localhost" stands in for an empty one.
    /// @param port  port of the empty logical name.
    ZMQSocketAddressProvider(std::string const& host, int port);
    MessageAddress Resolve(std::string const& logicalName, bool force) override;

private:
    std::string m_base;
    std::unordered_map<std::string, int> m_ports;
};

/// Local sockets in the file system: "path.name", with every slash of the name made an underscore.
class ZMQIPCAddressProvider final : public TransportProvider {
public:
    /// @param location  a full path, or a name under the user's temporary directory; "_" stands in for an
    ///                  empty one.
    explicit ZMQIPCAddressProvider(std::string const& location);
    MessageAddress Resolve(std::string const& logicalName, bool force) override;

private:
    std::string m_base;
};
