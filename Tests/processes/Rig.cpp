#include "Rig.h"

#include <signal.h>

#include <sstream>

#include "TestSupport/TestHome.h"

namespace vq::test {

namespace {

void ExpectReady(ChildProcess& process, char const* name) {
    ASSERT_TRUE(process.ReadLineWith("ready", kStartLimit)) << name << " did not start:\n"
                                                            << process.DrainOutput();
}

}  // namespace

Caller::Caller(ChildProcess::Environment const& environment)
    : m_process(std::make_unique<ChildProcess>(std::vector<std::string>{Rig::Binary("identity_caller")},
                                               environment)) {
    ExpectReady(*m_process, "identity_caller");
}

void Caller::Begin(std::string const& command) {
    EXPECT_TRUE(m_process->WriteLine(command)) << m_process->DrainOutput();
}

CallResult Caller::Finish(std::chrono::milliseconds limit) {
    CallResult result;
    auto const line = m_process->ReadLineWith("= ", limit);
    if (!line) {
        ADD_FAILURE() << "no answer from the application:\n" << m_process->DrainOutput();
        return result;
    }
    std::istringstream words(*line);
    long long duration = 0;
    words >> result.code >> duration;
    result.duration = std::chrono::milliseconds(duration);
    std::getline(words >> std::ws, result.rest);
    return result;
}

std::string Rig::Binary(char const* name) {
    return std::string(VQ_BINARY_DIR) + "/" + name;
}

Rig::Rig() : m_address("IPC:" + HomeDirectory() + "vds") {
    ::setenv("VQ_VDS_ADDRESS", m_address.c_str(), 1);
}

void Rig::StartServer(std::vector<std::string> const& extraArguments) {
    std::vector<std::string> arguments = {Binary("vdserver"), "--address", m_address, "--name", "rig"};
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    m_server.reset();
    m_server = std::make_unique<ChildProcess>(arguments);
    ExpectReady(*m_server, "vdserver");
}

void Rig::StartProvider(std::vector<std::string> const& settings,
                        std::vector<std::string> const& extraArguments) {
    std::vector<std::string> arguments = {Binary("mock_identity_device")};
    for (std::string const& setting : settings) {
        arguments.insert(arguments.end(), {"--set", setting});
    }
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    m_provider.reset();
    m_provider = std::make_unique<ChildProcess>(arguments);
    ExpectReady(*m_provider, "mock_identity_device");
}

void Rig::KillServer() {
    m_server->Signal(SIGKILL);
    EXPECT_TRUE(m_server->WaitForExit(kStartLimit));
}

void Rig::KillProvider() {
    m_provider->Signal(SIGKILL);
    EXPECT_TRUE(m_provider->WaitForExit(kStartLimit));
}

void Rig::StopInOrder(std::unique_ptr<ChildProcess>& process, char const* name) {
    process->Signal(SIGTERM);
    EXPECT_EQ(process->WaitForExit(kStartLimit), 0) << name << ":\n" << process->DrainOutput();
}

void Rig::StopServer() {
    StopInOrder(m_server, "vdserver");
}

void Rig::StopProvider() {
    StopInOrder(m_provider, "mock_identity_device");
}

}  // namespace vq::test
