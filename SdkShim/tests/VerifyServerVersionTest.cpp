#include "VerifyServerVersion.h"

#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Test.h"

TEST(VerifyServerVersionTest, ANewerProtocolIsRefusedAnyOlderOneAcceptedAndARefusalMayBeTheOlderTool) {
    using Answer = std::pair<std::string, std::string>;  // type and payload
    std::string const path = "IPC:" + vq::test::HomeDirectory() + "server";
    vq::test::RawSocket server(ZMQ_REP, path);
    MessageAddress const address = MessageAddress::FromString(path);
    AMessageManager& manager = AMessageManager::Instance();
    auto* const pipe = manager.GetContext(address)->GetPipeProvider()->GetRequestReplyClient(address, "");

    auto const version = [](char const* protocol) {
        return Answer{"vq.vds.GetProtocolVersion.Reply", std::string("\x08\x63\x10") + protocol};
    };
    Answer const refusal{"vq.vds.Error", "\n\2no"};
    std::string const failure = "E [Test Shim] Failed to fetch protocol version from VDS";
    std::string const refused = "E got protocol error from vq.vds.GetProtocolVersion: no";
    struct Case {
        std::vector<Answer> answers;  // to GetProtocolVersion, then to GetVersion
        int result;
        Lines lines;
    };
    for (Case const& c : {
             Case{{version("\x0c")}, 0, {}},
             {{version("\x01")}, 0, {}},
             {{version("\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01")}, 0, {}},
             {{version("\x0d")},
              4,
              {"E [Test Shim] Tessel protocol version is too new for these TL shims / support libraries (13 "
               "> 12)"}},
             {{refusal, {"vq.vds.GetVersion.Reply", "\x08\1"}},
              2,
              {refused,
               "E [Test Shim] It looks like VQ Remote is running.  These Tessel shim libraries only work "
               "with The "
               "Bench.",
               failure}},
             {{refusal, refusal}, 2, {refused, "E got protocol error from vq.vds.GetVersion: no", failure}},
             // Who does not answer is asked nothing else.
             {{}, 2, {"E timedOut to receive expected reply for vq.vds.GetProtocolVersion", failure}},
         }) {
        vq::test::LogCapture const log;
        auto serving = std::async(std::launch::async, [&] {
            for (Answer const& answer : c.answers) {
                EXPECT_EQ(server.Receive().at(1),
                          &answer == &c.answers[0] ? "vq.vds.GetProtocolVersion" : "vq.vds.GetVersion");
                server.Send({"", answer.first, answer.second});
            }
        });
        EXPECT_EQ(vq::SdkShim::VerifyServerVersion(pipe, "Test"), c.result);
        serving.get();
        EXPECT_EQ(log.Lines(), c.lines);
    }
    manager.Cleanup();
}
