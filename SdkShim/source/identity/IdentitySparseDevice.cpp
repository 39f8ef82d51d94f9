#include "identity/IdentitySparseDevice.h"

namespace vq::IdentityShim {

bool IdentitySparseDevice::Init(ManifestProcessor::ManifestData const& data,
                                SparseDeviceApplication* application) {
    if (!ShimSparseDevice::Init(data, application)) {
        return false;
    }
    TrackFeatureChannelProperty(SdkShim::Feature::Identity, "IdentityFeatureChannel");
    return true;
}

}  // namespace vq::IdentityShim
