#include "identity/ProfileCache.h"

#include "Identity.pb.h"
#include "TestSupport/Test.h"

using vq::IdentityShim::ProfileCache;

namespace {

/// A profile of `attributes` attributes that claims to have `count`. The texts differ in length, so that some
/// live inside their string objects and some outside.
vq::sd::VQIdentityProfile MakeProfile(std::uint32_t count, int attributes, std::string const& prefix = "") {
    vq::sd::VQIdentityProfile profile;
    profile.set_attribute_count(count);
    for (int i = 0; i < attributes; ++i) {
        vq::sd::VQIdentityAttribute& attribute = *profile.add_attributes();
        attribute.set_key(static_cast<vq::sd::VQIdentityAttributeKey>(i % 8));
        attribute.set_name(prefix + "name" + std::to_string(i));
        attribute.set_value(prefix + std::string(static_cast<std::size_t>(i), 'v'));
        attribute.set_is_requested(i % 2 == 0);
        attribute.set_is_granted(i % 3 == 0);
    }
    return profile;
}

void ExpectRecords(VQIdentityProfile const& record, vq::sd::VQIdentityProfile const& profile) {
    ASSERT_EQ(record.attribute_count, profile.attribute_count());
    for (std::uint32_t i = 0; i < record.attribute_count; ++i) {
        VQIdentityAttribute const& attribute = *record.attribute_ptrs[i];
        vq::sd::VQIdentityAttribute const& expected = profile.attributes(static_cast<int>(i));
        EXPECT_EQ(static_cast<int>(attribute.key), static_cast<int>(expected.key()));
        EXPECT_EQ(attribute.name, expected.name());
        EXPECT_EQ(attribute.value, expected.value());
        EXPECT_EQ(attribute.is_requested, expected.is_requested());
        EXPECT_EQ(attribute.is_granted, expected.is_granted());
    }
}

}  // namespace

TEST(ProfileCacheTest, TheRecordsShowAsManyAttributesAsTheMessageCountsAndKeepTheCallersArray) {
    for (auto const& [count, attributes] : {std::pair{1u, 1}, {50u, 50}, {2u, 3}, {120u, 120}}) {
        ProfileCache cache;
        VQIdentityProfile* out = cache.Profile();
        auto const names = MakeProfile(count, attributes);
        cache.PullOutProfile(names);
        EXPECT_EQ(out->attribute_count, count);
        EXPECT_EQ(out->attribute_ptrs, nullptr) << "before any names a refresh sets the count alone";
        vq::sd::VQIdentityProfile message;
        cache.FillMessage(message);
        EXPECT_EQ(message.attributes_size(), static_cast<int>(count))
            << "what the next request for values sends";
        ASSERT_TRUE(cache.FillVQProfileAttributeNames(&out));
        ExpectRecords(*out, names);

        VQIdentityAttribute** const array = out->attribute_ptrs;
        auto const values = MakeProfile(count, attributes, "a value too long for the string object itself ");
        cache.PullOutProfile(values);
        EXPECT_EQ(out->attribute_ptrs, array);
        ExpectRecords(*out, values);

        out->attribute_ptrs[0]->value = "mine";
        message.Clear();
        cache.FillMessage(message);
        ExpectRecords(*out, message);
        EXPECT_EQ(message.attributes(0).value(), "mine") << "as the records stand, the caller's changes too";
    }
}
