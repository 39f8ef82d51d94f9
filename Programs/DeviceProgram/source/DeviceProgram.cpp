#include "DeviceProgram/DeviceProgram.h"

#include <cstdio>
#include <exception>
#include <utility>

#include "DataTypes/VariantUtils.h"
#include "Installation/Installation.h"
#include "Logging/Log.h"
#include "Logging/LogConfig.h"
#include "Logging/LogParameterCLIProcessor.h"
#include "Utils/PathText.h"

namespace vq {

DeviceProgram::DeviceProgram(std::string const& description, std::string manifest)
    : m_manifest(std::move(manifest)), m_commandLine(description) {
    m_commandLine.add_option("--manifest", m_options.manifestPath,
                             "device manifest (default: the one beside the program)");
    m_commandLine.add_option("--device-name", m_options.deviceName,
                             "name of the device in place of the manifest's");
    m_commandLine.add_option("--set", m_settings, "NAME=VALUE: a setting in place of the manifest's")
        ->allow_extra_args(false);
    m_commandLine.add_flag("--verbose", m_verbose, "say what happens");
    m_commandLine.footer(LogParameterCLIProcessor::GetHelpLine());
}

void DeviceProgram::AddSetting(std::string const& flags, std::string const& setting,
                               std::string const& help) {
    m_commandLine.add_option_function<std::string>(
        flags, [this, setting](std::string const& value) { m_settings.push_back(setting + "=" + value); },
        help);
}

std::string DeviceProgram::GetVersion() const {
    return GetProgramVersion();
}

int DeviceProgram::Main(int argc, char** argv) {
    AddVersionOption(m_commandLine, GetFileNameOf(argv[0]));
    bool helpShown = false;
    if (!LogParameterCLIProcessor::TakeParams(argc, argv, helpShown) || helpShown) {
        return helpShown ? 0 : 1;
    }
    try {
        m_commandLine.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return m_commandLine.exit(error);
    }
    if (m_verbose) {
        LogConfig::Instance().SetLevel(LogLevel::Verbose);
    }
    if (!HandleCommonSparseDeviceCLIOptions(m_options, FindDataDirectory(m_manifest) + m_manifest)) {
        return 1;
    }
    for (std::string const& setting : m_settings) {
        if (!ApplySetting(setting)) {
            return 1;
        }
    }
    return Run() && m_ready ? 0 : 1;
}

bool DeviceProgram::ReportInitialization() {
    m_ready = SparseDeviceApplication::ReportInitialization();
    if (m_ready) {
        // Whoever started us may wait for this line: the device serves from here on.
        std::puts("ready");
        std::fflush(stdout);
    }
    return m_ready;
}

bool DeviceProgram::ApplySetting(std::string const& text) {
    std::size_t const equals = text.find('=');
    std::string const name = text.substr(0, equals);
    ConfigurationState& state = GetManifestProcessor().GetMutableData().configurationState;
    vq::cfg::ConfigurationProperty const* property = state.properties.Find(name);
    if (equals == std::string::npos || property == nullptr) {
        LOG_PLAIN_E("'%s' is not a setting of this device, given as NAME=VALUE", text.c_str());
        return false;
    }
    vq::cfg::Variant value;
    std::string const& type = property->common().type();
    bool fits = false;
    try {
        fits = ConvertStringToVariant(type, text.substr(equals + 1), state, value);
    } catch (std::exception const&) {
        // A number type and no number: said below.
    }
    if (!fits) {
        LOG_PLAIN_E("'%s' does not fit the type %s of the setting", text.c_str(), type.c_str());
        return false;
    }
    state.SetValue(name, std::move(value));
    return true;
}

}  // namespace vq
