#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "SparseDevice/SparseDeviceApplication.h"
#include "SparseDeviceHelpers/SparseDeviceMule.h"

namespace vq {

/// A stand-alone program around one device that is described by a manifest beside the program: reads the
/// command line, starts the device, says "ready" on standard output, and runs until it is told to end.
class DeviceProgram : public SparseDeviceApplication {
public:
    /// @param description  one line of help.
    /// @param manifest     file name of the manifest in the data directory.
    DeviceProgram(std::string const& description, std::string manifest);

    /// An option of the command line that stands for a setting of the manifest. Before Main.
    /// @param flags    as the command line library takes them, such as "--rate".
    /// @param setting  name of the setting.
    void AddSetting(std::string const& flags, std::string const& setting, std::string const& help);

    /// The whole program. It takes the logging options beside its own.
    /// @return the exit status: 0 when it ran, 1 when it could not start (logged), else the parser's.
    int Main(int argc, char** argv);

    std::string GetVersion() const override;
    /// Also says "ready".
    bool ReportInitialization() override;

private:
    /// Changes one setting of the manifest, given as NAME=VALUE; the value is text for the property's type.
    bool ApplySetting(std::string const& text);

    std::string m_manifest;
    CLI::App m_commandLine;
    SparseDeviceCLIOptions m_options;
    std::vector<std::string> m_settings;
    bool m_verbose = false;
    bool m_ready = false;
};

/// @tparam D  the device.
template <class D>
class DeviceProgramOf : public DeviceProgram {
public:
    using DeviceProgram::DeviceProgram;
    ~DeviceProgramOf() override { CleanupThreads(); }

    bool RunDevices() override {
        AddDeviceMule(&m_mule);
        return m_mule.StartDevice(GetManifestProcessor().GetData(), this);
    }

private:
    SparseDeviceMule<D> m_mule;
};

}  // namespace vq
