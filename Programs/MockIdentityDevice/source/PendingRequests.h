#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

#include "Identity.pb.h"

namespace vq::mock {

/// The answers that asynchronous requests left behind, by handle. An answer can be fetched any number of
/// times, until the caller releases the profile or kCapacity newer requests have come. One thread.
class PendingRequests {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    static constexpr std::size_t kCapacity = 1024;

    struct Answer {
        TimePoint readyAt;
        vq::sd::VQIdentityProfile profile;
    };

    /// Keeps an answer and returns its handle; never 0.
    std::uint64_t Add(Answer answer) {
        if (m_answers.size() == kCapacity) {
            m_answers.erase(m_answers.begin());
        }
        m_answers.emplace(++m_lastHandle, std::move(answer));
        return m_lastHandle;
    }

    /// The answer of a handle, or null when it was never given out or is gone.
    Answer const* Find(std::uint64_t handle) const {
        auto const found = m_answers.find(handle);
        return found != m_answers.end() ? &found->second : nullptr;
    }

    void Clear() { m_answers.clear(); }

private:
    std::uint64_t m_lastHandle = 0;
    std::map<std::uint64_t, Answer> m_answers;  // oldest first
};

}  // namespace vq::mock
