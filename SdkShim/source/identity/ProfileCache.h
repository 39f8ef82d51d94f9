#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vq_identity.h"

namespace vq::sd {
class VQIdentityProfile;
}

namespace vq::IdentityShim {

/// The C records that a caller of the interface reads, and the texts that they point to. No lock: the
/// exported functions use it on the caller's thread, one call at a time.
///
/// The records' pointers stay good until the next ClearProfile or ClearData: the stores are only ever
/// cleared, which keeps their room, so a refresh with as many attributes writes to the same places.
class ProfileCache {
public:
    ProfileCache();
    ~ProfileCache();
    ProfileCache(ProfileCache const&) = delete;
    ProfileCache& operator=(ProfileCache const&) = delete;

    /// The record that the caller is given. Never null; owned.
    VQIdentityProfile* Profile() const { return m_profile.get(); }

    /// Frees the attribute records and their texts, and empties the caller's record.
    void ClearProfile();
    /// Frees the attribute records and their texts, and leaves the caller's record as it is.
    void ClearData();

    /// Replaces the attributes by those of a message, and sets the count of the caller's record; its array
    /// stays where it is, or null. Throws google::protobuf::FatalException when the message counts more
    /// attributes than it holds.
    void PullOutProfile(sd::VQIdentityProfile const& profile);

    /// Writes count and array to the caller's record.
    /// @param out  null is false.
    /// Throws std::out_of_range when there is no attribute.
    bool FillVQProfileAttributeNames(VQIdentityProfile** out);

    /// Writes the caller's record as a message, attribute by attribute, whatever the caller has changed in
    /// it. A key outside 0 to 7 aborts the process.
    void FillMessage(sd::VQIdentityProfile& message) const;

    /// Logs the attributes, for debugging.
    void PrintAttrs() const;

private:
    void FreeAttributes();
    void FollowMovedStores();

    std::unique_ptr<VQIdentityProfile> m_profile;
    /// The array behind the caller's record; owns what it points to.
    std::unique_ptr<std::vector<VQIdentityAttribute*>> m_attributes;
    std::vector<std::string> m_names;
    std::vector<std::string> m_values;
};

}  // namespace vq::IdentityShim
