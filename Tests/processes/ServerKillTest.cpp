// The server dies at each request of an application's bring-up and of its first call, and comes back.

#include "RequestTap.h"
#include "Rig.h"
#include "TestSupport/TestHome.h"
#include "Utils/ServerRegistry.h"

namespace vq::test {
namespace {

using namespace std::chrono_literals;

/// What surrounds an application whose clock runs five times as fast, so that its limits pass sooner.
/// Sanitizers and the library that does it keep each other from starting.
ChildProcess::Environment Hurried(ChildProcess::Environment environment) {
#if defined(VQ_FAKETIME) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    environment.insert(environment.end(), {{"LD_PRELOAD", VQ_FAKETIME}, {"FAKETIME", "+0 x5"}});
#endif
    return environment;
}

/// Enters the tap in the registry, for the library asks no server that does not stand there.
void Announce(std::string const& server, std::string const& tap) {
    ServerRegistry& registry = ServerRegistry::Instance();
    ServerDescriptor line;
    ASSERT_TRUE(registry.FindServer(MessageAddress::FromString(server), line, kStartLimit, nullptr));
    line.name = "tap";
    line.address = MessageAddress::FromString(tap);
    ASSERT_TRUE(registry.RegisterServer(line, kStartLimit, nullptr));
}

struct Step {
    char const* request;  ///< lost with the server that it was sent to
    std::uint32_t code;   ///< of the call that is under way
};

class ServerKilledAt : public testing::TestWithParam<Step> {};

// The pipe to the server waits for an answer that will not come, so that a server that comes back does not
// help this process; but every call says so inside its limits, and the process can end.
TEST_P(ServerKilledAt, EveryCallFailsInsideItsLimitsAndTheProcessEnds) {
    Rig rig;
    rig.StartServer();
    rig.StartProvider();
    std::string const front = "IPC:" + HomeDirectory() + "tap";
    RequestTap tap(front, rig.Address());
    tap.HangUpAt(std::string("vq.vds.") + GetParam().request, [&] { rig.KillServer(); });
    ASSERT_NO_FATAL_FAILURE(Announce(rig.Address(), front));

    Caller caller(Hurried({{"VQ_VDS_ADDRESS", front}}));
    CallResult const first = caller.Call("names");
    EXPECT_EQ(first.code, GetParam().code);
    EXPECT_LT(first.duration, 60s);
    EXPECT_TRUE(tap.HasHungUp());

    rig.StartServer();
    rig.StartProvider();  // the first has ended where the server was away for longer than its heartbeat's
                          // limit
    tap.Resume();
    CallResult const next = caller.Call("names");
    EXPECT_TRUE(next.code == kFailure || next.code == kNoLocalService) << next.code;
    EXPECT_LT(next.duration, 60s);
    caller.Process().CloseInput();
    EXPECT_EQ(caller.Process().WaitForExit(kCallLimit), 0) << caller.Process().DrainOutput();
    EXPECT_EQ(Caller().Call("names").code, kOk) << "the server serves others";
}

INSTANTIATE_TEST_SUITE_P(Requests, ServerKilledAt,
                         testing::Values(Step{"GetProtocolVersion", kFailure}, Step{"GetDataPath", kFailure},
                                         Step{"GetServerEventAddress", kNoLocalService},
                                         Step{"GetServerDataEventBroadcastAddress", kNoLocalService},
                                         Step{"RegisterSparseDevice", kNoLocalService},
                                         Step{"CreateServerDataEventListenerAddress", kNoLocalService},
                                         Step{"GetChannelInfos", kNoLocalService},
                                         Step{"RegisterSparseDeviceChannels", kNoLocalService},
                                         Step{"ReportSparseDeviceInitialized", kNoLocalService},
                                         Step{"GetChannelMappings", kFailure},
                                         Step{"GetDeviceRequestReplyAddress", kFailure}),
                         [](auto const& each) { return std::string(each.param.request); });

}  // namespace
}  // namespace vq::test
