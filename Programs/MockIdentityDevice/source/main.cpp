// mock_identity_device: a stand-alone provider of the identity feature, for desktops and tests.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DataTypes/VariantUtils.h"
#include "Logging/Log.h"
#include "Logging/LogConfig.h"
#include "MockIdentityDevice.h"
#include "SparseDevice/SparseDeviceApplication.h"
#include "SparseDeviceHelpers/SparseDeviceMule.h"
#include "Utils/OSUtils.h"

namespace {

using Mule = SparseDeviceMule<vq::mock::MockIdentityDevice>;

class MockIdentityApplication : public SparseDeviceApplication {
public:
    /// @param mule  outlives the application
    explicit MockIdentityApplication(Mule& mule) : m_mule(mule) {}

    std::string GetVersion() const override { return "1.0.0"; }

    bool RunDevices() override {
        AddDeviceMule(&m_mule);
        return m_mule.StartDevice(GetManifestProcessor().GetData(), this);
    }

    bool OnInitialization() override {
        if (!SparseDeviceApplication::OnInitialization()) {
            return false;
        }
        // Whoever started us may wait for this line: the device serves from here on.
        std::puts("ready");
        std::fflush(stdout);
        return true;
    }

    /// Changes one setting of the manifest, given as NAME=VALUE; the value is text for the property's type.
    bool ApplySetting(std::string const& text) {
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

private:
    Mule& m_mule;
};

}  // namespace

int main(int argc, char** argv) {
    CLI::App commandLine("Sample provider of the identity feature");
    SparseDeviceCLIOptions options;
    std::vector<std::string> settings;
    bool verbose = false;
    commandLine.add_option("--manifest", options.manifestPath,
                           "device manifest (default: the one beside the program)");
    commandLine.add_option("--device-name", options.deviceName,
                           "name of the device in place of the manifest's");
    commandLine.add_option("--set", settings, "NAME=VALUE: a setting in place of the manifest's")
        ->allow_extra_args(false);
    commandLine.add_flag("--verbose", verbose, "say what happens");
    CLI11_PARSE(commandLine, argc, argv);
    if (verbose) {
        LogConfig::Instance().SetLevel(LogLevel::Verbose);
    }

    Mule mule;
    MockIdentityApplication application(mule);
    if (!application.HandleCommonSparseDeviceCLIOptions(options,
                                                        GetDataRootPath() + "MockIdentityDevice.json")) {
        return 1;
    }
    for (std::string const& setting : settings) {
        if (!application.ApplySetting(setting)) {
            return 1;
        }
    }
    return application.Run() ? 0 : 1;
}
