#pragma once

#include <json/value.h>

#include <chrono>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

namespace vq::rigctl {

using Clock = std::chrono::steady_clock;

/// True when certainly nobody takes connections at the address. False when somebody does, and when that is
/// not to be found out at once: at other machines.
bool IsDeserted(std::string const& address);

/// Somebody who answers requests: the server, or a device. One thread.
class Peer {
public:
    /// @param address  text form of a physical address
    /// @param name     for sentences, such as "the server at IPC:/tmp/vds"
    /// Throws Failure for an address that names no place.
    Peer(std::string const& address, std::string name);
    Peer(Peer const&) = delete;
    Peer& operator=(Peer const&) = delete;
    ~Peer();

    /// One request and its Reply. Throws Failure: with the peer's own words when it refuses, with NoAnswer
    /// when the time is over. The peer cannot be asked again after that.
    /// @param type    full name of the request
    /// @param fields  by name
    Json::Value Ask(std::string const& type, Json::Value const& fields, Clock::time_point deadline);
    Json::Value Ask(std::string const& type, Clock::time_point deadline) {
        return Ask(type, Json::Value(Json::objectValue), deadline);
    }

private:
    [[noreturn]] void ThrowNoAnswer(std::string const& type) const;

    std::string const m_name;
    void* m_socket;
};

/// What somebody publishes. One thread.
class Subscription {
public:
    struct Event {
        std::string type;
        std::string channel;  ///< empty when it belongs to none
        std::string payload;
    };

    /// @param prefix  of the type names to hear
    Subscription(std::string const& address, std::string const& prefix);
    Subscription(Subscription const&) = delete;
    Subscription& operator=(Subscription const&) = delete;
    ~Subscription();

    /// The next event that is there; nothing when there is none.
    std::optional<Event> Take();

    /// Waits until one of the subscriptions has something. False when none has at the deadline.
    static bool Wait(std::initializer_list<Subscription const*> subscriptions, Clock::time_point deadline);

private:
    void* m_socket;
};

}  // namespace vq::rigctl
