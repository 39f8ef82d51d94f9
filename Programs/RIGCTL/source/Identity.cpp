#include <unistd.h>
#include <vq_identity.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>

#include "Commands.h"
#include "Utils/FileDescriptor.h"

// The library's exported calls, as an application makes them.

namespace vq::rigctl {

namespace {

/// Connecting, and two exchanges with the provider.
constexpr std::chrono::seconds kCallsLimit{40};

/// What the library logs goes to standard error as long as the object lives: standard output is ours.
class LogAside {
public:
    LogAside() : m_output(::dup(STDOUT_FILENO)) { ::dup2(STDERR_FILENO, STDOUT_FILENO); }
    LogAside(LogAside const&) = delete;
    LogAside& operator=(LogAside const&) = delete;
    ~LogAside() { ::dup2(m_output.Get(), STDOUT_FILENO); }

private:
    FileDescriptor m_output;
};

struct Outcome {
    char const* call = "";
    VQResult result = VQResult_Ok;
    VQIdentityProfile* profile = nullptr;
};

Outcome GetProfile() {
    Outcome outcome;
    outcome.call = "VQIdentityGetAttributeNames";
    outcome.result = VQIdentityGetAttributeNames(&outcome.profile);
    if (outcome.result == VQResult_Ok) {
        for (std::uint32_t i = 0; i < outcome.profile->attribute_count; ++i) {
            outcome.profile->attribute_ptrs[i]->is_requested = true;
        }
        outcome.call = "VQIdentityRequestAttributeValues";
        outcome.result = VQIdentityRequestAttributeValues(outcome.profile);
    }
    return outcome;
}

/// The calls have limits of their own, which may be longer than the user's: then the process ends with them
/// under way.
Outcome GetProfile(Clock::time_point deadline) {
    std::packaged_task<Outcome()> task([] { return GetProfile(); });
    std::future<Outcome> outcome = task.get_future();
    std::thread thread(std::move(task));
    if (outcome.wait_until(deadline) != std::future_status::ready) {
        std::fputs("The library's calls did not end within the time limit; 'RIGCTL doctor' may know why.\n",
                   stderr);
        std::fflush(stdout);
        std::_Exit(static_cast<int>(Status::NoAnswer));
    }
    thread.join();
    return outcome.get();
}

Status StatusOf(VQResult result) {
    switch (result) {
        case VQIdentityResult_FailedToConnectToLocalService:
            return Status::NoServer;
        case VQResult_Timeout:
            return Status::NoAnswer;
        default:
            return Status::Refused;
    }
}

std::vector<Json::Value> Rows(VQIdentityProfile const& profile) {
    std::vector<Json::Value> rows;
    for (std::uint32_t i = 0; i < profile.attribute_count; ++i) {
        VQIdentityAttribute const& attribute = *profile.attribute_ptrs[i];
        Json::Value row;
        row["key"] = static_cast<int>(attribute.key);
        row["name"] = attribute.name;
        row["value"] = attribute.value;
        row["granted"] = attribute.is_granted;
        rows.push_back(row);
    }
    return rows;
}

std::vector<Json::Value> MakeCalls(Session& session) {
    LogAside const aside;
    Outcome const outcome = GetProfile(session.Deadline());
    if (outcome.result != VQResult_Ok) {
        char code[16];
        std::snprintf(code, sizeof code, " (0x%" PRIX32 ")", outcome.result);
        throw Failure(StatusOf(outcome.result), std::string(outcome.call) + ": " +
                                                    VQIdentityGetResultString(outcome.result) + code + ".");
    }
    std::vector<Json::Value> rows = Rows(*outcome.profile);
    VQIdentityReleaseUserProfile(outcome.profile);
    return rows;
}

}  // namespace

Status ShowIdentity(Session& session) {
    // The library would look for a server for longer than the time limit.
    session.Ask("vq.vds.Ping");
    ::setenv("VQ_VDS_ADDRESS", session.ServerAddress().c_str(), 1);
    session.ExtendTimeLimit(kCallsLimit);
    session.Out().List({{"KEY", "key"}, {"NAME", "name"}, {"VALUE", "value"}, {"GRANTED", "granted"}},
                       MakeCalls(session));
    return Status::Done;
}

}  // namespace vq::rigctl
