// The server or the provider is killed, stopped or falls silent at each step of an application's bring-up, of
// a call and of its release, and comes back. The expected codes and times follow from the library's limits: a
// reply that is lost leaves its pipe waiting, so that what needs this pipe fails until the connection is new.

#include <signal.h>
#include <unistd.h>

#include <string_view>

#include "RequestTap.h"
#include "Rig.h"
#include "ServerRequests.pb.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/ServerRegistry.h"

namespace vq::test {
namespace {

/// What an application sees when one of the two fails it.
struct Effect {
    std::uint32_t code;  ///< of the call that is under way
    std::chrono::seconds time;
    bool works;  ///< by itself within 5 s of the return; else every call fails inside its limits
};

Effect EffectOf(std::string const& cell) {
    std::istringstream words(cell);
    std::string code;
    int seconds = 0;
    std::string fate;
    words >> code >> seconds >> fate;
    return {static_cast<std::uint32_t>(std::stoul(code, nullptr, 0)), std::chrono::seconds(seconds),
            fate == "heals"};
}

struct Step {
    std::string name;
    std::string call;     ///< kNone: none is under way
    std::string message;  ///< whose arrival at the server or the provider is the moment
    Effect server;
    Effect provider;
    Effect killedProvider;  ///< the server sees the process end, and takes the provider off its map
};

enum class Fault { Killed, Stopped, Silent };
constexpr char const* kFaults[] = {"Killed", "Stopped", "Silent"};

struct Cell {
    Step step;
    bool server;  ///< is the one that fails; else the provider
    Fault fault;

    Effect const& Expected() const {
        return server ? step.server : fault == Fault::Killed ? step.killedProvider : step.provider;
    }
    std::string Name() const {
        return std::string(server ? "Server" : "Provider") + kFaults[static_cast<int>(fault)] + "At" +
               step.name;
    }
};

// Sanitizers and the library that hurries clocks keep each other from starting.
#if defined(VQ_FAKETIME) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
constexpr std::string_view kHurry = VQ_FAKETIME;
#else
constexpr std::string_view kHurry = "";
#endif

std::vector<Cell> Cells() {
    std::vector<Cell> cells;
    for (auto const& [name, call, message, server, provider, killed] : Rows<6>("FaultMatrix", "steps")) {
        Step const step{name, call, message, EffectOf(server), EffectOf(provider), EffectOf(killed)};
        for (Fault const fault : {Fault::Killed, Fault::Stopped, Fault::Silent}) {
            for (bool const isServer : {true, false}) {
                cells.push_back({step, isServer, fault});
            }
        }
    }
    if (kHurry.empty()) {
        // All of them would take an hour. These pass through the most different code.
        std::erase_if(cells, [](Cell const& cell) {
            std::string const name = cell.Name();
            return name != "ServerKilledAtProtocolVersion" && name != "ServerKilledAtChannels" &&
                   name != "ServerStoppedAtMappings" && name != "ServerSilentAtIdle" &&
                   name != "ServerKilledAtUnregistration" && name != "ProviderStoppedAtReply" &&
                   name != "ProviderKilledAtIdle";
        });
    }
    return cells;
}

class FaultMatrix : public testing::TestWithParam<Cell> {
public:
    FaultMatrix()
        : m_isLong(m_expected.time > 0s),
          m_hurried(m_isLong && !kHurry.empty()),
          m_slack(m_hurried ? 40s : 10s) {
        if (m_isLong) {
            // The provider's process is to bear with a server that is away for longer than usual.
            ::setenv("VQ_DEBUG_VDS", "1", 1);
        }
        if (m_hurried) {
            ::setenv("LD_PRELOAD", kHurry.data(), 1);
            ::setenv("FAKETIME", "+0 x5", 1);
        }
        m_rig.StartServer();
        m_rig.StartProvider();
        m_serverTap = std::make_unique<RequestTap>(m_front, m_rig.Address());
        // The tap takes the place of the provider's endpoint.
        std::string const endpoint = m_rig.Address().substr(4) + ".sparseDevice.MockVQ1IdentitySparseDevice";
        EXPECT_EQ(std::rename(endpoint.c_str(), (endpoint + "2").c_str()), 0) << endpoint;
        m_providerTap = std::make_unique<RequestTap>("IPC:" + endpoint, "IPC:" + endpoint + "2");
        Announce();
    }
    ~FaultMatrix() override {
        for (char const* const name : {"LD_PRELOAD", "FAKETIME", "VQ_DEBUG_VDS"}) {
            ::unsetenv(name);
        }
    }

    /// Enters the tap in the registry, for the library asks no server that does not stand there.
    void Announce() const {
        ServerRegistry& registry = ServerRegistry::Instance();
        ServerDescriptor line;
        ASSERT_TRUE(
            registry.FindServer(MessageAddress::FromString(m_rig.Address()), line, kPatience, nullptr));
        line.name = "tap";
        line.address = MessageAddress::FromString(m_front);
        ASSERT_TRUE(registry.RegisterServer(line, kPatience, nullptr));
    }

    RequestTap& VictimsTap() { return GetParam().server ? *m_serverTap : *m_providerTap; }
    Program& Victim() { return GetParam().server ? m_rig.Server() : m_rig.Provider(); }

    void Fail() {
        switch (GetParam().fault) {
            case Fault::Killed:
                Victim().End(SIGKILL);
                VictimsTap().Set(RequestTap::Mode::HungUp);
                if (!GetParam().server && m_expected.works) {
                    AwaitRemoval();
                }
                break;
            case Fault::Stopped:
                Victim().Signal(SIGSTOP);
                VictimsTap().Set(RequestTap::Mode::Hold);
                break;
            case Fault::Silent:
                VictimsTap().Set(RequestTap::Mode::Swallow);
                break;
        }
        m_failed = true;
    }

    /// Until the server has noticed.
    void AwaitRemoval() const {
        auto const lookup =
            wire::Parsed<vq::vds::GetDeviceRequestReplyAddress>("1:'MockVQ1IdentitySparseDevice' 2:0");
        RawSocket server(ZMQ_REQ, m_rig.Address());
        while (server.Ask(lookup).ends_with(".Reply")) {
            ::usleep(10000);
        }
    }

    void ComeBack() {
        if (GetParam().fault == Fault::Stopped) {
            // The exchange began after the call, and has the same limit.
            ::usleep(m_hurried ? 400000 : 2000000);
            Victim().Signal(SIGCONT);
            VictimsTap().Set(RequestTap::Mode::Pass);
            return;
        }
        VictimsTap().Close();
        if (GetParam().server) {
            m_rig.StartServer();
            m_serverTap->Set(RequestTap::Mode::Pass);
        } else {
            m_rig.StartProvider();  // takes its endpoint itself
        }
    }

    /// Time on the caller's clock until it has the profile.
    std::chrono::milliseconds TimeUntilItWorks(Caller& caller) {
        std::chrono::milliseconds spent{0};
        for (CallResult result; result.code != kOk && spent < 40s; spent += result.duration + 50ms) {
            result = caller.Call("names");
            ::usleep(50000);
        }
        return spent;
    }

    Effect const& m_expected = GetParam().Expected();
    bool const m_isLong;  // takes time that can be hurried
    bool const m_hurried;
    std::chrono::seconds const m_slack;  // of a busy machine, on the clock of the programs
    Rig m_rig;
    std::string const m_front = "IPC:" + HomeDirectory() + "tap";
    std::unique_ptr<RequestTap> m_serverTap;
    std::unique_ptr<RequestTap> m_providerTap;
    std::atomic<bool> m_failed{false};
};

TEST_P(FaultMatrix, EndsInsideItsLimitsAndHealsByItselfWhereItCan) {
    Step const& step = GetParam().step;
    Caller caller({{"VQ_VDS_ADDRESS", m_front}});
    if (step.call != "names") {
        ASSERT_EQ(caller.Call("names").code, kOk) << caller.Process().DrainOutput();
    }
    if (step.call == kNone) {
        Fail();
    } else {
        for (RequestTap* const tap : {m_serverTap.get(), m_providerTap.get()}) {
            tap->WhenPasses(step.message, [this] { Fail(); });
        }
        CallResult const first = caller.Call(step.call);
        EXPECT_EQ(first.code, m_expected.code);
        EXPECT_GE(first.duration, m_expected.time - 200ms);
        EXPECT_LT(first.duration, m_expected.time + m_slack);
    }
    ASSERT_TRUE(m_failed);
    ComeBack();
    if (m_expected.works) {
        EXPECT_LT(TimeUntilItWorks(caller), 5s + (m_isLong ? m_slack : 0s));
    } else {
        CallResult const next = caller.Call("names");
        EXPECT_TRUE(next.code == kFailure || next.code == kNoLocalService) << next.code;
        EXPECT_LT(next.duration, 30s + m_slack);
    }
    caller.ExpectCleanExit();
    Caller other;
    EXPECT_LT(TimeUntilItWorks(other), 5s + m_slack) << "nobody is served any more";
}

INSTANTIATE_TEST_SUITE_P(Cells, FaultMatrix, testing::ValuesIn(Cells()),
                         [](auto const& each) { return each.param.Name(); });

}  // namespace
}  // namespace vq::test
