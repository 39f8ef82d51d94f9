#include "ShimSparseDevice.h"

#include "AsyncCmd.h"
#include "Identity.pb.h"
#include "Messaging/AMessagePipe.h"
#include "ServerEvents.pb.h"
#include "SparseDeviceHelpers/SparseDeviceMule.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"
#include "identity/IdentitySparseDevice.h"

using vq::IdentityShim::IdentitySparseDevice;
using vq::SdkShim::Feature;
using vq::test::FakeServer;
using Types = std::vector<std::string>;

namespace {

constexpr char kChannel[] = "identity_channel";
constexpr char kPreferred[] = "MockVQ1IdentitySparseDevice";
constexpr char kOther[] = "SomeOtherProvider";

ManifestProcessor::ManifestData MakeManifest(bool withChannel = true) {
    ManifestProcessor::ManifestData data;
    data.deviceName = "IdentityShimSparseDevice";
    data.deviceType = "Shim";
    data.updateHertz = 200;
    if (withChannel) {
        data.configurationState.SetValue("IdentityFeatureChannel", kChannel);
    }
    return data;
}

class ShimSparseDeviceTest : public testing::Test {
protected:
    ShimSparseDeviceTest() {
        m_server.SetDeviceAddress(kPreferred, "IPC:preferred");
        m_server.SetDeviceAddress(kOther, "IPC:other");
    }

    void Start(bool withChannel = true) {
        ASSERT_TRUE(m_device.Init(MakeManifest(withChannel), nullptr));
        ASSERT_TRUE(m_device.FinishInit());
        m_server.ClearRequests();
    }

    /// Who the pipe of the Identity feature leads to; empty without a pipe.
    std::string Provider() {
        AMessagePipeRequestReply* const pipe = m_device.GetFeatureProviderPipe(Feature::Identity);
        if (pipe == nullptr) {
            return "";
        }
        std::string const address = pipe->GetRemote().ToString();
        return address.find("preferred") != std::string::npos ? kPreferred : kOther;
    }

    /// Publishes a mapping (nobody when empty) until the device has followed it.
    void MapTo(std::string const& device, std::string const& expected) {
        vq::vds::ChannelMappingChangedEvent event;
        event.set_channel(kChannel);
        if (!device.empty()) {
            event.add_devices(device);
            event.add_devices("a second one counts for nothing");
        }
        auto const deadline = std::chrono::steady_clock::now() + 30s;
        while (Provider() != expected && std::chrono::steady_clock::now() < deadline) {
            m_server.Publish(event);
            m_device.Update();
        }
        ASSERT_EQ(Provider(), expected);
        // What was published more than once is still on its way.
        std::this_thread::sleep_for(50ms);
        m_device.Update();
    }

    vq::test::LogCapture m_log{LogLevel::Info};
    FakeServer m_server;
    IdentitySparseDevice m_device;
};

}  // namespace

TEST_F(ShimSparseDeviceTest, TheProviderIsAskedForOnceAndThenFollowedThroughItsMappings) {
    m_server.SetMappings({{kPreferred, "another channel"}, {kPreferred, kChannel}, {kOther, kChannel}});
    Start();
    EXPECT_EQ(Provider(), kPreferred);
    EXPECT_EQ(m_server.RequestTypes(), (Types{"GetChannelMappings", "GetDeviceRequestReplyAddress"}));
    m_server.ClearRequests();
    EXPECT_EQ(Provider(), kPreferred);
    EXPECT_EQ(m_server.RequestTypes(), Types{});

    MapTo("", "");
    // The server's word stands, whatever the list of priorities says.
    MapTo(kOther, kOther);
    MapTo(kPreferred, kPreferred);

    vq::vds::ChannelMappingChangedEvent foreign;
    foreign.set_channel("another channel");
    m_server.Publish(foreign);
    MapTo(kOther, kOther);  // behind the other event on the same socket
    MapTo("no such device", "");
}

TEST_F(ShimSparseDeviceTest, AFeatureWithoutAChannelIsReportedEachTimeAndAChannelWithoutANameIsNobodys) {
    m_server.SetMappings({{kPreferred, kChannel}});
    Start(false);
    EXPECT_EQ(Provider(), "");
    EXPECT_FALSE(m_log.Has(LogLevel::Error, "No command pipe available"));
    m_server.ClearRequests();
    EXPECT_EQ(m_device.GetFeatureProviderPipe(Feature::HandTracking), nullptr);
    EXPECT_EQ(m_device.GetFeatureProviderPipe(Feature::HandTracking), nullptr);
    EXPECT_EQ(m_log.Count(LogLevel::Error, "No command pipe available for feature 'HandTracking'"), 2u);
    EXPECT_EQ(m_server.RequestTypes(), Types{});
}

TEST_F(ShimSparseDeviceTest, TheApplicationIsRegisteredOnce) {
    using Register = vq::vds::RegisterVQSDKApplication;
    using Unregister = vq::vds::UnregisterVQSDKApplication;
    Start();
    m_server.On<Register>([](Register const&) { return FakeServer::RefuseBy<Register>("full house"); });
    EXPECT_FALSE(m_device.EnsureVQSDKApplicationRegistered());
    EXPECT_TRUE(m_log.Has(LogLevel::Error, "full house"));

    m_server.Answer<Register>(wire::Bytes("1:2147483649"));
    m_server.Answer<Unregister>();
    m_server.ClearRequests();
    EXPECT_TRUE(m_device.EnsureVQSDKApplicationRegistered());
    EXPECT_TRUE(m_device.EnsureVQSDKApplicationRegistered());
    EXPECT_TRUE(m_device.UnregisterVQSDKApplication());
    EXPECT_TRUE(m_device.UnregisterVQSDKApplication());
    EXPECT_EQ(m_server.RequestTypes(), (Types{"RegisterVQSDKApplication", "UnregisterVQSDKApplication"}));
    EXPECT_EQ(m_server.Received<Register>().front().process_id(), static_cast<std::uint64_t>(::getpid()));
    EXPECT_EQ(m_server.Received<Unregister>().front().application_id(), 0x80000001u);
}

TEST(AsyncCmdTest, ACommandWithoutDeviceOrProviderSaysWhatIsMissing) {
    vq::test::LogCapture const log(LogLevel::Info);
    FakeServer server;
    SparseDeviceMule<IdentitySparseDevice> mule;
    auto const error = [&] {
        auto const reply = vq::SdkShim::AsyncCmd<101>(&mule, Feature::Identity,
                                                      vq::sd::VQIdentityGetAttributeNames(), 5000ms)
                               .get();
        EXPECT_FALSE(reply.success);
        return reply.error.message();
    };
    EXPECT_EQ(error(), "Device is nullptr");
    ASSERT_TRUE(mule.StartDevice(MakeManifest(), nullptr));
    EXPECT_EQ(error(), "Rpc pipe is invalid");
    mule.StopDevice();
    EXPECT_EQ(error(), "Device is nullptr");
    EXPECT_EQ(server.Received<vq::vds::UnregisterSparseDevice>().size(), 1u);
    AMessageManager::Instance().Cleanup();
}
