#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "DataTypes/ConfigurationState.h"
#include "Identity.pb.h"

namespace vq::mock {

/// One attribute that the provider knows.
struct StoredAttribute {
    vq::sd::VQIdentityAttributeKey key;
    std::string name;
    std::string value;
    bool granted;  ///< whether a request for the value gets it
};

/// What the sample provider answers from: the profile and the ways to misbehave, all from the device's
/// settings. A plain value, read anew whenever a setting changes.
struct IdentitySettings {
    std::vector<StoredAttribute> profile;
    std::int32_t result = 0;    ///< result code of the answers with a profile; anything but 0 empties them
    std::uint32_t delayMs = 0;  ///< time an answer takes, in milliseconds

    /// Reads "Profile", "LoggedIn", "Result" and "DelayMs". An attribute with a key outside 0 to 7, or
    /// without one, is left out with an error line; so nothing that is read here can fail to be sent.
    static IdentitySettings FromConfiguration(ConfigurationState const& state);
};

/// The attributes of the profile by name, without values: the answer to a request for names.
/// `keys` may be null for all; otherwise only attributes with one of these keys, in the order of the profile.
vq::sd::VQIdentityProfile NamesOf(IdentitySettings const& settings, std::vector<int> const* keys);

/// The answer to a request for values: the attributes of `request` in their order, each with its value where
/// the request asks for it and the profile grants it, and empty and not granted otherwise.
vq::sd::VQIdentityProfile ValuesOf(IdentitySettings const& settings,
                                   vq::sd::VQIdentityProfile const& request);

}  // namespace vq::mock
