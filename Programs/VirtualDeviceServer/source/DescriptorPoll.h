#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Utils/FileDescriptor.h"

namespace vq::server {

/// Waits on any number of descriptors at once and calls who is concerned. The cost of a wait does not grow
/// with their number.
///
/// Threads: one. Callbacks may watch and unwatch.
class DescriptorPoll {
public:
    /// Called when the descriptor is readable, and once after Watch.
    /// @return true when it has stopped before all was done: it is called again in the next round, readable
    ///         or not. A descriptor of a message socket must be done with until nothing is left, because it
    ///         only tells of what has not been looked at yet.
    using OnReadable = std::function<bool()>;

    /// Throws std::system_error when the system gives no descriptor.
    DescriptorPoll();

    /// @param descriptor  not owned; must stay open until it is unwatched
    /// Throws std::system_error.
    void Watch(int descriptor, OnReadable onReadable);
    void Unwatch(int descriptor);

    /// One round: waits until something is readable or the time is over, then calls.
    void WaitAndServe(std::chrono::milliseconds timeout);

private:
    FileDescriptor m_epoll;
    std::unordered_map<int, std::shared_ptr<OnReadable>> m_watched;
    std::vector<int> m_unfinished;
};

}  // namespace vq::server
