#include "Messaging/VqdbAccessor.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <utility>

#include "Logging/Log.h"
#include "Utils/OSUtils.h"
#include "Utils/ProcessFactory.h"

namespace {

/// Set by the first list of processes that is not understood, and never cleared.
std::atomic<bool> s_formatAlarm = false;

void RaiseFormatAlarm() {
    if (!s_formatAlarm.exchange(true)) {
        LOG_E("format of 'vqdb ps -j' changed!");
    }
}

}  // namespace

VqdbAccessor::VqdbAccessor(std::string serial, std::stop_token stop, Limit limit)
    : m_serial(std::move(serial)),
      m_toolPath(ResolveOnPath("vqdb")),
      m_stop(std::move(stop)),
      m_limit(limit) {
    LOG_V("vqdb located at %s", m_toolPath.c_str());
}

VqdbAccessor::~VqdbAccessor() {
    std::lock_guard const lock(m_mutex);
    CleanupPorts(true);
}

bool VqdbAccessor::IsConfigured() const {
    if (!IsFullPath(m_toolPath)) {
        LOG_E("Failed to locate 'vqdb': please run 'envsetup'");
        return false;
    }
    return true;
}

std::vector<std::string> VqdbAccessor::CompleteArguments(std::vector<std::string> arguments) const {
    std::vector<std::string> complete = {m_toolPath};
    if (!m_serial.empty()) {
        complete.insert(complete.end(), {"-s", m_serial});
    }
    std::ranges::move(arguments, std::back_inserter(complete));
    return complete;
}

ProcessResult VqdbAccessor::Run(std::vector<std::string> const& commandLine) const {
    constexpr std::chrono::milliseconds kLook{100};
    constexpr std::chrono::milliseconds kLastWord{1000};
    constexpr std::chrono::milliseconds kLongest{30000};
    ProcessFactory factory(commandLine);
    factory.ReadingStdoutStderr();
    if (!m_stop.stop_possible() && !m_limit) {
        return factory.Run();
    }
    auto const longest = m_limit.value_or(kLongest);
    auto const start = std::chrono::steady_clock::now();
    // Also at the very end a tool has the time to disconnect a port.
    auto const mayRun = [&] {
        auto const spent = std::chrono::steady_clock::now() - start;
        return spent < (m_stop.stop_requested() ? std::min(kLastWord, longest) : longest);
    };
    Process process = factory.Spawn();
    ProcessResult result = process.WaitForExit(kLook);
    while (result.state == ProcessResult::kNone && mayRun()) {
        result = process.WaitForExit(kLook);
    }
    return result.state == ProcessResult::kNone ? process.Kill() : result;
}

bool VqdbAccessor::RunAndThen(std::vector<std::string> arguments,
                              std::function<bool(ProcessResult const&)> const& then) const {
    try {
        return then(Run(CompleteArguments(std::move(arguments))));
    } catch (ProcessException const& error) {
        LOG_E("Failed to run vqdb: %s", error.what());
        return false;
    }
}

bool VqdbAccessor::GetConnectedDevices(std::vector<std::string>& serials) const {
    serials.clear();
    try {
        ProcessResult const result = Run({m_toolPath, "devices"});
        if (result.code != 0) {
            LOG_E("Error %d detecting devices:\n%s\n%s\n", result.code, result.standardOutput.c_str(),
                  result.standardError.c_str());
            return false;
        }
        serials = ParseVqdbDevices(result.standardOutput);
        return true;
    } catch (ProcessException const& error) {
        LOG_E("Failed to run vqdb: %s", error.what());
        return false;
    }
}

bool VqdbAccessor::GetDefaultDevice(std::string& serial, std::string& error, Limit limit) {
    serial.clear();
    error.clear();
    std::vector<std::string> devices;
    if (!VqdbAccessor("", {}, limit).GetConnectedDevices(devices)) {
        error = "Failed to talk to vqdb.";
        return false;
    }
    if (devices.empty()) {
        error = "No Corvane devices connected.";
        return false;
    }
    if (char const* const chosen = std::getenv("VQ_SERIAL"); chosen != nullptr) {
        serial = chosen;
        if (std::ranges::find(devices, serial) == devices.end()) {
            error = "VQ_SERIAL refers to '" + serial + "' which is not currently connected";
        }
        return error.empty();
    }
    if (devices.size() > 1) {
        error =
            "More than one Corvane device connected.  Specify one with VQ_SERIAL=<...> or with --device "
            "<...>:\n";
        for (std::string const& device : devices) {
            error += "\n\t" + device;
        }
        return false;
    }
    serial = devices.front();
    return true;
}

bool VqdbAccessor::IsConnected() const {
    return RunAndThen({"get-state"}, [](ProcessResult const& result) {
        bool const connected = result.code == 0 && result.standardOutput.find("device") != std::string::npos;
        if (!connected) {
            LOG_E("Unexpected device state: %s%s", result.standardOutput.c_str(),
                  result.standardError.c_str());
        }
        return connected;
    });
}

bool VqdbAccessor::GetPackageState(VqdbPackageState& state, std::string const& package,
                                   std::string const& component) const {
    state = VqdbPackageState::NotListed;
    return RunAndThen({"ps", "-j"}, [&](ProcessResult const& result) {
        if (result.code != 0) {
            LOG_E("Error %d checking processes\n%s\n%s\n", result.code, result.standardOutput.c_str(),
                  result.standardError.c_str());
            return false;
        }
        LOG_V("vqdb output:\n%s\n%s", result.standardOutput.c_str(), result.standardError.c_str());
        VqdbPackageQuery const query = FindVqdbPackage(result.standardOutput, package, component);
        if (!query.parsed) {
            LOG_E("failed to parse 'vqdb ps -j' output: %s", query.errors.c_str());
            return false;
        }
        if (query.unexpectedFormat) {
            RaiseFormatAlarm();
        }
        if (query.found) {
            LOG_V("Package %s%s is in state %s on %s", package.c_str(), component.c_str(),
                  query.state.c_str(), m_serial.c_str());
            bool known = false;
            state = ParseVqdbPackageState(query.state, known);
            if (!known) {
                LOG_W("Unknown package state '%s' for %s%s", query.state.c_str(), package.c_str(),
                      component.c_str());
            }
            return true;
        }
        if (!s_formatAlarm) {
            return false;
        }
        LOG_W("Assuming package %s is (still) running", package.c_str());
        state = VqdbPackageState::Running;
        return true;
    });
}
