#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "IdentityProfile.h"
#include "PendingRequests.h"
#include "SparseDevice/ASparseDeviceCommandHandler.h"

namespace vq::mock {

/// Answers the eight identity requests. The delay of the settings holds the device's own thread, as a
/// provider that works hard would; asynchronous requests are answered at once and their delay falls on the
/// wait.
class IdentityCommandHandler : public ASparseDeviceCommandHandler {
public:
    /// @param settings   asked before each answer; called on the device's thread.
    /// @param isExiting  true once the device is to end: a delay in progress is then cut short.
    IdentityCommandHandler(std::function<IdentitySettings const&()> settings,
                           std::function<bool()> isExiting);

    bool SetupCommandMap(std::unordered_map<std::string, int>& commandMap) override;

private:
    using Clock = std::chrono::steady_clock;

    template <class Request>
    void Serve(std::unordered_map<std::string, int>& commandMap,
               bool (IdentityCommandHandler::*serve)(Request const&));

    bool OnGetAttributeNames(vq::sd::VQIdentityGetAttributeNames const& request);
    bool OnGetKnownAttributeNames(vq::sd::VQIdentityGetKnownAttributeNames const& request);
    bool OnRequestAttributeValues(vq::sd::VQIdentityRequestAttributeValues const& request);
    bool OnReleaseUserProfile(vq::sd::VQIdentityReleaseUserProfile const& request);
    bool OnGetAttributeNamesAsync(vq::sd::VQIdentityGetAttributeNamesAsync const& request);
    bool OnGetAttributeNamesWait(vq::sd::VQIdentityGetAttributeNamesWait const& request);
    bool OnRequestAttributeValuesAsync(vq::sd::VQIdentityRequestAttributeValuesAsync const& request);
    bool OnRequestAttributeValuesWait(vq::sd::VQIdentityRequestAttributeValuesWait const& request);

    template <class Reply>
    bool SendProfileNow(vq::sd::VQIdentityProfile&& profile);
    template <class Reply>
    bool SendHandle(vq::sd::VQIdentityProfile profile);
    template <class Reply>
    bool SendPending(std::uint64_t handle, std::uint32_t timeoutMs);

    Clock::time_point ReadyAt() const;
    void WaitUntil(Clock::time_point point) const;
    bool Reply(google::protobuf::MessageLite const& reply);

    std::function<IdentitySettings const&()> const m_settings;
    std::function<bool()> const m_isExiting;
    PendingRequests m_pending;
};

}  // namespace vq::mock
