// The token agent's exported functions: present so that applications link, and honest about doing nothing.

#include <string>
#include <unordered_set>

#include "Logging/Log.h"
#include "ResultText.h"
#include "vq_token_agent.h"

namespace {

/// Warns once for each function name, whatever the log level, so that an application that polls does not fill
/// the log. No lock: callers of the interface serialise their calls.
VQResult ReportNotImplemented(char const* name) {
    static std::unordered_set<std::string> reported;
    if (reported.insert(name).second) {
        LogInternal(
            true, nullptr, __FILE__, __LINE__, __func__, LogLevel::Warning,
            "The application called the function '%s', which is not implemented for Tessel (other API in its "
            "containing library is implemented, however).",
            name);
    }
    return VQResult_NotImplemented;
}

constexpr vq::SdkShim::ResultText kTokenAgentTexts[] = {
    {VQTokenAgentResult_FailedToConnectToLocalService, "VQTokenAgentResult_FailedToConnectToLocalService"},
    {VQTokenAgentResult_ServiceNotStarted, "VQTokenAgentResult_ServiceNotStarted"},
    {VQTokenAgentResult_FailedToConnectToCloud, "VQTokenAgentResult_FailedToConnectToCloud"},
    {VQTokenAgentResult_CloudAuthentication, "VQTokenAgentResult_CloudAuthentication"},
    {VQTokenAgentResult_FailedToLogin, "VQTokenAgentResult_FailedToLogin"},
    {VQTokenAgentResult_LoginNotBegun, "VQTokenAgentResult_LoginNotBegun"},
    {VQTokenAgentResult_NotLoggedIn, "VQTokenAgentResult_NotLoggedIn"},
    {VQTokenAgentResult_AlreadyLoggedIn, "VQTokenAgentResult_AlreadyLoggedIn"},
    {VQTokenAgentResult_LoginInProgress, "VQTokenAgentResult_LoginInProgress"},
    {VQTokenAgentResult_FailedToStartIdentityService, "VQTokenAgentResult_FailedToStartIdentityService"},
    {VQTokenAgentResult_DeviceNotRegistered, "VQTokenAgentResult_DeviceNotRegistered"},
    {VQTokenAgentResult_DeviceNotConnected, "VQTokenAgentResult_DeviceNotConnected"},
    {VQTokenAgentResult_NetworkError, "VQTokenAgentResult_NetworkError"},
    {VQTokenAgentResult_UserIsNotRegistered, "VQTokenAgentResult_UserIsNotRegistered"},
    {VQTokenAgentResult_ExpiredCredentials, "VQTokenAgentResult_ExpiredCredentials"},
    {VQTokenAgentResult_Unauthorized, "VQTokenAgentResult_Unauthorized"},
    {VQTokenAgentResult_CertificateError, "VQTokenAgentResult_CertificateError"},
    {VQTokenAgentResult_RejectedByCloud, "VQTokenAgentResult_RejectedByCloud"},
    {VQTokenAgentResult_UserMustAcceptTerms, "VQTokenAgentResult_UserMustAcceptTerms"},
    {VQTokenAgentResult_AccountLocked, "VQTokenAgentResult_AccountLocked"},
};

}  // namespace

VQResult VQTokenAgentGetClientCredentials(VQTokenAgentClientCredentials**) noexcept {
    return ReportNotImplemented("VQTokenAgentGetClientCredentials");
}

VQResult VQTokenAgentGetClientCredentialsAsync(uint64_t*) noexcept {
    return ReportNotImplemented("VQTokenAgentGetClientCredentialsAsync");
}

VQResult VQTokenAgentGetClientCredentialsWait(uint64_t, uint32_t, VQTokenAgentClientCredentials**) noexcept {
    return ReportNotImplemented("VQTokenAgentGetClientCredentialsWait");
}

VQResult VQTokenAgentReleaseClientCredentials(VQTokenAgentClientCredentials*) noexcept {
    return ReportNotImplemented("VQTokenAgentReleaseClientCredentials");
}

char const* VQTokenAgentGetResultString(uint32_t code) noexcept {
    return vq::SdkShim::FindResultText(kTokenAgentTexts, code);
}
