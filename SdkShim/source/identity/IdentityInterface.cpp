// The exported identity functions. Each answers for one request of the provider; what they share stands
// first.

#include <chrono>
#include <future>
#include <optional>

#include "AsyncCmd.h"
#include "Identity.pb.h"
#include "Logging/Log.h"
#include "ResultText.h"
#include "identity/Context.h"
#include "vq_identity.h"

using vq::IdentityShim::Context;
using vq::SdkShim::AsyncCmd;
using vq::SdkShim::Feature;

namespace {

constexpr std::chrono::milliseconds kConnectionTimeout{15000};
constexpr std::chrono::milliseconds kCommandTimeout{5000};
/// Rank of the commands among the tasks of the device's thread.
constexpr int kCommandPriority = 101;

Context& TheContext() {
    return Context::s_ShimContext;
}

/// Starts the connection if need be and waits for it.
/// @return why the call cannot go on, or nothing.
std::optional<VQResult> EnsureConnected() {
    Context& context = TheContext();
    if (context.IsInForkedChild()) {
        // Nobody would answer, ever. Not logged: a lock of the log may have been held at the fork.
        return VQResult_UnspecifiedFailure;
    }
    if (!context.IsInitialized()) {
        context.DoInitialize();
        if (!context.IsInitialized()) {
            return VQResult_UnspecifiedFailure;
        }
    }
    if (!context.WaitForConnection(kConnectionTimeout)) {
        return VQIdentityResult_FailedToConnectToLocalService;
    }
    return std::nullopt;
}

/// The same, for the calls that send or need the profile.
std::optional<VQResult> EnsureConnectedWithProfile() {
    if (std::optional<VQResult> const failure = EnsureConnected()) {
        return failure;
    }
    if (TheContext().Profile() == nullptr) {
        LOG_E("Profile is null. Identity context needs a valid profile.");
        return VQResult_UnspecifiedFailure;
    }
    return std::nullopt;
}

/// Carries a request out on the device's thread and waits for what comes of it; logs a failure.
template <class M>
vq::RpcReply<typename M::Reply> Exchange(M const& request) {
    auto reply =
        AsyncCmd<kCommandPriority>(&TheContext().DeviceMule(), Feature::Identity, request, kCommandTimeout)
            .get();
    if (!reply.success) {
        LOG_E("%s", reply.error.message().c_str());
    }
    return reply;
}

/// Refreshes the profile from the reply; the caller's array stays.
/// @param codeOnFailure  what to return when the provider could not be asked; not VQResult_Ok.
template <class M>
VQResult ExchangeProfile(M const& request, VQResult codeOnFailure) {
    auto const reply = Exchange(request);
    if (!reply.success) {
        return codeOnFailure;
    }
    VQResult const result = static_cast<VQResult>(reply.reply.result());
    if (result == VQResult_Ok) {
        TheContext().PullOutProfile(reply.reply.profile());
    }
    return result;
}

/// The same, and shows the caller the array behind the new attributes.
template <class M>
VQResult ExchangeNames(M const& request, VQIdentityProfile** out_profile, VQResult codeOnFailure) {
    VQResult const result = ExchangeProfile(request, codeOnFailure);
    if (result == VQResult_Ok && !TheContext().FillVQProfileAttributeNames(out_profile)) {
        return VQResult_UnspecifiedFailure;
    }
    return result;
}

/// Starts a request at the provider and gives out a future for its handle.
template <class M>
VQResult ExchangeAsync(M const& request, uint64_t* out_future) {
    auto const reply = Exchange(request);
    if (!reply.success) {
        return VQIdentityResult_FailedToConnectToCloudService;
    }
    *out_future = TheContext().AddFuture(reply.reply.handle().handle());
    return VQResult_Ok;
}

/// Builds the request that fetches the answer to a future; nothing, with a warning, for an unknown one.
template <class M>
std::optional<M> MakeWaitRequest(uint64_t future, uint32_t timeout) {
    std::optional<std::uint64_t> const handle = TheContext().FindHandle(future);
    if (!handle) {
        LOG_W("Future not found in map, returning.");
        return std::nullopt;
    }
    M request;
    request.mutable_handle()->set_handle(*handle);
    request.set_timeout(timeout);
    return request;
}

void EmptyProfileFor(VQIdentityProfile** out_profile) {
    TheContext().ClearProfile();
    *out_profile = TheContext().Profile();
}

constexpr vq::SdkShim::ResultText kIdentityTexts[] = {
    {VQIdentityResult_FailedToConnectToLocalService, "VQIdentityResult_FailedToConnectToLocalService"},
    {VQIdentityResult_FailedToConnectToCloudService, "VQIdentityResult_FailedToConnectToCloudService"},
    {VQIdentityResult_CloudAuthentication, "VQIdentityResult_CloudAuthentication"},
    {VQIdentityResult_InvalidInformationFromCloud, "VQIdentityResult_InvalidInformationFromCloud"},
    {VQIdentityResult_NotLoggedIn, "VQIdentityResult_NotLoggedIn"},
    {VQIdentityResult_ExpiredCredentials, "VQIdentityResult_ExpiredCredentials"},
    {VQIdentityResult_FailedToGetUserProfile, "VQIdentityResult_FailedToGetUserProfile"},
    {VQIdentityResult_Unauthorized, "VQIdentityResult_Unauthorized"},
    {VQIdentityResult_CertificateError, "VQIdentityResult_CertificateError"},
    {VQIdentityResult_RejectedByCloud, "VQIdentityResult_RejectedByCloud"},
    {VQIdentityResult_AlreadyLoggedIn, "VQIdentityResult_AlreadyLoggedIn"},
    {VQIdentityResult_ModifyIsNotSupported, "VQIdentityResult_ModifyIsNotSupported"},
    {VQIdentityResult_NetworkError, "VQIdentityResult_NetworkError"},
};

}  // namespace

VQResult VQIdentityGetAttributeNames(VQIdentityProfile** out_profile) noexcept {
    if (std::optional<VQResult> const failure = EnsureConnected()) {
        return *failure;
    }
    EmptyProfileFor(out_profile);
    return ExchangeNames(vq::sd::VQIdentityGetAttributeNames(), out_profile, VQResult_UnspecifiedFailure);
}

VQResult VQIdentityGetKnownAttributeNames(VQIdentityAttributeKey const* keys, uint32_t key_count,
                                          VQIdentityProfile** out_profile) noexcept {
    if (std::optional<VQResult> const failure = EnsureConnected()) {
        return *failure;
    }
    EmptyProfileFor(out_profile);
    vq::sd::VQIdentityGetKnownAttributeNames request;
    for (uint32_t i = 0; i < key_count; ++i) {
        request.add_keys(static_cast<vq::sd::VQIdentityAttributeKey>(keys[i]));
    }
    return ExchangeNames(request, out_profile, VQResult_UnspecifiedFailure);
}

VQResult VQIdentityRequestAttributeValues(VQIdentityProfile const*) noexcept {
    if (std::optional<VQResult> const failure = EnsureConnectedWithProfile()) {
        return *failure;
    }
    vq::sd::VQIdentityRequestAttributeValues request;
    TheContext().FillMessage(*request.mutable_profile());
    return ExchangeProfile(request, VQResult_UnspecifiedFailure);
}

VQResult VQIdentityReleaseUserProfile(VQIdentityProfile*) noexcept {
    if (std::optional<VQResult> const failure = EnsureConnectedWithProfile()) {
        return *failure;
    }
    if (!Exchange(vq::sd::VQIdentityReleaseUserProfile()).success) {
        return VQIdentityResult_FailedToConnectToCloudService;
    }
    TheContext().TearDown();
    return VQResult_Ok;
}

VQResult VQIdentityGetAttributeNamesAsync(uint64_t* out_future) noexcept {
    if (out_future == nullptr) {
        LOG_PLAIN_E("Invalid parameter out_future");
        return VQResult_InvalidParam;
    }
    if (std::optional<VQResult> const failure = EnsureConnectedWithProfile()) {
        return *failure;
    }
    return ExchangeAsync(vq::sd::VQIdentityGetAttributeNamesAsync(), out_future);
}

VQResult VQIdentityGetAttributeNamesWait(uint64_t future, uint32_t timeout,
                                         VQIdentityProfile** out_profile) noexcept {
    if (out_profile == nullptr) {
        LOG_PLAIN_E("Invalid parameter out_profile");
        return VQResult_InvalidParam;
    }
    if (std::optional<VQResult> const failure = EnsureConnected()) {
        return *failure;
    }
    EmptyProfileFor(out_profile);
    auto const request = MakeWaitRequest<vq::sd::VQIdentityGetAttributeNamesWait>(future, timeout);
    if (!request) {
        return VQResult_UnspecifiedFailure;
    }
    return ExchangeNames(*request, out_profile, VQIdentityResult_FailedToConnectToCloudService);
}

VQResult VQIdentityRequestAttributeValuesAsync(VQIdentityProfile const*, uint64_t* out_future) noexcept {
    if (std::optional<VQResult> const failure = EnsureConnectedWithProfile()) {
        return *failure;
    }
    if (out_future == nullptr) {
        return VQResult_InvalidParam;
    }
    vq::sd::VQIdentityRequestAttributeValuesAsync request;
    TheContext().FillMessage(*request.mutable_profile());
    return ExchangeAsync(request, out_future);
}

VQResult VQIdentityRequestAttributeValuesWait(uint64_t future, uint32_t timeout) noexcept {
    if (std::optional<VQResult> const failure = EnsureConnectedWithProfile()) {
        return *failure;
    }
    auto const request = MakeWaitRequest<vq::sd::VQIdentityRequestAttributeValuesWait>(future, timeout);
    if (!request) {
        return VQResult_UnspecifiedFailure;
    }
    return ExchangeProfile(*request, VQIdentityResult_FailedToConnectToCloudService);
}

char const* VQIdentityGetResultString(uint32_t code) noexcept {
    return vq::SdkShim::FindResultText(kIdentityTexts, code);
}
