// Our library, server and provider against peers of another make: bare libzmq sockets and hand-cut frames.
#include <signal.h>

#include <atomic>

#include "Identity.pb.h"
#include "RawPeer.h"
#include "Rig.h"
#include "ServerRequests.pb.h"
#include "TestSupport/Test.h"

namespace vq::test {
namespace {

vq::sd::VQIdentityGetAttributeNames::Reply NamesReply(int attributes) {
    std::string fields = "1:" + std::to_string(attributes);
    for (int i = 0; i < attributes; ++i) {
        fields += " 2:{1:" + std::to_string(i % 8) + " 2:'name" + std::to_string(i) + "' 3:'' 4:0 5:0}";
    }
    return wire::Parsed<vq::sd::VQIdentityGetAttributeNames::Reply>("1:0 2:{" + fields + "}");
}

TEST(Interop, AServerOfAnotherMakeCarriesACallByTheStatedRequests) {
    std::string const& directory = HomeDirectory();
    RawServer server(directory, "IPC:" + directory + "pv");
    RawSocket provider(ZMQ_REP, "IPC:" + directory + "pv");
    Caller caller({{"VQ_VDS_ADDRESS", "IPC:" + directory + "rq"}});
    caller.Begin("names");
    EXPECT_EQ(provider.Receive(), (Frames{"", "vq.sd.VQIdentityGetAttributeNames", ""}));
    provider.Send(FramesOf(NamesReply(2)));
    CallResult const names = caller.Finish();
    EXPECT_EQ(names.code, kOk);
    EXPECT_EQ(names.rest, "2 0:name0::0:0 1:name1::0:0");

    std::string types;
    vq::vds::RegisterSparseDevice registration;
    for (Frames const& request : server.Requests()) {
        types += request.at(1).substr(7) + " ";
        if (request[1] == registration.GetTypeName()) {
            ASSERT_TRUE(registration.ParseFromString(request.at(2)));
        }
    }
    EXPECT_EQ(types,
              "GetProtocolVersion GetDataPath GetServerEventAddress GetServerDataEventBroadcastAddress "
              "RegisterSparseDevice CreateServerDataEventListenerAddress GetChannelInfos "
              "RegisterSparseDeviceChannels ReportSparseDeviceInitialized GetChannelMappings "
              "GetDeviceRequestReplyAddress ");
    auto const& description = registration.description();
    EXPECT_EQ(description.name() + "," + description.type(), "IdentityShimSparseDevice,Shim");
    EXPECT_EQ(description.process_id(), 0U);
    EXPECT_EQ(description.second_process_id(), static_cast<std::uint32_t>(caller.Process().Pid()));
    EXPECT_EQ(registration.address(), "IPC:" + directory + "rq.sparseDevice.IdentityShimSparseDevice");
}

/// A rig's server with a provider of another make.
class RawProvider {
public:
    explicit RawProvider(RawResponder::Answer answer) : m_responder(m_address, std::move(answer)) {
        m_rig.StartServer({"--prune-after", "600000"});
        RegisterRawProvider(m_rig.Address(), m_address);
    }
    std::size_t RequestCount() { return m_responder.Requests().size(); }

private:
    Rig m_rig;
    std::string const m_address = "IPC:" + HomeDirectory() + "raw";
    RawResponder m_responder;
};

TEST(Interop, ALyingProviderFailsTheCallAndNothingElse) {
    std::string const reply = NamesReply(3).GetTypeName();
    std::string const whole = NamesReply(3).SerializeAsString();
    for (Frames const& lie :
         {Frames{"", "vq.vds.Ping.Reply", ""},
          Frames{"", "vq.vds.Error",
                 "\x0a\x03"
                 "bad"},
          Frames{"", reply, whole.substr(0, whole.size() / 2)},
          Frames{"\xff\xfe", reply, std::string(3000, '\xff')}, Frames{""}, Frames{"", "vq.vds.Error"}}) {
        bool lies = true;
        RawProvider provider(
            [&](Frames const&) { return std::exchange(lies, false) ? lie : FramesOf(NamesReply(1)); });
        Caller caller;
        EXPECT_EQ(caller.Call("names").code, kFailure) << caller.Process().DrainOutput();
        EXPECT_EQ(provider.RequestCount(), 1U) << "no request is ever repeated";
        EXPECT_EQ(caller.Call("names").code, kOk) << caller.Process().DrainOutput();
    }
}

TEST(Interop, ACountAboveTheAttributesEndsTheProcessWithTheTextAndFiftyStayReadable) {
    std::atomic<std::uint32_t> count = 50;
    RawProvider provider([&](Frames const&) {
        auto reply = NamesReply(50);
        reply.mutable_profile()->set_attribute_count(count);
        return FramesOf(reply);
    });
    Caller caller;
    CallResult const names = caller.Call("names");
    EXPECT_EQ(names.code, kOk);
    EXPECT_EQ(names.rest.substr(0, 3), "50 ");
    EXPECT_NE(names.rest.find(" 1:name49::0:0"), std::string::npos) << names.rest;

    count = 51;
    caller.Begin("names");
    EXPECT_EQ(caller.Process().WaitForExit(), 128 + SIGABRT);
    EXPECT_NE(caller.Process().Output().find("CHECK failed: (index) < "), std::string::npos);
}

TEST(Interop, AMalformedRequestTakesNeitherServerNorDeviceAway) {
    Rig rig;
    rig.StartServer();
    rig.StartProvider();
    std::string const device = rig.Address() + ".sparseDevice.MockVQ1IdentitySparseDevice";
    for (std::string const& address : {rig.Address(), device}) {
        for (Frames const& frames :
             {Frames{""}, Frames{"", "vq.vds.Ping"}, Frames{"", "vq.vds.Ping", "", "more", "still"},
              Frames{"", "no.such.Type", "x"}, Frames{"", "vq.vds.GetDeviceInfo", "\xff"}, Frames{"", "", ""},
              Frames{"", "vq.sd.VQIdentityGetAttributeNamesWait", "\x08"}}) {
            EXPECT_EQ(RawSocket(ZMQ_REQ, address).Exchange(frames).first, "vq.vds.Error")
                << address << " " << frames.size();
        }
    }
    Caller caller;
    EXPECT_EQ(caller.Call("names").code, kOk);
}

}  // namespace
}  // namespace vq::test
