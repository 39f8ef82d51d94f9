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

/// Counts what is alive, and keeps items whose text is "fixed" against redefinition.
struct Item {
    explicit Item(std::string itemText) : text(std::move(itemText)) { ++alive; }
    Item(Item const& other) : text(other.text) { ++alive; }
    Item& operator=(Item const&) = delete;
    ~Item() { --alive; }

    std::string text;
    static inline int alive = 0;
};

class FixedRegistry : public SimpleRegistry<std::string, Item> {
public:
    bool OverrideItem(Item* existing, Item* incoming) override {
        last = incoming->text;
        return existing->text == "fixed";
    }
    void HandleRegisteredItem(Item* item) override { handled += item->text; }

    std::string last;
    std::string handled;
};

TEST(Registries, HandBackTheOldItemAndNeverLoseOne) {
    {
        FixedRegistry registry;
        EXPECT_EQ(registry.Add("k", std::make_unique<Item>("one")), nullptr);
        std::unique_ptr<Item> const old = registry.Add("k", std::make_unique<Item>("fixed"));
        ASSERT_NE(old, nullptr);
        EXPECT_EQ(old->text, "one");
        EXPECT_EQ(registry.Add("k", std::make_unique<Item>("late")), nullptr) << "refused, not new";
        EXPECT_EQ(registry.last, "late");
        EXPECT_EQ(registry.Find("k")->text, "fixed");
        EXPECT_EQ(registry.handled, "onefixed") << "not told of the refused one";
        EXPECT_EQ(Item::alive, 2);
        auto refused = std::make_unique<Item>("raw");
        EXPECT_EQ(registry.Register("k", refused.get()), nullptr);
        EXPECT_EQ(refused->text, "raw") << "still the caller's";
    }
    EXPECT_EQ(Item::alive, 0);
}

}  // namespace
