#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "TestSupport/Program.h"

namespace vq::test {

// Result codes of the identity interface that these tests name.
inline constexpr std::uint32_t kOk = 0;
inline constexpr std::uint32_t kFailure = 4;
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
    CallResult Finish();
    CallResult Call(std::string const& command) {
        Begin(command);
        return Finish();
    }
    /// Lets its main function return.
    void ExpectCleanExit();
    ChildProcess& Process() { return *m_process; }

private:
    std::unique_ptr<Program> m_process;
};

/// A server, a provider and the address they meet at, all in the private home of the test. Whatever runs is
/// killed when the rig goes.
class Rig {
public:
    Rig();

    std::string const& Address() const { return m_address; }

    /// Starts a server on the rig's address and waits until it serves.
    void StartServer(std::vector<std::string> const& extraArguments = {});
    /// Starts the sample provider, with settings such as "DelayMs=200", and waits until it is registered.
    void StartProvider(std::vector<std::string> const& settings = {},
                       std::vector<std::string> const& extraArguments = {});

    Program& Server() { return *m_server; }
    Program& Provider() { return *m_provider; }

private:
    std::string m_address;
    std::unique_ptr<Program> m_server;
    std::unique_ptr<Program> m_provider;
};

}  // namespace vq::test
