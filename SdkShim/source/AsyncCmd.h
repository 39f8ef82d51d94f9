#pragma once

#include <chrono>
#include <future>
#include <utility>

#include "Feature.h"
#include "SparseDeviceHelpers/RpcCommand.h"

namespace vq::SdkShim {

/// Queues a request to the provider of a feature and returns at once. The exchange runs on the device's
/// thread, after the device's next step. Any thread.
/// @tparam P       priority of the task: the smallest runs first.
/// @param mule     whose device routes the request; outlives the answer.
/// @param message  copied.
/// @param timeout  for sending and for receiving, each.
/// @return always answered: with the reply, or with an error whose text may be empty.
template <int P, class M, class Mule>
std::future<RpcReply<typename M::Reply>> AsyncCmd(Mule* mule, Feature feature, M const& message,
                                                  std::chrono::milliseconds timeout) {
    using Result = RpcReply<typename M::Reply>;
    return mule->template Async<P>([mule, feature, request = message, timeout]() mutable -> Result {
        auto const device = mule->GetDeviceOnItsThread();
        if (device == nullptr) {
            return Result::Failed("Device is nullptr");
        }
        AMessagePipeRequestReply* const pipe = device->GetFeatureProviderPipe(feature);
        if (pipe == nullptr) {
            return Result::Failed("Rpc pipe is invalid");
        }
        return RpcCommand_CreateAndSend(std::move(request), pipe, timeout);
    });
}

}  // namespace vq::SdkShim
