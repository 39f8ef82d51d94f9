#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "TestSupport/ChildProcess.h"

namespace vq::test {

// Far above need on a quiet machine: the tests run beside others on a small one, under sanitizers too.
inline constexpr std::chrono::milliseconds kStartLimit{60000};
inline constexpr std::chrono::milliseconds kCallLimit{90000};

// Result codes of the identity interface that these tests name.
inline constexpr std::uint32_t kOk = 0;
inline constexpr std::uint32_t kTimeout = 2;
inline constexpr std::uint32_t kFailure = 4;
inline constexpr std::uint32_t kInvalidParam = 5;
inline constexpr std::uint32_t kNoLocalService = 0x7D4D0000;
inline constexpr std::uint32_t kNoCloudService = 0x7D4D0001;
inline constexpr std::uint32_t kNotLoggedIn = 0x7D4D0004;

/// What one exported call gave, as identity_caller tells it.
struct CallResult {
    std::uint32_t code = 0xFFFFFFFF;
    std::chrono::milliseconds duration{0};
    std::string rest;  ///< profile text or future
};

/// An application that makes exported calls on demand.
class Caller {
public:
    explicit Caller(ChildProcess::Environment const& environment = {});

    /// Sends a command without waiting for its answer.
    void Begin(std::string const& command);
    /// The answer of the oldest command that has not been answered; fails the test when none comes.
    CallResult Finish(std::chrono::milliseconds limit = kCallLimit);
    CallResult Call(std::string const& command) {
        Begin(command);
        return Finish();
    }
    ChildProcess& Process() { return *m_process; }

private:
    std::unique_ptr<ChildProcess> m_process;
};

/// A server, a provider and the address they meet at, all in the private home of the test. Whatever runs is
/// killed when the rig goes.
class Rig {
public:
    Rig();

    /// Path of one of our programs.
    static std::string Binary(char const* name);

    std::string const& Address() const { return m_address; }

    /// Starts a server on the rig's address and waits until it serves.
    void StartServer(std::vector<std::string> const& extraArguments = {});
    /// Starts the sample provider, with settings such as "DelayMs=200", and waits until it is registered.
    void StartProvider(std::vector<std::string> const& settings = {},
                       std::vector<std::string> const& extraArguments = {});

    ChildProcess& Server() { return *m_server; }
    ChildProcess& Provider() { return *m_provider; }
    void KillServer();
    void KillProvider();
    /// SIGTERM, and a clean end.
    void StopServer();
    void StopProvider();

private:
    void StopInOrder(std::unique_ptr<ChildProcess>& process, char const* name);

    std::string m_address;
    std::unique_ptr<ChildProcess> m_server;
    std::unique_ptr<ChildProcess> m_provider;
};

}  // namespace vq::test
