#include "IdentityProfile.h"

#include "PendingRequests.h"
#include "SparseDevice/ManifestProcessor.h"
#include "TestSupport/Test.h"

namespace vq::mock {
namespace {

IdentitySettings TwoAttributes() {
    ManifestProcessor manifest;
    EXPECT_TRUE(manifest.ProcessManifestString(
        R"({"ManifestType": "SparseDevice", "DeviceName": "d", "DeviceType": "Identity",
            "ConfigurationSettings": {"Profile": [ { "Key": 3, "Name": "a", "Value": "A", "Granted": true },
                                                   { "Key": 5, "Name": "b", "Granted": false } ]}})"));
    return IdentitySettings::FromConfiguration(manifest.GetData().configurationState);
}

TEST(IdentityProfile, AnUnknownAttributeComesBackNotGranted) {
    vq::sd::VQIdentityProfile request = NamesOf(TwoAttributes(), nullptr);
    request.mutable_attributes(0)->set_key(vq::sd::VQIdentityAttributeKey_0);
    request.mutable_attributes(0)->set_is_granted(true);
    vq::sd::VQIdentityProfile const answer = ValuesOf(TwoAttributes(), request);
    EXPECT_EQ(answer.attributes(0).name(), "a");
    EXPECT_FALSE(answer.attributes(0).is_granted());
}

TEST(PendingRequests, TheOldestAnswersMakeRoomAndHandlesAreNeverUsedTwice) {
    PendingRequests pending;
    std::uint64_t const first = pending.Add({});
    for (std::size_t i = 0; i < PendingRequests::kCapacity; ++i) {
        pending.Add({});
    }
    EXPECT_EQ(pending.Find(first), nullptr);
    EXPECT_NE(pending.Find(first + 1), nullptr);
    pending.Clear();
    EXPECT_GT(pending.Add({}), first + PendingRequests::kCapacity);
}

}  // namespace
}  // namespace vq::mock
