#include "MockIdentityDevice.h"

#include <memory>

#include "IdentityCommandHandler.h"

namespace vq::mock {

namespace {
// Beside key 0, the commands that every device serves.
constexpr int kIdentityCommands = 1;
}  // namespace

MockIdentityDevice::MockIdentityDevice() : SparseDevice(SparseDeviceType::Identity) {
    AddCommandHandler(kIdentityCommands, std::make_unique<IdentityCommandHandler>(
                                             [this]() -> IdentitySettings const& { return Settings(); },
                                             [this] { return IsRequestingExit(); }));
}

void MockIdentityDevice::OnConfigurationSettingsChanged() {
    m_settingsRead = false;
}

IdentitySettings const& MockIdentityDevice::Settings() {
    if (!m_settingsRead) {
        m_settings = IdentitySettings::FromConfiguration(Configuration());
        m_settingsRead = true;
    }
    return m_settings;
}

}  // namespace vq::mock
