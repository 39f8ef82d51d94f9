#include "VerifyServerVersion.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <string>
#include <vector>

#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "ServerRequests.pb.h"
#include "TestSupport/LogCapture.h"

using namespace std::chrono_literals;

namespace {

using Lines = std::vector<std::string>;

/// A server that answers as told, and the library's question to it.
class VerifyServerVersionTest : public testing::Test {
protected:
    VerifyServerVersionTest() {
        AMessageManager& manager = AMessageManager::Instance();
        MessageAddress address = manager.GetDefaultServerIpcAddress();
        AMessagePipeProvider* const pipes = manager.GetContext(address)->GetPipeProvider();
        address.logicalName = "server";
        m_server = pipes->GetRequestReplyServer(address, "");
        m_client = pipes->GetRequestReplyClient(address, "");
    }
    ~VerifyServerVersionTest() override { AMessageManager::Instance().Cleanup(); }

    int Verify(std::function<void()> serve) {
        m_log.Clear();
        auto server = std::async(std::launch::async, serve);
        int const result = vq::SdkShim::VerifyServerVersion(m_client, "Test");
        server.get();
        return result;
    }
    template <class Request>
    void Expect() {
        Request request;
        ASSERT_TRUE(MessageUtils::Receive(m_server, request, 30s, nullptr));
    }
    template <class Message>
    void Answer(Message const& message) {
        ASSERT_TRUE(MessageUtils::Send(m_server, message, 30s, nullptr));
    }
    void Refuse() { ASSERT_TRUE(MessageUtils::SendError<vq::vds::Error>(m_server, "no")); }

    vq::test::LogCapture m_log;
    AMessagePipeRequestReply* m_server = nullptr;
    AMessagePipeRequestReply* m_client = nullptr;
};

char const kFailure[] = "E [Test Shim] Failed to fetch protocol version from VDS";
char const kRefused[] = "E got protocol error from vq.vds.GetProtocolVersion: no";

}  // namespace

TEST_F(VerifyServerVersionTest, ANewerProtocolIsRefusedAndAnyOlderOneAccepted) {
    struct Case {
        int protocol;
        int result;
        Lines lines;
    };
    for (Case const& test :
         {Case{12, 0, {}}, Case{0, 0, {}}, Case{-1, 0, {}},
          Case{13,
               4,
               {"E [Test Shim] Tessel protocol version is too new for these TL shims / support "
                "libraries (13 > 12)"}}}) {
        SCOPED_TRACE(test.protocol);
        EXPECT_EQ(Verify([&] {
                      Expect<vq::vds::GetProtocolVersion>();
                      vq::vds::GetProtocolVersion::Reply reply;
                      reply.set_server_version(99);
                      reply.set_protocol_version(test.protocol);
                      Answer(reply);
                  }),
                  test.result);
        EXPECT_EQ(m_log.Lines(), test.lines);
    }
}

TEST_F(VerifyServerVersionTest, AServerThatRefusesTheQuestionMayBeTheOlderTool) {
    EXPECT_EQ(Verify([&] {
                  Expect<vq::vds::GetProtocolVersion>();
                  Refuse();
                  Expect<vq::vds::GetVersion>();
                  vq::vds::GetVersion::Reply reply;
                  reply.set_major(1);
                  Answer(reply);
              }),
              2);
    EXPECT_EQ(m_log.Lines(),
              (Lines{kRefused,
                     "E [Test Shim] It looks like VQ Remote is running.  These Tessel shim libraries "
                     "only work with The Bench.",
                     kFailure}));

    EXPECT_EQ(Verify([&] {
                  Expect<vq::vds::GetProtocolVersion>();
                  Refuse();
                  Expect<vq::vds::GetVersion>();
                  Refuse();
              }),
              2);
    EXPECT_EQ(m_log.Lines(), (Lines{kRefused, "E got protocol error from vq.vds.GetVersion: no", kFailure}));
}

TEST_F(VerifyServerVersionTest, AServerThatDoesNotAnswerIsAskedNothingElse) {
    EXPECT_EQ(Verify([&] { Expect<vq::vds::GetProtocolVersion>(); }), 2);
    EXPECT_EQ(m_log.Lines(),
              (Lines{"E timedOut to receive expected reply for vq.vds.GetProtocolVersion", kFailure}));
}
