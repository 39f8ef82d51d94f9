#include "IdentityProfile.h"

#include "PendingRequests.h"
#include "SparseDevice/ManifestProcessor.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"

namespace vq::mock {
namespace {

IdentitySettings SettingsOf(std::string const& settings) {
    ManifestProcessor manifest;
    EXPECT_TRUE(manifest.ProcessManifestString(
        R"({"ManifestType": "SparseDevice", "DeviceName": "d", "DeviceType": "Identity", "ConfigurationSettings": )" +
        settings + "}"));
    return IdentitySettings::FromConfiguration(manifest.GetData().configurationState);
}

IdentitySettings TwoAttributes() {
    return SettingsOf(R"({"Profile": [ { "Key": 3, "Name": "a", "Value": "A", "Granted": true },
                                       { "Key": 5, "Name": "b", "Value": "B", "Granted": false } ]})");
}

TEST(IdentityProfile, AttributesThatCouldNotBeSentAreLeftOut) {
    vq::test::LogCapture log;
    IdentitySettings const settings = SettingsOf(R"({"Profile": [ { "Key": 8, "Name": "a" }, { "Name": "b" },
                                                                  { "Key": -1, "Name": "c" }, { "Key": 7 } ]})");
    ASSERT_EQ(settings.profile.size(), 1U);
    EXPECT_EQ(settings.profile[0].key, 7);
    EXPECT_EQ(log.Count(LogLevel::Error, "no Key from 0 to 7"), 3U);
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
