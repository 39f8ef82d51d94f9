#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

/// TCP port of a server that nobody configured otherwise.
inline constexpr int kDefaultServerPort = 17975;

/// How an endpoint attaches to its address.
enum class SocketRole : std::int32_t {
    Bind = 0,
    Connect = 1,
};

/// Names one endpoint of the messaging layer. A plain value; the default one names nothing.
/// An address with a logical name is "logical": a TransportProvider turns it into a physical one, whose
/// logical name is empty, before a socket can use it.
struct MessageAddress {
    enum class Transport : std::int32_t {
        NONE = 0,
        LOOPBACK = 1,
        SOCKET = 2,
        IPC = 3,
    };

    /// Where on the transport. LOOPBACK: a name. SOCKET: "host:port". IPC: a name or an absolute path.
    std::string location;
    Transport transport = Transport::NONE;
    /// Endpoint under the location; empty in a physical address.
    std::string logicalName;

    /// Text form: transport word, ":", location, and for a logical address "?" and the logical name.
    std::string ToString() const;

    /// Inverse of ToString. A text without a colon gives the default address silently; an unknown transport
    /// word gives it with an error line. The word NONE is accepted and keeps its location.
    static MessageAddress FromString(std::string_view text);

    /// Port of a physical SOCKET address; 0 when what follows its last colon is no number. -1 for any other
    /// address.
    int ExtractPort() const;

    friend bool operator==(MessageAddress const& a, MessageAddress const& b) = default;
};

/// Writes the text form.
std::ostream& operator<<(std::ostream& out, MessageAddress const& address);

template <>
struct std::hash<MessageAddress> {
    std::size_t operator()(MessageAddress const& address) const noexcept {
        std::hash<std::string> const text;
        std::uint64_t const transport = static_cast<std::uint64_t>(address.transport);
        return text(address.logicalName) + (text(address.location) * 111 + transport) * 37;
    }
};

/// Asks the system for a TCP port that is free on the loopback interface. Another process can take it before
/// the caller binds it: callers retry. Any thread.
/// @param port  the port; 0 on failure, which is logged.
bool GetEphemeralPort(int& port);
