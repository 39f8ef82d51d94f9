#include "Rig.h"

#include <sstream>

#include "TestSupport/TestHome.h"

namespace vq::test {

Caller::Caller(ChildProcess::Environment const& environment)
    : m_process(std::make_unique<Program>(std::vector<std::string>{"identity_caller"}, environment)) {}

void Caller::Begin(std::string const& command) {
    EXPECT_TRUE(m_process->WriteLine(command)) << m_process->DrainOutput();
}

CallResult Caller::Finish() {
    CallResult result;
    auto const line = m_process->ReadLineWith("= ");
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

void Caller::ExpectCleanExit() {
    m_process->CloseInput();
    EXPECT_EQ(m_process->WaitForExit(), 0) << m_process->DrainOutput();
}

Rig::Rig() : m_address("IPC:" + HomeDirectory() + "vds") {
    ::setenv("VQ_VDS_ADDRESS", m_address.c_str(), 1);
}

void Rig::StartServer(std::vector<std::string> const& extraArguments) {
    std::vector<std::string> arguments = {"vdserver", "--address", m_address, "--name", "rig"};
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    m_server.reset();
    m_server = std::make_unique<Program>(arguments);
}

void Rig::StartProvider(std::vector<std::string> const& settings,
                        std::vector<std::string> const& extraArguments) {
    std::vector<std::string> arguments = {"mock_identity_device"};
    for (std::string const& setting : settings) {
        arguments.insert(arguments.end(), {"--set", setting});
    }
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    m_provider.reset();
    m_provider = std::make_unique<Program>(arguments);
}

}  // namespace vq::test
