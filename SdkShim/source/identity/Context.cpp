#include "identity/Context.h"

#include "ShimSparseDeviceApplication.h"

template <class Context, class Device>
Context vq::SdkShim::ShimContext<Context, Device>::s_ShimContext;

template class vq::SdkShim::ShimContext<vq::IdentityShim::Context, vq::IdentityShim::IdentitySparseDevice>;

namespace vq::IdentityShim {

Context::~Context() {
    ClearProfile();
    SdkShim::MarkProcessExiting();
    TearDown();
}

bool Context::OnConnect() {
    ManifestProcessor::ManifestData const& data = Manifest().GetData("IdentityShimSparseDevice");
    SdkShim::ShimSparseDeviceApplication* const application =
        SdkShim::ShimSparseDeviceApplication::Instance();
    // The device uses the application: its thread has to end before the application does.
    static SdkShim::TearDownAtExit<Context> const guard(s_ShimContext);
    DeviceMule().SetWaitForRegistration();
    DeviceMule().StartDevice(data, application);
    return true;
}

bool Context::OnDisconnect() {
    DeviceMule().StopDevice();
    return true;
}

std::uint64_t Context::AddFuture(std::uint64_t handle) {
    m_futures[++m_futureCounter] = handle;
    return m_futureCounter;
}

std::optional<std::uint64_t> Context::FindHandle(std::uint64_t future) const {
    auto const entry = m_futures.find(future);
    return entry == m_futures.end() ? std::nullopt : std::make_optional(entry->second);
}

}  // namespace vq::IdentityShim
