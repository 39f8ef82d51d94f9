#pragma once

#include "IdentityProfile.h"
#include "SparseDevice/SparseDevice.h"

namespace vq::mock {

/// The sample provider of the identity feature: a sparse device that answers identity requests from the
/// profile in its settings. A changed setting counts from the next request on.
class MockIdentityDevice : public SparseDevice {
public:
    MockIdentityDevice();

    void OnConfigurationSettingsChanged() override;

private:
    IdentitySettings const& Settings();

    IdentitySettings m_settings;
    bool m_settingsRead = false;  // false: read them again before the next answer
};

}  // namespace vq::mock
