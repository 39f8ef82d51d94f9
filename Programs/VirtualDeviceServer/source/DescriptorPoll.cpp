#include "DescriptorPoll.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

namespace vq::server {

DescriptorPoll::DescriptorPoll() : m_epoll(::epoll_create1(EPOLL_CLOEXEC)) {
    if (!m_epoll) {
        throw std::system_error(errno, std::generic_category(), "epoll_create1");
    }
}

void DescriptorPoll::Watch(int descriptor, OnReadable onReadable) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    if (::epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
    m_watched[descriptor] = std::make_shared<OnReadable>(std::move(onReadable));
    m_unfinished.push_back(descriptor);
}

void DescriptorPoll::Unwatch(int descriptor) {
    if (m_watched.erase(descriptor) != 0) {
        ::epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, descriptor, nullptr);
    }
}

void DescriptorPoll::WaitAndServe(std::chrono::milliseconds timeout) {
    constexpr std::int64_t kLongest = std::numeric_limits<int>::max();
    std::int64_t const wait =
        m_unfinished.empty() ? std::clamp<std::int64_t>(timeout.count(), 0, kLongest) : 0;
    std::array<epoll_event, 64> events;
    int const count =
        ::epoll_wait(m_epoll.Get(), events.data(), static_cast<int>(events.size()), static_cast<int>(wait));

    std::vector<int> ready = std::exchange(m_unfinished, {});
    for (int i = 0; i < count; ++i) {
        ready.push_back(events[static_cast<std::size_t>(i)].data.fd);
    }
    std::ranges::sort(ready);
    ready.erase(std::unique(ready.begin(), ready.end()), ready.end());
    for (int const descriptor : ready) {
        auto const found = m_watched.find(descriptor);
        if (found == m_watched.end()) {
            continue;
        }
        auto const onReadable = found->second;  // may be unwatched by its own call
        if ((*onReadable)() && m_watched.contains(descriptor)) {
            m_unfinished.push_back(descriptor);
        }
    }
}

}  // namespace vq::server
