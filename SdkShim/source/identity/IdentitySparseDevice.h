#pragma once

#include "ShimSparseDevice.h"

namespace vq::IdentityShim {

/// The identity library's device: reaches the provider of the Identity feature.
class IdentitySparseDevice : public SdkShim::ShimSparseDevice {
public:
    bool Init(ManifestProcessor::ManifestData const& data, SparseDeviceApplication* application) override;
};

}  // namespace vq::IdentityShim
