#include "SimulatedHeadset/BridgeState.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "Utils/FileDescriptor.h"
#include "Utils/OSUtils.h"
#include "Utils/TextUtils.h"

namespace vq::headset {

BridgeState::BridgeState() : m_directory(GetUserTempDirectory() + "bridge/") {
    CreateDirectoryPath(m_directory);
    CreateDirectoryPath(TunnelDirectory());
}

std::string BridgeState::Read(char const* file) const {
    std::ifstream const stream(m_directory + file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

void BridgeState::Write(char const* file, std::string const& text) const {
    std::string const target = m_directory + file;
    std::string const next = target + "." + std::to_string(::getpid());
    std::ofstream(next, std::ios::binary) << text;
    RenameFile(next, target);
}

std::vector<BridgeState::Device> BridgeState::Devices() const {
    std::vector<Device> devices;
    for (std::string const& line : SplitLines(Read("devices"), false)) {
        std::size_t const tab = line.find('\t');
        devices.push_back({line.substr(0, tab), tab == std::string::npos ? "" : line.substr(tab + 1)});
    }
    return devices;
}

void BridgeState::SetDevices(std::vector<Device> const& devices) const {
    std::string text;
    for (Device const& device : devices) {
        text += device.serial + "\t" + device.state + "\n";
    }
    Write("devices", text);
}

void BridgeState::Attach(Device const& device) const {
    Detach(device.serial);
    std::vector<Device> devices = Devices();
    devices.push_back(device);
    SetDevices(devices);
}

void BridgeState::Detach(std::string const& serial) const {
    std::vector<Device> devices = Devices();
    std::erase_if(devices, [&](Device const& device) { return device.serial == serial; });
    SetDevices(devices);
}

std::string BridgeState::ProcessList() const {
    std::string const text = Read("ps.json");
    return text.empty() ? "[]\n" : text;
}

void BridgeState::SetProcessList(std::string const& json) const {
    Write("ps.json", json);
}

void BridgeState::SetMisbehaviour(std::string const& rules) const {
    Write("misbehaviour", rules);
}

std::pair<std::string, std::string> BridgeState::MisbehaviourOf(std::string const& command) const {
    for (std::string const& line : SplitLines(Read("misbehaviour"), false)) {
        std::vector<std::string> words = Tokenize(line, " ", true);
        if (words.size() >= 2 && (words[0] == command || words[0] == "any")) {
            words.resize(3);
            return {words[1], words[2]};
        }
    }
    return {};
}

std::vector<std::string> BridgeState::Calls() const {
    return SplitLines(Read("calls"), false);
}

void BridgeState::NoteCall(std::string const& arguments) const {
    // One write each, so that calls side by side do not mix.
    FileDescriptor const file(
        ::open((m_directory + "calls").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    std::string const line = arguments + "\n";
    static_cast<void>(!::write(file.Get(), line.data(), line.size()));
}

}  // namespace vq::headset
