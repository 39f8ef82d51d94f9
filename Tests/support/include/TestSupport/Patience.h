#pragma once

#include <chrono>

namespace vq::test {

/// How long a test waits for what must come. Far above need on a quiet machine: tests run beside others on a
/// small one, under sanitizers too.
inline constexpr std::chrono::milliseconds kPatience{90000};

}  // namespace vq::test
