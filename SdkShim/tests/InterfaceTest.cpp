// The shared library seen from outside, without a server.

#include "TestSupport/Test.h"
#include "vq_identity.h"
#include "vq_token_agent.h"

namespace {

auto ThreadCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

struct Family {
    uint32_t first;
    char const* prefix;
    char const* names;
    bool identity, tokenAgent;  // who knows it
};

constexpr Family kFamilies[] = {
    {0, "VQResult_",
     "Ok Pending Timeout Locked UnspecifiedFailure InvalidParam AllocFailed PrivilegeDenied NotImplemented",
     true, true},
    {0x7D4D0000, "VQIdentityResult_",
     "FailedToConnectToLocalService FailedToConnectToCloudService CloudAuthentication "
     "InvalidInformationFromCloud "
     "NotLoggedIn ExpiredCredentials FailedToGetUserProfile Unauthorized CertificateError RejectedByCloud "
     "AlreadyLoggedIn ModifyIsNotSupported NetworkError",
     true, false},
    {0x37EE0000, "VQTokenAgentResult_",
     "FailedToConnectToLocalService ServiceNotStarted FailedToConnectToCloud CloudAuthentication "
     "FailedToLogin "
     "LoginNotBegun NotLoggedIn AlreadyLoggedIn LoginInProgress FailedToStartIdentityService "
     "DeviceNotRegistered "
     "DeviceNotConnected NetworkError UserIsNotRegistered ExpiredCredentials Unauthorized CertificateError "
     "RejectedByCloud UserMustAcceptTerms AccountLocked",
     false, true},
};

// The header's numbers: first and last of each family.
static_assert(VQResult_NotImplemented == 8 && VQResult_UnspecifiedFailure == 4);
static_assert(VQIdentityResult_FailedToConnectToLocalService == 0x7D4D0000);
static_assert(VQIdentityResult_NetworkError == 0x7D4D000C && VQIdentityResult_NotLoggedIn == 0x7D4D0004);
static_assert(VQTokenAgentResult_FailedToConnectToLocalService == 0x37EE0000);
static_assert(VQTokenAgentResult_AccountLocked == 0x37EE0013);

}  // namespace

TEST(InterfaceTest, EveryCodeHasItsOwnNameAsText) {
    auto const expect = [](uint32_t code, std::string const& identity, std::string const& tokenAgent) {
        EXPECT_EQ(VQIdentityGetResultString(code), identity);
        EXPECT_EQ(VQTokenAgentGetResultString(code), tokenAgent);
    };
    for (Family const& family : kFamilies) {
        uint32_t code = family.first;
        expect(code - 1, "Unknown", "Unknown");
        std::istringstream names(family.names);
        for (std::string name; names >> name; ++code) {
            name.insert(0, family.prefix);
            expect(code, family.identity ? name : "Unknown", family.tokenAgent ? name : "Unknown");
        }
        expect(code, "Unknown", "Unknown");
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
    EXPECT_EQ(ThreadCount(), 1) << "no connection is wanted for this";
}
