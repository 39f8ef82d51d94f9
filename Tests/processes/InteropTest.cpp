// Our library, server and provider against peers of another make: bare libzmq sockets and hand-cut frames.

#include <gmock/gmock.h>
#include <signal.h>
#include <zmq.h>

#include "Identity.pb.h"
#include "RawPeer.h"
#include "Rig.h"
#include "ServerRequests.pb.h"
#include "TestSupport/TestHome.h"

namespace vq::test {
namespace {

vq::sd::VQIdentityGetAttributeNames::Reply NamesReply(int attributes) {
    vq::sd::VQIdentityGetAttributeNames::Reply reply;
    reply.set_result(0);
    reply.mutable_profile()->set_attribute_count(static_cast<std::uint32_t>(attributes));
    for (int i = 0; i < attributes; ++i) {
        auto& attribute = *reply.mutable_profile()->add_attributes();
        attribute.set_key(static_cast<vq::sd::VQIdentityAttributeKey>(i % 8));
        attribute.set_name("name" + std::to_string(i));
        attribute.set_value("");
        attribute.set_is_requested(false);
        attribute.set_is_granted(false);
    }
    return reply;
}

TEST(Interop, AServerOfAnotherMakeCarriesACallByTheStatedRequests) {
    std::string const directory = HomeDirectory();
    RawServer server(directory, "IPC:" + directory + "pv");
    RawSocket provider(ZMQ_REP, "ipc://" + directory + "pv");
    Caller caller({{"VQ_VDS_ADDRESS", "IPC:" + directory + "rq"}});
    caller.Begin("names");
    Frames request = provider.Receive();
    for (int tries = 0; request.empty() && tries < 3; ++tries) {
        request = provider.Receive();
    }
    EXPECT_EQ(request, (Frames{"", "vq.sd.VQIdentityGetAttributeNames", ""}));
    provider.Send(FramesOf(NamesReply(2)));
    CallResult const names = caller.Finish();
    EXPECT_EQ(names.code, kOk);
    EXPECT_EQ(names.rest, "2 0:name0::0:0 1:name1::0:0");

    EXPECT_THAT(server.RequestTypes(),
                testing::ElementsAre(
                    "vq.vds.GetProtocolVersion", "vq.vds.GetDataPath", "vq.vds.GetServerEventAddress",
                    "vq.vds.GetServerDataEventBroadcastAddress", "vq.vds.RegisterSparseDevice",
                    "vq.vds.CreateServerDataEventListenerAddress", "vq.vds.GetChannelInfos",
                    "vq.vds.RegisterSparseDeviceChannels", "vq.vds.ReportSparseDeviceInitialized",
                    "vq.vds.GetChannelMappings", "vq.vds.GetDeviceRequestReplyAddress"));
    vq::vds::RegisterSparseDevice registration;
    ASSERT_TRUE(registration.ParseFromString(server.PayloadOf("vq.vds.RegisterSparseDevice")));
    EXPECT_EQ(registration.description().name(), "IdentityShimSparseDevice");
    EXPECT_EQ(registration.description().type(), "Shim");
    EXPECT_EQ(registration.description().process_id(), 0U);
    EXPECT_EQ(registration.description().second_process_id(),
              static_cast<std::uint32_t>(caller.Process().Pid()));
    EXPECT_EQ(registration.address(), "IPC:" + directory + "rq.sparseDevice.IdentityShimSparseDevice");
}

struct LyingCase {
    char const* name;
    Frames answer;
};

class LyingProvider : public testing::TestWithParam<LyingCase> {};

TEST_P(LyingProvider, FailsTheCallAndNothingElse) {
    Rig rig;
    rig.StartServer({"--prune-after", "600000"});
    bool lie = true;
    RawProvider provider("ipc://" + HomeDirectory() + "vds", HomeDirectory() + "raw", [&](Frames const&) {
        return std::exchange(lie, false) ? GetParam().answer : FramesOf(NamesReply(1));
    });
    Caller caller;
    EXPECT_EQ(caller.Call("names").code, kFailure) << caller.Process().DrainOutput();
    EXPECT_EQ(provider.Requests().size(), 1U) << "no request is ever repeated";
    CallResult const next = caller.Call("names");
    if (GetParam().answer.size() <= 3) {
        EXPECT_EQ(next.code, kOk) << caller.Process().DrainOutput();
    }
}

std::string Cut(std::string const& text) {
    return text.substr(0, text.size() / 2);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, LyingProvider,
    testing::Values(LyingCase{"AnotherType", {"", "vq.vds.Ping.Reply", ""}},
                    LyingCase{"ErrorText", {"", "vq.vds.Error", std::string("\x0a\x03") + "bad"}},
                    LyingCase{"TruncatedPayload",
                              {"", NamesReply(3).GetTypeName(), Cut(NamesReply(3).SerializeAsString())}},
                    LyingCase{"Noise", {"\xff\xfe", NamesReply(1).GetTypeName(), std::string(3000, '\xff')}},
                    LyingCase{"OneFrame", {""}}, LyingCase{"TwoFrames", {"", "vq.vds.Error"}}),
    [](auto const& each) { return std::string(each.param.name); });

TEST(Interop, ACountAboveTheAttributesEndsTheProcessWithTheText) {
    Rig rig;
    rig.StartServer({"--prune-after", "600000"});
    RawProvider provider("ipc://" + HomeDirectory() + "vds", HomeDirectory() + "raw", [](Frames const&) {
        auto reply = NamesReply(1);
        reply.mutable_profile()->set_attribute_count(2);
        return FramesOf(reply);
    });
    Caller caller;
    caller.Begin("names");
    EXPECT_EQ(caller.Process().WaitForExit(kCallLimit), 128 + SIGABRT);
    EXPECT_NE(caller.Process().Output().find("CHECK failed: (index) < "), std::string::npos);
}

TEST(Interop, FiftyAttributesStayReadable) {
    Rig rig;
    rig.StartServer({"--prune-after", "600000"});
    RawProvider provider("ipc://" + HomeDirectory() + "vds", HomeDirectory() + "raw",
                         [](Frames const&) { return FramesOf(NamesReply(50)); });
    Caller caller;
    CallResult const names = caller.Call("names");
    EXPECT_EQ(names.code, kOk);
    EXPECT_EQ(names.rest.substr(0, 3), "50 ");
    EXPECT_NE(names.rest.find(" 1:name49::0:0"), std::string::npos) << names.rest;
}

TEST(Interop, AMalformedRequestTakesNeitherServerNorDeviceAway) {
    Rig rig;
    rig.StartServer();
    rig.StartProvider();
    std::string const device = "ipc://" + HomeDirectory() + "vds.sparseDevice.MockVQ1IdentitySparseDevice";
    for (std::string const& endpoint : {"ipc://" + HomeDirectory() + "vds", device}) {
        for (Frames const& frames :
             {Frames{""}, Frames{"", "vq.vds.Ping"}, Frames{"", "vq.vds.Ping", "", "more", "still"},
              Frames{"", "no.such.Type", "x"}, Frames{"", "vq.vds.GetDeviceInfo", "\xff"},
              Frames{"", "vq.sd.VQIdentityGetAttributeNamesWait", "\x08"}}) {
            RawSocket socket(ZMQ_REQ, endpoint);
            socket.Send(frames);
            Frames const answer = socket.Receive();
            ASSERT_EQ(answer.size(), 3U) << endpoint << " " << frames.size();
            EXPECT_EQ(answer[1], "vq.vds.Error") << endpoint << " " << frames.size();
        }
    }
    Caller caller;
    EXPECT_EQ(caller.Call("names").code, kOk);
}

}  // namespace
}  // namespace vq::test
