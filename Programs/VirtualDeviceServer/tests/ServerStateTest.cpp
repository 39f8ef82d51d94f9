#include "StateFixture.h"
#include "TestSupport/Test.h"

namespace vq::server {
namespace {

class DeviceRegistrationTest : public StateFixture {};

TEST_F(DeviceRegistrationTest, RefusesWhatNobodyCouldReach) {
    std::int32_t id = 0;
    for (char const* address : {"", "NONE:x", "IPC:", "IPC:/tmp/x?logical", "somewhere"}) {
        auto request = Registration("a");
        request.set_address(address);
        EXPECT_TRUE(state.RegisterDevice(request, now, id)) << address;
    }
    EXPECT_TRUE(state.RegisterDevice(Registration(""), now, id));
    EXPECT_TRUE(state.RegisterDevice(Registration(std::string(2000, 'x')), now, id));
    EXPECT_EQ(id, 0);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(DeviceRegistrationTest, AnnouncesEachStepToThoseWhoMayHaveMissedTheFirst) {
    std::int32_t const id = Register("a");
    Channels(id, {"p"}, {"o"}, true);
    EXPECT_FALSE(state.ReportInitialized(id, now));
    EXPECT_THAT(TakeEvents(), ElementsAre("registered a 1", "a has p as producer", "a has o as observer",
                                          "p from a", "registered a 1", "initialized a 1"));
}

TEST_F(DeviceRegistrationTest, SameNameReplacesTheOldDeviceButTwoNamesakesDoNotUnseatEachOtherForEver) {
    Provider("a", "c");
    TakeEvents();
    EXPECT_EQ(Register("a"), 2);
    EXPECT_THAT(TakeEvents(),
                ElementsAre("a lost c as producer", "c from", "unregistered a 1", "registered a 2"));
    EXPECT_EQ(Register("a"), 3);
    EXPECT_THAT(TakeEvents(), ElementsAre("registered a 3"));
    EXPECT_EQ(state.Devices().All().size(), 2U);
    EXPECT_EQ(state.Devices().FindByName("a")->id, 3);

    now += DeviceTable::kNameQuarrelTime;
    Register("a");
    EXPECT_THAT(TakeEvents(), ElementsAre("unregistered a 2", "unregistered a 3", "registered a 4"));
}

class ChannelRegistrationTest : public StateFixture {};

TEST_F(ChannelRegistrationTest, AChannelHasOneIdForAllItsDevices) {
    auto const first = Channels(Register("a"), {"p", "q"}, {}, false);
    auto const second = Channels(Register("b"), {"q"}, {"p"}, false);
    EXPECT_THAT(second, ElementsAre(first[1], first[0]));
    EXPECT_EQ(state.Channels().All().size(), 2U);
}

TEST_F(ChannelRegistrationTest, UnregisteringTakesOneRoleATimeAndTheChannelGoesWithTheLast) {
    std::int32_t const id = Register("a");
    auto const ids = Channels(id, {"p"}, {"p"}, true);
    TakeEvents();
    vq::vds::UnregisterSparseDeviceChannels request;
    request.set_device_id(id);
    request.add_channel_ids(ids[0]);
    EXPECT_FALSE(state.UnregisterChannels(request));
    EXPECT_THAT(TakeEvents(), ElementsAre("a lost p as producer", "p from"));
    EXPECT_FALSE(state.UnregisterChannels(request));
    EXPECT_THAT(TakeEvents(), ElementsAre("a lost p as observer"));
    EXPECT_TRUE(state.UnregisterChannels(request));
    EXPECT_THAT(state.Channels().All(), IsEmpty());
}

/// Before each case: devices A, B and C, in this order, can produce "x"; only B serves it.
class MappingTest : public StateFixture {
protected:
    void SetUp() override {
        for (char const* name : {"A", "B", "C"}) {
            Register(name);
        }
        for (std::int32_t const id : {3, 2, 1}) {
            Channels(id, {"x"}, {}, id == 2);
        }
        TakeEvents();
    }
    using Mapping = std::vector<std::pair<std::string, std::string>>;
    void Add(Mapping const& pairs, Names const& refused) {
        EXPECT_EQ(Texts(state.AddMappings(Pairs(pairs))), refused);
    }
    void Remove(Mapping const& pairs, Names const& refused) {
        EXPECT_EQ(Texts(state.RemoveMappings(Pairs(pairs))), refused);
    }
    void Expect(Names const& inForce, Names const& happened) {
        EXPECT_EQ(InForce(), inForce);
        EXPECT_EQ(TakeEvents(), happened);
    }
};

TEST_F(MappingTest, EarlierRegistrationRanksFirstAndRefusedEntriesDoNotHoldBackTheOthers) {
    Expect({"B:x"}, {});  // only automapped producers serve
    Add({{"B", "x"}}, {});
    Expect({"B:x"}, {});
    Add({{"C", "x"}, {"D", "x"}, {"A", "y"}, {"A", "x"}}, {"D:x", "A:y"});
    Expect({"A:x", "B:x", "C:x"}, {"x from B C", "x from A B C"});
}

TEST_F(MappingTest, RemovingTheLastLeavesTheChannelUnmappedAndWhatIsNotMappedIsRefused) {
    Remove({{"A", "x"}, {"D", "x"}, {"B", "y"}}, {"A:x", "D:x", "B:y"});
    Expect({"B:x"}, {});
    Remove({{"B", "x"}}, {});
    Expect({}, {"x from"});
}

TEST_F(MappingTest, ClearingTellsEachChannelThatHadBeenServed) {
    Provider("P", "z");
    Remove({{"P", "z"}}, {});
    state.ClearMappings();
    Expect({}, {"registered P 4", "P has z as producer", "z from P", "z from", "x from"});
}

TEST_F(MappingTest, TheNextInRankTakesOverWhenAProviderGoesAndAnIdleOneGoesWithoutAMappingEvent) {
    Add({{"C", "x"}}, {});
    state.UnregisterDevice(2, "B");
    state.UnregisterDevice(1, "A");
    Expect({"C:x"}, {"x from B C", "B lost x as producer", "x from C", "unregistered B 2",
                     "A lost x as producer", "unregistered A 1"});
}

class PruningTest : public StateFixture {};

TEST_F(PruningTest, AnApplicationWhoseLastDeviceFellSilentHasCrashed) {
    vq::vds::RegisterDeviceApplication application;
    application.set_name("app");
    application.set_process_id(4242);
    std::uint32_t const id = state.RegisterDeviceApplication(application);
    for (char const* name : {"a", "b"}) {
        auto request = Registration(name);
        request.mutable_description()->set_process_id(id);
        std::int32_t device = 0;
        EXPECT_FALSE(state.RegisterDevice(request, now, device));
    }
    TakeEvents();
    state.PruneSilent(now + state.pruneAfter);
    EXPECT_THAT(TakeEvents(),
                ElementsAre("unregistered a 1", "unregistered b 2", "vq.vds.DeviceApplicationCrashedEvent",
                            "vq.vds.DeviceApplicationUnregisteredEvent"));
    EXPECT_THAT(state.Applications().DeviceApplications(), IsEmpty());
}

class ApplicationTest : public StateFixture {};

TEST_F(ApplicationTest, RegisteringAgainTakesThePlaceOfTheOldEntry) {
    vq::vds::RegisterVQSDKApplication sdk;
    sdk.set_name("app");
    sdk.set_process_id(1);
    EXPECT_EQ(state.RegisterSdkApplication(sdk), 1U);
    EXPECT_EQ(state.RegisterSdkApplication(sdk), 2U);
    sdk.set_process_id(2);
    EXPECT_EQ(state.RegisterSdkApplication(sdk), 3U);
    EXPECT_EQ(state.Applications().SdkApplications().size(), 2U);
    EXPECT_FALSE(state.UnregisterSdkApplication(2));
    EXPECT_TRUE(state.UnregisterSdkApplication(2));
    EXPECT_TRUE(state.UnregisterDeviceApplication(3)) << "ids of the two kinds must not be mixed up";
    EXPECT_TRUE(state.ReportApplicationInitialized(3));
    EXPECT_THAT(
        TakeEvents(),
        ElementsAre("vq.vds.VQSDKApplicationRegisteredEvent", "vq.vds.VQSDKApplicationUnregisteredEvent",
                    "vq.vds.VQSDKApplicationRegisteredEvent", "vq.vds.VQSDKApplicationRegisteredEvent",
                    "vq.vds.VQSDKApplicationUnregisteredEvent"));
}

class FormerLifeTest : public StateFixture {
protected:
    FormerLifeTest() {
        ServerMemory memory;
        memory.nextDeviceId = 8;
        memory.devices = {{.id = 5, .name = "a"}, {.id = 6, .name = "b"}, {.id = 7, .name = "b"}};
        state = ServerState([this](auto const& event) { events.push_back(Describe(event)); }, memory);
    }
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
