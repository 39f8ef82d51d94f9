#include "SparseDeviceHelpers/RpcCommand.h"

#include "Identity.pb.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Test.h"

using Request = vq::sd::VQIdentityGetAttributeNamesAsync;

TEST(RpcCommandTest, EveryAnswerBecomesAReplyOrAFailureWithItsText) {
    std::string const path = "IPC:" + vq::test::HomeDirectory() + "provider";
    vq::test::RawSocket provider(ZMQ_REP, path);
    MessageAddress const address = MessageAddress::FromString(path);
    AMessageManager& manager = AMessageManager::Instance();
    auto* const pipe = manager.GetContext(address)->GetPipeProvider()->GetRequestReplyClient(address, "");
    vq::test::LogCapture const log;
    std::string const none = "none";
    struct Case {
        std::string type, payload, outcome;
    };
    for (Case const& c : {Case{"vq.sd.VQIdentityGetAttributeNamesAsync.Reply", "\n\2\x08\x4d\x10\3", "77"},
                          {"vq.vds.Error", "\n\3bad", "bad"},
                          {"vq.vds.Empty", "", none}}) {
        auto serving = std::async(std::launch::async, [&] {
            EXPECT_EQ(provider.Receive(), (vq::test::Frames{"", Request().GetTypeName(), ""}));
            provider.Send({"", c.type, c.payload});
        });
        auto const reply = vq::RpcCommand_CreateAndSend(Request(), pipe, 30s);
        serving.get();
        EXPECT_EQ(reply.success, c.outcome == "77");
        EXPECT_EQ(reply.success               ? std::to_string(reply.reply.handle().handle())
                  : reply.error.has_message() ? reply.error.message()
                                              : none,
                  c.outcome);
    }
    // An unanswered request blocks the pipe for the next one.
    EXPECT_FALSE(vq::RpcCommand_CreateAndSend(Request(), pipe, 100ms).error.has_message());
    EXPECT_EQ(vq::RpcCommand_CreateAndSend(Request(), pipe, 100ms).error.message(), "Communications error");
    EXPECT_EQ(vq::RpcCommand_CreateAndSend(Request(), nullptr, 100ms).error.message(), "RpcPipe is nullptr");
    manager.Cleanup();
}
