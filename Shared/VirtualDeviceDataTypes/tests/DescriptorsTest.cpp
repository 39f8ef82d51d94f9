#include "DataTypes/ChannelDescriptor.h"
#include "DataTypes/SimpleRegistry.h"
#include "DataTypes/SparseDeviceType.h"
#include "Descriptors.pb.h"
#include "ServerRequests.pb.h"
#include "TestSupport/Test.h"

namespace {

TEST(DeviceTypes, TranslateBothWaysAndFallBackToGeneric) {
    EXPECT_EQ(DeviceTypeToString(static_cast<SparseDeviceType>(17)), "Identity");
    EXPECT_EQ(DeviceTypeToString(static_cast<SparseDeviceType>(20)), "VirtualRoomPeripheral");
    for (int number = 0; number <= 20; ++number) {
        auto const type = static_cast<SparseDeviceType>(number);
        EXPECT_EQ(DeviceTypeFromString(DeviceTypeToString(type)), type);
    }
    for (int const number : {-1, 21}) {
        EXPECT_EQ(DeviceTypeToString(static_cast<SparseDeviceType>(number)), "Generic");
    }
    for (char const* const text : {"generic", "identity", "Toaster", ""}) {
        EXPECT_EQ(DeviceTypeFromString(text), SparseDeviceType::Generic) << text;
    }
}

TEST(ChannelDescriptors, AreEqualByNameAndDataTypeWhereverTheyComeFrom) {
    vq::descriptors::data::ChannelDescription description;
    description.set_name("pose");
    description.set_data_type("Vec3");
    description.set_third_text("puck");
    description.set_flag_4(true);
    ChannelDescriptor const registered(description);
    EXPECT_EQ(registered.label + "," + registered.defaultProducer, "pose,puck");
    EXPECT_TRUE(registered.resizable && !registered.userVisible);
    EXPECT_TRUE(registered == ChannelDescriptor("pose", "Pose", "Vec3", "other", false, true));
    EXPECT_TRUE(registered != ChannelDescriptor("pose", "pose", "Quat", "puck", true, false));
}

class FixedRegistry : public SimpleRegistry<std::string, std::string> {
public:
    bool OverrideItem(std::string* existing, std::string* incoming) override {
        last = *incoming;
        return *existing == "fixed";
    }
    void HandleRegisteredItem(std::string* item) override { handled += *item; }

    std::string last;
    std::string handled;
};

// That each item is deleted once is for the address sanitizer to see.
TEST(Registries, HandBackTheOldItemAndKeepOneAgainstRedefinition) {
    FixedRegistry registry;
    EXPECT_EQ(registry.Add("k", std::make_unique<std::string>("one")), nullptr);
    auto const old = registry.Add("k", std::make_unique<std::string>("fixed"));
    ASSERT_NE(old, nullptr);
    EXPECT_EQ(*old, "one");
    EXPECT_EQ(registry.Add("k", std::make_unique<std::string>("late")), nullptr) << "refused, not new";
    EXPECT_EQ(registry.last, "late");
    EXPECT_EQ(*registry.Find("k"), "fixed");
    EXPECT_EQ(registry.handled, "onefixed") << "not told of the refused one";
    auto refused = std::make_unique<std::string>("raw");
    EXPECT_EQ(registry.Register("k", refused.get()), nullptr);
    EXPECT_EQ(*refused, "raw") << "still the caller's";
}

}  // namespace
