#include "SparseDeviceHelpers/RpcCommand.h"

#include <gtest/gtest.h>

#include <future>

#include "Identity.pb.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "TestSupport/LogCapture.h"

using namespace std::chrono_literals;
using Request = vq::sd::VQIdentityGetAttributeNamesAsync;

namespace {

/// One request over a pipe pair of this process; `serve` plays the provider.
class RpcCommandTest : public testing::Test {
protected:
    RpcCommandTest() {
        AMessageManager& manager = AMessageManager::Instance();
        MessageAddress address = manager.GetDefaultServerIpcAddress();
        AMessagePipeProvider* const pipes = manager.GetContext(address)->GetPipeProvider();
        address.logicalName = "provider";
        m_server = pipes->GetRequestReplyServer(address, "");
        m_client = pipes->GetRequestReplyClient(address, "");
    }
    ~RpcCommandTest() override { AMessageManager::Instance().Cleanup(); }

    template <class Serve>
    vq::RpcReply<Request::Reply> Run(Serve serve, std::chrono::milliseconds timeout = 30s) {
        auto provider = std::async(std::launch::async, [&] {
            Request request;
            ASSERT_TRUE(MessageUtils::Receive(m_server, request, 30s, nullptr));
            serve();
        });
        auto reply = vq::RpcCommand_CreateAndSend(Request(), m_client, timeout);
        provider.get();
        return reply;
    }
    template <class Message>
    void Answer(Message const& message) {
        ASSERT_TRUE(MessageUtils::Send(m_server, message, 30s, nullptr));
    }

    vq::test::LogCapture m_log;
    AMessagePipeRequestReply* m_server = nullptr;
    AMessagePipeRequestReply* m_client = nullptr;
};

}  // namespace

TEST_F(RpcCommandTest, AReplyComesBackTyped) {
    auto const reply = Run([&] {
        Request::Reply answer;
        answer.mutable_handle()->set_handle(77);
        answer.set_result(3);
        Answer(answer);
    });
    ASSERT_TRUE(reply.success);
    EXPECT_EQ(reply.reply.handle().handle(), 77u);
    EXPECT_EQ(reply.reply.result(), 3);
}

TEST_F(RpcCommandTest, AProvidersErrorIsAFailureWithItsText) {
    auto const reply = Run([&] {
        vq::vds::Error error;
        error.set_message("not today");
        Answer(error);
    });
    EXPECT_FALSE(reply.success);
    EXPECT_EQ(reply.error.message(), "not today");
}

TEST_F(RpcCommandTest, AMessageOfAnotherTypeIsAFailureWithoutText) {
    auto const reply = Run([&] { Answer(vq::vds::Empty()); });
    EXPECT_FALSE(reply.success);
    EXPECT_FALSE(reply.error.has_message());
}

TEST_F(RpcCommandTest, AnUnansweredRequestBlocksThePipeForTheNextOne) {
    auto const unanswered = Run([] {}, 100ms);
    EXPECT_FALSE(unanswered.success);
    EXPECT_FALSE(unanswered.error.has_message());

    auto const next = vq::RpcCommand_CreateAndSend(Request(), m_client, 100ms);
    EXPECT_FALSE(next.success);
    EXPECT_EQ(next.error.message(), "Communications error");
}

TEST_F(RpcCommandTest, NoPipeIsAFailureOfItsOwn) {
    auto const reply = vq::RpcCommand_CreateAndSend(Request(), nullptr, 100ms);
    EXPECT_FALSE(reply.success);
    EXPECT_EQ(reply.error.message(), "RpcPipe is nullptr");
}
