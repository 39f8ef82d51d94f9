#pragma once

#include <atomic>
#include <functional>
#include <latch>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Messaging/MessageTypeName.h"
#include "Messaging/ZMQMessageManager.h"
#include "TestSupport/FakeServer.h"
#include "Utils/ServerDescriptor.h"

namespace vq::test {

/// A device that provides the Identity feature as the test tells it: on a thread and a message manager of its
/// own, at an IPC address in the test's HOME. What nobody has set an answer for is refused.
class FakeProvider {
public:
    using Reply = std::unique_ptr<google::protobuf::MessageLite>;

    FakeProvider();
    ~FakeProvider();
    FakeProvider(FakeProvider const&) = delete;
    FakeProvider& operator=(FakeProvider const&) = delete;

    static std::string Address() { return "IPC:provider"; }

    /// Sets what answers one type of request; it runs on the provider's thread.
    template <class R>
    void On(std::function<void(R const&, typename R::Reply&)> fill) {
        std::lock_guard lock(m_mutex);
        m_answers[MessageTypeName(R::default_instance())] = [fill](std::string const& payload) -> Reply {
            R request;
            auto reply = std::make_unique<typename R::Reply>();
            if (request.ParseFromString(payload)) {
                fill(request, *reply);
            }
            return reply;
        };
    }

    /// Everything of one type that has come so far.
    template <class R>
    std::vector<R> Received() const {
        std::lock_guard lock(m_mutex);
        std::vector<R> found;
        for (auto const& [type, payload] : m_received) {
            if (type == MessageTypeName(R::default_instance())) {
                found.emplace_back().ParseFromString(payload);
            }
        }
        return found;
    }

private:
    void Run();
    Reply Answer(std::string const& type, std::string const& payload);

    ZMQMessageManager m_manager;
    mutable std::mutex m_mutex;
    std::map<std::string, std::function<Reply(std::string const&)>> m_answers;
    std::vector<std::pair<std::string, std::string>> m_received;
    std::latch m_open{1};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

/// All that the identity library needs on a machine: a registered server with a manifest, and a provider that
/// is mapped to the identity channel. One at a time in a process.
class IdentityWorld {
public:
    IdentityWorld();
    ~IdentityWorld();
    IdentityWorld(IdentityWorld const&) = delete;
    IdentityWorld& operator=(IdentityWorld const&) = delete;

    FakeServer server;
    FakeProvider provider;

private:
    ServerDescriptor m_entry;
};

}  // namespace vq::test
