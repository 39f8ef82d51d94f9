#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "ShimContext.h"
#include "identity/IdentitySparseDevice.h"
#include "identity/ProfileCache.h"

namespace vq::IdentityShim {

/// Everything behind the exported identity functions: the connection with its device, the cached profile, and
/// the futures that have been given out.
class Context final : public SdkShim::ShimContext<Context, IdentitySparseDevice>, public ProfileCache {
public:
    Context() = default;
    /// Joins the threads, unless the process's exit has done so before.
    ~Context() override;

    char const* ShimName() const override { return "Identity"; }

    /// Starts the device and waits until it is registered, or has failed. Always true: without a device the
    /// exported functions report errors. On the connection manager's thread.
    bool OnConnect();
    /// Ends the device. On the connection manager's thread.
    bool OnDisconnect();

    /// Enters a provider's handle and gives the future that stands for it: 1, 2, and so on for the life of
    /// the process. Nothing is ever taken out.
    std::uint64_t AddFuture(std::uint64_t handle);
    /// The provider's handle of a future, if it was given out here.
    std::optional<std::uint64_t> FindHandle(std::uint64_t future) const;

private:
    std::uint64_t m_futureCounter = 0;
    std::map<std::uint64_t, std::uint64_t> m_futures;
};

}  // namespace vq::IdentityShim

extern template class vq::SdkShim::ShimContext<vq::IdentityShim::Context,
                                               vq::IdentityShim::IdentitySparseDevice>;
