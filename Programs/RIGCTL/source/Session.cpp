#include "Session.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "Failure.h"
#include "Utils/OSUtils.h"
#include "Utils/PathText.h"

namespace vq::rigctl {

namespace {

constexpr char kStartHint[] = " Start one with 'RIGCTL -s'.";

std::string FromEnvironment(char const* name) {
    char const* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// A bare port means one on this machine, and an IPC name a file of the user's, as for the server.
std::string FullAddress(std::string const& text) {
    std::string const ipc = "IPC:";
    if (text.starts_with(ipc) && text.size() > ipc.size() && !IsFullPath(text.substr(ipc.size()))) {
        return ipc + GetUserTempDirectory() + text.substr(ipc.size());
    }
    bool const isPort = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    return isPort ? "SOCKET:localhost:" + text : text;
}

void ThrowIfNobodyIsThere(ServerDescriptor const& line, std::string const& address) {
    if (!Session::IsAlive(line.pid)) {
        throw Failure(Status::NoServer, "The server '" + line.name + "' at " + address +
                                            " has died (process " + std::to_string(line.pid) + " is gone)." +
                                            kStartHint);
    }
}

}  // namespace

Session::Session(CommonOptions options)
    : m_options(std::move(options)),
      m_output(m_options.json, m_options.color),
      m_deadline(Clock::now() + m_options.timeout) {}

void Session::ExtendTimeLimit(std::chrono::milliseconds limit) {
    if (!m_options.timeoutGiven) {
        m_options.timeout = limit;
        RestartTimeLimit();
    }
}

bool Session::IsAlive(std::int64_t processId) {
    if (processId > 0 && ::kill(static_cast<pid_t>(processId), 0) != 0 && errno == ESRCH) {
        return false;
    }
    // What has ended and was not waited for still has its entry: "PID (NAME) STATE ...".
    std::ifstream file("/proc/" + std::to_string(processId) + "/stat");
    std::string line;
    std::getline(file, line);
    std::size_t const name = line.rfind(')');
    return name == std::string::npos || name + 2 >= line.size() || line[name + 2] != 'Z';
}

std::string const& Session::ServerAddress() {
    if (m_address.empty()) {
        ChooseServer();
    }
    return m_address;
}

ServerDescriptor const* Session::ServerLine() {
    ServerAddress();
    return m_line.get();
}

std::string Session::ChosenAddress() const {
    return FullAddress(!m_options.address.empty() ? m_options.address
                       : !m_options.name.empty()  ? ""
                                                  : FromEnvironment("VQ_VDS_ADDRESS"));
}

void Session::ChooseServer() {
    std::string const address = ChosenAddress();
    std::string const name = !m_options.name.empty() ? m_options.name : FromEnvironment("VQ_VDS_NAME");
    std::vector<ServerDescriptor> lines;
    try {
        lines = ReadRegistry(m_deadline).lines;
    } catch (Failure const&) {
        if (address.empty()) {
            throw;
        }
    }
    auto const found = std::ranges::find_if(lines, [&](ServerDescriptor const& line) {
        return !address.empty() ? line.address.ToString() == address : name.empty() || line.name == name;
    });
    if (found != lines.end()) {
        ThrowIfNobodyIsThere(*found, found->address.ToString());
        m_line = std::make_unique<ServerDescriptor>(*found);
        m_address = found->address.ToString();
    } else if (address.empty()) {
        throw Failure(Status::NoServer, (name.empty() ? "No server is running."
                                                      : "No server named '" + name + "' is running.") +
                                            std::string(kStartHint));
    } else if (IsDeserted(address)) {
        throw Failure(Status::NoServer, "There is no server at " + address + "." + kStartHint);
    } else {
        m_address = address;
    }
}

Json::Value Session::Ask(std::string const& request, Json::Value const& fields) {
    if (m_server == nullptr) {
        std::string const& address = ServerAddress();
        m_server = std::make_unique<Peer>(address, "the server at " + address);
    }
    try {
        return m_server->Ask(request, fields, m_deadline);
    } catch (Failure const& failure) {
        if (failure.GetStatus() == Status::NoAnswer) {
            m_server.reset();
        }
        throw;
    }
}

Json::Value Session::AskDevice(std::string const& device, std::string const& request,
                               Json::Value const& fields) {
    auto& peer = m_devices[device];
    if (peer == nullptr) {
        Json::Value question;
        question["device"] = device;
        question["flag"] = false;
        std::string const address =
            Ask("vq.vds.GetDeviceRequestReplyAddress", question)["address"].asString();
        peer = std::make_unique<Peer>(address, "the device '" + device + "'");
    }
    try {
        return peer->Ask(request, fields, m_deadline);
    } catch (Failure const& failure) {
        if (failure.GetStatus() == Status::NoAnswer) {
            m_devices.erase(device);
        }
        throw;
    }
}

}  // namespace vq::rigctl
