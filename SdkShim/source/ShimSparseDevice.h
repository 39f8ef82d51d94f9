#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Feature.h"
#include "SparseDevice/SparseDevice.h"

class AMessage;

namespace vq::SdkShim {

/// The device through which a shim library reaches the providers of its features: which channel stands for
/// a feature, which device is preferred for it, and a request pipe to whoever provides it now. On the
/// device's thread.
class ShimSparseDevice : public SparseDevice {
public:
    ShimSparseDevice();
    ~ShimSparseDevice() override = default;

    bool Init(ManifestProcessor::ManifestData const& data, SparseDeviceApplication* application) override;

    /// The pipe to the provider of a feature, found at the first call by up to 4 attempts of 4 s and an
    /// exchange with the server. A failure is remembered: null, until the server maps the channel anew.
    /// @return owned by the pipe provider.
    AMessagePipeRequestReply* GetFeatureProviderPipe(Feature feature);

    /// Makes the server know this process as an application; once. Waits up to 15 s to send and 15 s to
    /// receive.
    /// @return false when the server refuses (logged) or does not answer.
    bool EnsureVQSDKApplicationRegistered();
    /// Takes that back, waiting as long; from then on the process counts as not registered in any case.
    /// @return false when the server does not confirm it.
    bool UnregisterVQSDKApplication();

protected:
    /// Makes the channel that a setting names the one that stands for a feature. Call it after Init.
    void TrackFeatureChannelProperty(Feature feature, std::string const& property);

private:
    void BuildFeatureToDevicePriorityMap();
    std::string const* FindFeatureChannel(Feature feature) const;
    bool OnChannelMappingChangedEvent(AMessage* message);

    /// An entry may be null. The pipe provider owns the pipes.
    std::map<Feature, AMessagePipeRequestReply*> m_featurePipes;
    /// By channel name, which is empty when the setting is missing.
    std::map<std::string, Feature> m_featureChannels;
    std::map<Feature, std::vector<std::string>> m_featureDevicePriorities;
    std::string m_executableName;
    /// Given by the server; 0 when not registered.
    std::int32_t m_applicationHandle = 0;
};

}  // namespace vq::SdkShim
