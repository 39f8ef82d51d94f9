// What takes a former life of the server, or time.

#include "VirtualDeviceServer/ServerState.h"

#include "RawDevice.h"
#include "ServerEvents.pb.h"
#include "TestSupport/Test.h"

namespace vq::server {
namespace {

/// A state whose events are collected.
class ServerStateTest : public testing::Test {
protected:
    explicit ServerStateTest(ServerMemory const& memory = {})
        : state([this](auto const& event) { events.push_back(Describe(event)); }, memory) {}

    static std::string Describe(google::protobuf::MessageLite const& event) {
        if (auto const* e = dynamic_cast<vq::vds::DeviceRegisteredEvent const*>(&event)) {
            return "registered " + e->name() + " " + std::to_string(e->device_id());
        }
        auto const& e = dynamic_cast<vq::vds::DeviceUnregisteredEvent const&>(event);
        return "unregistered " + e.name() + " " + std::to_string(e.device_id());
    }
    std::int32_t Register(std::string const& name) {
        std::int32_t id = 0;
        EXPECT_FALSE(state.RegisterDevice(Registration(name), now, id));
        return id;
    }
    Lines TakeEvents() { return std::exchange(events, {}); }

    Lines events;
    TimePoint now = std::chrono::steady_clock::now();
    ServerState state;
};

TEST_F(ServerStateTest, ANamesakeReplacesThoseWhoseQuarrelIsLongAgo) {
    Register("a");
    Register("a");
    Register("a");
    TakeEvents();
    now += DeviceTable::kNameQuarrelTime;
    Register("a");
    EXPECT_THAT(TakeEvents(), ElementsAre("unregistered a 2", "unregistered a 3", "registered a 4"));
}

class FormerLifeTest : public ServerStateTest {
protected:
    FormerLifeTest()
        : ServerStateTest(ServerMemory{
              .nextDeviceId = 8,
              .devices = {{.id = 5, .name = "a"}, {.id = 6, .name = "b"}, {.id = 7, .name = "b"}}}) {}
};

TEST_F(FormerLifeTest, EachFormerDeviceIsAnnouncedUntilItsNamesakesAreBack) {
    state.AnnounceFormerDevices();
    EXPECT_THAT(TakeEvents(), ElementsAre("unregistered a 5", "unregistered b 6", "unregistered b 7"));
    EXPECT_EQ(Register("a"), 8);
    Register("b");  // one of the two: which one cannot be known
    TakeEvents();
    state.AnnounceFormerDevices();
    EXPECT_THAT(TakeEvents(), ElementsAre("unregistered b 6", "unregistered b 7"));
    Register("b");
    EXPECT_FALSE(state.HasFormerDevices());
    EXPECT_EQ(state.Devices().All().size(), 3U) << "namesakes that lived before must not unseat each other";
}

TEST_F(FormerLifeTest, MemoryHoldsFormerDevicesUntilTheyAreForgotten) {
    auto const revision = state.MemoryRevision();
    Register("c");
    EXPECT_NE(state.MemoryRevision(), revision);
    EXPECT_EQ(state.Memory().nextDeviceId, 9);
    EXPECT_EQ(state.Memory().devices.size(), 4U);
    state.ForgetFormerDevices();
    EXPECT_THAT(state.Memory().devices, ElementsAre(KnownDevice{.id = 8, .name = "c"}));
}

}  // namespace
}  // namespace vq::server
