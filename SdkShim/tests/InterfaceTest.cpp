// The shared library seen from outside, without a server.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "vq_identity.h"
#include "vq_token_agent.h"

namespace {

std::size_t ThreadCount() {
    std::size_t count = 0;
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        count += !entry.path().empty();
    }
    return count;
}

std::size_t CountOf(std::string const& text, std::string const& piece) {
    std::size_t count = 0;
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) {
        ++count;
    }
    return count;
}

#define CODE(name) \
    { name, #name }

struct Code {
    uint32_t code;
    char const* text;
};

constexpr Code kCommon[] = {
    CODE(VQResult_Ok),
    CODE(VQResult_Pending),
    CODE(VQResult_Timeout),
    CODE(VQResult_Locked),
    CODE(VQResult_UnspecifiedFailure),
    CODE(VQResult_InvalidParam),
    CODE(VQResult_AllocFailed),
    CODE(VQResult_PrivilegeDenied),
    CODE(VQResult_NotImplemented),
    {9, "Unknown"},
    {0x7D4CFFFF, "Unknown"},
    {0x7D4D000D, "Unknown"},
    {0x37EDFFFF, "Unknown"},
    {0x37EE0014, "Unknown"},
    {0xFFFFFFFF, "Unknown"},
};

constexpr Code kIdentity[] = {
    CODE(VQIdentityResult_FailedToConnectToLocalService),
    CODE(VQIdentityResult_FailedToConnectToCloudService),
    CODE(VQIdentityResult_CloudAuthentication),
    CODE(VQIdentityResult_InvalidInformationFromCloud),
    CODE(VQIdentityResult_NotLoggedIn),
    CODE(VQIdentityResult_ExpiredCredentials),
    CODE(VQIdentityResult_FailedToGetUserProfile),
    CODE(VQIdentityResult_Unauthorized),
    CODE(VQIdentityResult_CertificateError),
    CODE(VQIdentityResult_RejectedByCloud),
    CODE(VQIdentityResult_AlreadyLoggedIn),
    CODE(VQIdentityResult_ModifyIsNotSupported),
    CODE(VQIdentityResult_NetworkError),
};

constexpr Code kTokenAgent[] = {
    CODE(VQTokenAgentResult_FailedToConnectToLocalService),
    CODE(VQTokenAgentResult_ServiceNotStarted),
    CODE(VQTokenAgentResult_FailedToConnectToCloud),
    CODE(VQTokenAgentResult_CloudAuthentication),
    CODE(VQTokenAgentResult_FailedToLogin),
    CODE(VQTokenAgentResult_LoginNotBegun),
    CODE(VQTokenAgentResult_NotLoggedIn),
    CODE(VQTokenAgentResult_AlreadyLoggedIn),
    CODE(VQTokenAgentResult_LoginInProgress),
    CODE(VQTokenAgentResult_FailedToStartIdentityService),
    CODE(VQTokenAgentResult_DeviceNotRegistered),
    CODE(VQTokenAgentResult_DeviceNotConnected),
    CODE(VQTokenAgentResult_NetworkError),
    CODE(VQTokenAgentResult_UserIsNotRegistered),
    CODE(VQTokenAgentResult_ExpiredCredentials),
    CODE(VQTokenAgentResult_Unauthorized),
    CODE(VQTokenAgentResult_CertificateError),
    CODE(VQTokenAgentResult_RejectedByCloud),
    CODE(VQTokenAgentResult_UserMustAcceptTerms),
    CODE(VQTokenAgentResult_AccountLocked),
};

}  // namespace

TEST(InterfaceTest, EveryCodeHasItsOwnNameAsText) {
    for (Code const& row : kCommon) {
        EXPECT_STREQ(VQIdentityGetResultString(row.code), row.text);
        EXPECT_STREQ(VQTokenAgentGetResultString(row.code), row.text);
    }
    uint32_t code = 0x7D4D0000;
    for (Code const& row : kIdentity) {
        EXPECT_EQ(row.code, code++);
        EXPECT_STREQ(VQIdentityGetResultString(row.code), row.text);
        EXPECT_STREQ(VQTokenAgentGetResultString(row.code), "Unknown");
    }
    code = 0x37EE0000;
    for (Code const& row : kTokenAgent) {
        EXPECT_EQ(row.code, code++);
        EXPECT_STREQ(VQTokenAgentGetResultString(row.code), row.text);
        EXPECT_STREQ(VQIdentityGetResultString(row.code), "Unknown");
    }
}

TEST(InterfaceTest, TheTokenAgentWarnsOncePerFunction) {
    testing::internal::CaptureStderr();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(VQTokenAgentGetClientCredentials(nullptr), VQResult_NotImplemented);
        EXPECT_EQ(VQTokenAgentGetClientCredentialsAsync(nullptr), VQResult_NotImplemented);
        EXPECT_EQ(VQTokenAgentGetClientCredentialsWait(1, 2, nullptr), VQResult_NotImplemented);
        EXPECT_EQ(VQTokenAgentReleaseClientCredentials(nullptr), VQResult_NotImplemented);
    }
    std::string const output = testing::internal::GetCapturedStderr();
    for (char const* name :
         {"VQTokenAgentGetClientCredentials", "VQTokenAgentGetClientCredentialsAsync",
          "VQTokenAgentGetClientCredentialsWait", "VQTokenAgentReleaseClientCredentials"}) {
        EXPECT_EQ(
            CountOf(output, "warning: The application called the function '" + std::string(name) +
                                "', which is not implemented for Tessel (other API in its containing library "
                                "is implemented, however).\n"),
            1u)
            << output;
    }
    EXPECT_EQ(ThreadCount(), 1u) << "no connection is wanted for this";
}

TEST(InterfaceTest, ANullParameterIsRefusedBeforeAnyConnection) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(VQIdentityGetAttributeNamesAsync(nullptr), VQResult_InvalidParam);
    EXPECT_EQ(VQIdentityGetAttributeNamesWait(1, 0, nullptr), VQResult_InvalidParam);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "error: Invalid parameter out_future\nerror: Invalid parameter out_profile\n");
    EXPECT_EQ(ThreadCount(), 1u);
}
