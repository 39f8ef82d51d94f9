#include "IdentityWorld.h"

#include <unistd.h>

#include <chrono>
#include <fstream>

#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "Messaging/ZMQMessage.h"
#include "TestSupport/TestHome.h"
#include "Utils/ServerRegistry.h"

namespace vq::test {

namespace {

constexpr std::chrono::milliseconds kPass{5};
constexpr std::chrono::seconds kLimit{30};

}  // namespace

FakeProvider::FakeProvider() : m_thread([this] { Run(); }) {
    m_open.wait();
}

FakeProvider::~FakeProvider() {
    m_stop = true;
    m_thread.join();
}

void FakeProvider::Run() {
    MessageAddress const address = MessageAddress::FromString(Address());
    AMessagePipeRequestReply* const pipe =
        m_manager.GetContext(address)->GetPipeProvider()->GetRequestReplyServer(address, "");
    m_open.count_down();
    while (!m_stop) {
        if (std::unique_ptr<AMessage> const message{pipe->ReceiveNext(kPass, nullptr)}) {
            std::string const payload = ZMQMessageBody::Of(message.get())->GetBody().to_string();
            MessageUtils::Send(pipe, *Answer(message->Type(), payload), kLimit, nullptr);
        }
    }
    m_manager.Cleanup();
}

FakeProvider::Reply FakeProvider::Answer(std::string const& type, std::string const& payload) {
    std::lock_guard lock(m_mutex);
    m_received.emplace_back(type, payload);
    auto const answer = m_answers.find(type);
    return answer == m_answers.end() ? FakeServer::Refuse("not today") : answer->second(payload);
}

IdentityWorld::IdentityWorld() {
    std::ofstream(HomeDirectory() + "ShimMultiDeviceManifest.json") << R"({
        "ApplicationName": "test",
        "Manifests": [ {
            "DeviceName": "IdentityShimSparseDevice", "DeviceType": "Shim", "UpdateHertz": 100,
            "ConfigurationSettings": { "IdentityFeatureChannel": "identity_channel" }
        } ]
    })";
    server.SetDataPath(HomeDirectory());
    server.SetMappings({{"MockVQ1IdentitySparseDevice", "identity_channel"}});
    server.SetDeviceAddress("MockVQ1IdentitySparseDevice", FakeProvider::Address());

    MessageAddress heartbeat = server.Address();
    heartbeat.logicalName = "heartbeat";
    ZMQMessageManager manager;
    m_entry.name = "fake";
    m_entry.address = server.Address();
    m_entry.heartbeatAddress = manager.GetContext(heartbeat)->GetPipeProvider()->Resolve(heartbeat, false);
    m_entry.memoryEventAddress = server.Address();
    m_entry.protocol = 12;
    m_entry.pid = ::getpid();
    manager.Cleanup();
    ServerRegistry::Instance().RegisterServer(m_entry, kLimit, nullptr);
}

IdentityWorld::~IdentityWorld() {
    ServerRegistry::Instance().RemoveServer(m_entry, kLimit, nullptr);
}

}  // namespace vq::test
