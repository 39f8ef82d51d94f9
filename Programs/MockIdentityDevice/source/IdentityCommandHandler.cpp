#include "IdentityCommandHandler.h"

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

#include "Messaging/AMessage.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/MessageUtils.h"
#include "ServerRequests.pb.h"

namespace vq::mock {

namespace {

// Codes of the identity interface that this provider gives of its own accord.
constexpr std::int32_t kOk = 0;
constexpr std::int32_t kPending = 1;
constexpr std::int32_t kTimeout = 2;
constexpr std::int32_t kInvalidParam = 5;

// The caller's exchange ends after 5 s: an answer that is not ready by then must say so before.
constexpr std::chrono::milliseconds kLongestWait{4000};

// How soon a delay notices that the device is to end.
constexpr std::chrono::milliseconds kExitCheck{20};

}  // namespace

IdentityCommandHandler::IdentityCommandHandler(std::function<IdentitySettings const&()> settings,
                                               std::function<bool()> isExiting)
    : m_settings(std::move(settings)), m_isExiting(std::move(isExiting)) {}

template <class Request>
void IdentityCommandHandler::Serve(std::unordered_map<std::string, int>& commandMap,
                                   bool (IdentityCommandHandler::*serve)(Request const&)) {
    AddCommand(commandMap, Request().GetTypeName(), [this, serve](AMessage* message) {
        Request request;
        if (!RequestPipe()->GetContext()->DecodeMessage(message, request)) {
            return MessageUtils::SendErrorAndLog<vq::vds::Error>(RequestPipe(),
                                                                 "malformed request " + message->Type());
        }
        return (this->*serve)(request);
    });
}

bool IdentityCommandHandler::SetupCommandMap(std::unordered_map<std::string, int>& commandMap) {
    Serve(commandMap, &IdentityCommandHandler::OnGetAttributeNames);
    Serve(commandMap, &IdentityCommandHandler::OnGetKnownAttributeNames);
    Serve(commandMap, &IdentityCommandHandler::OnRequestAttributeValues);
    Serve(commandMap, &IdentityCommandHandler::OnReleaseUserProfile);
    Serve(commandMap, &IdentityCommandHandler::OnGetAttributeNamesAsync);
    Serve(commandMap, &IdentityCommandHandler::OnGetAttributeNamesWait);
    Serve(commandMap, &IdentityCommandHandler::OnRequestAttributeValuesAsync);
    Serve(commandMap, &IdentityCommandHandler::OnRequestAttributeValuesWait);
    return true;
}

bool IdentityCommandHandler::OnGetAttributeNames(vq::sd::VQIdentityGetAttributeNames const&) {
    return SendProfileNow<vq::sd::VQIdentityGetAttributeNames::Reply>(NamesOf(m_settings(), nullptr));
}

bool IdentityCommandHandler::OnGetKnownAttributeNames(
    vq::sd::VQIdentityGetKnownAttributeNames const& request) {
    std::vector<int> const keys(request.keys().begin(), request.keys().end());
    return SendProfileNow<vq::sd::VQIdentityGetKnownAttributeNames::Reply>(NamesOf(m_settings(), &keys));
}

bool IdentityCommandHandler::OnRequestAttributeValues(
    vq::sd::VQIdentityRequestAttributeValues const& request) {
    return SendProfileNow<vq::sd::VQIdentityRequestAttributeValues::Reply>(
        ValuesOf(m_settings(), request.profile()));
}

bool IdentityCommandHandler::OnReleaseUserProfile(vq::sd::VQIdentityReleaseUserProfile const&) {
    m_pending.Clear();
    vq::sd::VQIdentityReleaseUserProfile::Reply reply;
    reply.set_result(kOk);
    return Reply(reply);
}

bool IdentityCommandHandler::OnGetAttributeNamesAsync(vq::sd::VQIdentityGetAttributeNamesAsync const&) {
    return SendHandle<vq::sd::VQIdentityGetAttributeNamesAsync::Reply>(NamesOf(m_settings(), nullptr));
}

bool IdentityCommandHandler::OnGetAttributeNamesWait(vq::sd::VQIdentityGetAttributeNamesWait const& request) {
    return SendPending<vq::sd::VQIdentityGetAttributeNamesWait::Reply>(request.handle().handle(),
                                                                       request.timeout());
}

bool IdentityCommandHandler::OnRequestAttributeValuesAsync(
    vq::sd::VQIdentityRequestAttributeValuesAsync const& request) {
    return SendHandle<vq::sd::VQIdentityRequestAttributeValuesAsync::Reply>(
        ValuesOf(m_settings(), request.profile()));
}

bool IdentityCommandHandler::OnRequestAttributeValuesWait(
    vq::sd::VQIdentityRequestAttributeValuesWait const& request) {
    return SendPending<vq::sd::VQIdentityRequestAttributeValuesWait::Reply>(request.handle().handle(),
                                                                            request.timeout());
}

// A failure carries an empty profile: the field is required.
template <class ProfileReply>
bool IdentityCommandHandler::SendProfileNow(vq::sd::VQIdentityProfile&& profile) {
    std::int32_t const result = m_settings().result;
    ProfileReply reply;
    reply.set_result(result);
    if (result == kOk) {
        *reply.mutable_profile() = std::move(profile);
    } else {
        reply.mutable_profile()->set_attribute_count(0);
    }
    WaitUntil(ReadyAt());
    return Reply(reply);
}

template <class HandleReply>
bool IdentityCommandHandler::SendHandle(vq::sd::VQIdentityProfile profile) {
    HandleReply reply;
    reply.set_result(kOk);
    reply.mutable_handle()->set_handle(m_pending.Add({ReadyAt(), std::move(profile)}));
    return Reply(reply);
}

template <class ProfileReply>
bool IdentityCommandHandler::SendPending(std::uint64_t handle, std::uint32_t timeoutMs) {
    ProfileReply reply;
    PendingRequests::Answer const* answer = m_pending.Find(handle);
    if (answer == nullptr) {
        reply.set_result(kInvalidParam);
        return Reply(reply);
    }
    auto const limit = Clock::now() + std::min(kLongestWait, std::chrono::milliseconds(timeoutMs));
    WaitUntil(std::min(answer->readyAt, limit));
    if (Clock::now() < answer->readyAt) {
        reply.set_result(timeoutMs == 0 ? kPending : kTimeout);
        return Reply(reply);
    }
    reply.set_result(m_settings().result);
    if (reply.result() == kOk) {
        *reply.mutable_profile() = answer->profile;
    }
    return Reply(reply);
}

IdentityCommandHandler::Clock::time_point IdentityCommandHandler::ReadyAt() const {
    return Clock::now() + std::chrono::milliseconds(m_settings().delayMs);
}

void IdentityCommandHandler::WaitUntil(Clock::time_point point) const {
    for (auto now = Clock::now(); now < point && !m_isExiting(); now = Clock::now()) {
        std::this_thread::sleep_until(std::min(point, now + kExitCheck));
    }
}

bool IdentityCommandHandler::Reply(google::protobuf::MessageLite const& reply) {
    return MessageUtils::Send(RequestPipe(), reply, std::chrono::milliseconds::max(), nullptr);
}

}  // namespace vq::mock
