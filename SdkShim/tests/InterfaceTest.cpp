// The shared library seen from outside, without a server.

#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "vq_identity.h"
#include "vq_token_agent.h"

namespace {

// The texts of these go by their order.
static_assert(VQResult_Ok == 0 && VQResult_UnspecifiedFailure == 4 && VQResult_NotImplemented == 8);

}  // namespace

TEST(InterfaceTest, EveryCodeHasItsOwnNameAsText) {
    for (auto const& [code, identity, tokenAgent] : Rows<3>("Results", "Texts")) {
        auto const number = static_cast<uint32_t>(std::stoul(code, nullptr, 0));
        EXPECT_EQ(VQIdentityGetResultString(number), identity) << code;
        EXPECT_EQ(VQTokenAgentGetResultString(number), tokenAgent) << code;
    }
}

TEST(InterfaceTest, TheTokenAgentWarnsOncePerFunctionAndNullsAreRefusedBeforeAnyConnection) {
    testing::internal::CaptureStderr();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(VQTokenAgentGetClientCredentials(nullptr), VQResult_NotImplemented);
        EXPECT_EQ(VQTokenAgentGetClientCredentialsAsync(nullptr), VQResult_NotImplemented);
        EXPECT_EQ(VQTokenAgentGetClientCredentialsWait(1, 2, nullptr), VQResult_NotImplemented);
        EXPECT_EQ(VQTokenAgentReleaseClientCredentials(nullptr), VQResult_NotImplemented);
    }
    EXPECT_EQ(VQIdentityGetAttributeNamesAsync(nullptr), VQResult_InvalidParam);
    EXPECT_EQ(VQIdentityGetAttributeNamesWait(1, 0, nullptr), VQResult_InvalidParam);
    std::string expected;
    for (char const* name : {"GetClientCredentials", "GetClientCredentialsAsync", "GetClientCredentialsWait",
                             "ReleaseClientCredentials"}) {
        expected +=
            "warning: The application called the function 'VQTokenAgent" + std::string(name) +
            "', which is not implemented for Tessel (other API in its containing library is implemented, "
            "however).\n";
    }
    expected += "error: Invalid parameter out_future\nerror: Invalid parameter out_profile\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
    EXPECT_EQ(vq::test::CountThreads(::getpid()), 1) << "no connection is wanted for this";
}
