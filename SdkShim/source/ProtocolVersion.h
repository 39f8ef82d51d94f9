#pragma once

namespace vq::SdkShim {

/// The newest server protocol that the shims speak. Any older one is accepted.
inline constexpr int kProtocolVersion = 12;

}  // namespace vq::SdkShim
