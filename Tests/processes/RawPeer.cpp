#include "RawPeer.h"

#include <fstream>
#include <map>

#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "Utils/ServerRegistry.h"

namespace vq::test {

RawResponder::RawResponder(std::string const& address, Answer answer, std::function<void()> idle)
    : m_socket(ZMQ_REP, address), m_thread([this, answer = std::move(answer), idle = std::move(idle)] {
          while (!m_stop) {
              idle();
              if (!m_socket.Poll(std::chrono::milliseconds(20))) {
                  continue;
              }
              Frames const request = m_socket.Receive();
              {
                  std::lock_guard const lock(m_mutex);
                  m_requests.push_back(request);
              }
              m_socket.Send(answer(request));
          }
      }) {}

RawResponder::~RawResponder() {
    m_stop = true;
    m_thread.join();
}

std::vector<Frames> RawResponder::Requests() {
    std::lock_guard const lock(m_mutex);
    return m_requests;
}

void RegisterRawProvider(std::string const& serverAddress, std::string const& ownAddress) {
    RawSocket server(ZMQ_REQ, serverAddress);
    auto const device = server.Get<vq::vds::RegisterSparseDevice>(
        "1:{1:'AnotherIdentityDevice' 2:'Another make' 3:'Identity' 9:1 10:0} 2:'" + ownAddress + "'");
    std::string const id = "1:" + std::to_string(device.device_id());
    server.Get<vq::vds::RegisterSparseDeviceChannels>(
        id + " 2:{1:'identity_feature' 2:'Feature' 3:'AnotherIdentityDevice' 4:0 5:1 6:0} 3:1");
    server.Get<vq::vds::ReportSparseDeviceInitialized>(id);
}

RawServer::RawServer(std::string const& directory, std::string const& provider)
    : m_address("IPC:" + directory),
      m_provider(provider),
      m_directory(directory),
      m_events(ZMQ_PUB, m_address + "ev"),
      m_heartbeat(ZMQ_PUB, m_address + "hb"),
      m_broadcast(ZMQ_PUB, m_address + "bc"),
      m_responder(
          m_address + "rq", [this](Frames const& request) { return AnswerTo(request); },
          [this] { Publish(); }) {
    // The library's device finds its feature channel by this property.
    std::ofstream(directory + "ShimMultiDeviceManifest.json")
        << R"({ "Manifests": [ { "ManifestType": "SparseDevice", "DeviceName": "IdentityShimSparseDevice",
            "DeviceType": "Shim", "UpdateHertz": 50, "ConfigurationProperties": {
            "IdentityFeatureChannel": { "Type": "string", "Default": "identity_feature" } } } ] })";
    auto const address = [this](char const* name) { return MessageAddress::FromString(m_address + name); };
    ServerDescriptor const line{"raw", address("rq"), 12, 11, 0, address("hb"), address("me")};
    EXPECT_TRUE(ServerRegistry::Instance().RegisterServer(line, kPatience, nullptr));
}

void RawServer::Publish() {
    m_heartbeat.Send(EventFrames(vq::vds::ServerHeartbeat()));
    if (m_announcements > 0) {
        --m_announcements;
        m_events.Send(EventFrames(
            wire::Parsed<vq::vds::DeviceRegisteredEvent>("1:'IdentityShimSparseDevice' 2:'Shim' 3:7")));
    }
}

Frames RawServer::AnswerTo(Frames const& request) {
    // The rest of the bring-up is answered by replies without fields.
    std::map<std::string, std::string> const fields = {
        {"vq.vds.GetProtocolVersion", "1:1 2:12"},
        {"vq.vds.GetDataPath", "1:'" + m_directory + "'"},
        {"vq.vds.GetServerEventAddress", "1:'" + m_address + "ev'"},
        {"vq.vds.GetServerDataEventBroadcastAddress", "1:'" + m_address + "bc'"},
        {"vq.vds.RegisterSparseDevice", "1:7 2:0"},
        {"vq.vds.CreateServerDataEventListenerAddress", "1:'" + m_address + "de'"},
        {"vq.vds.GetChannelMappings", "1:{1:'MockVQ1IdentitySparseDevice' 2:'identity_feature'}"},
        {"vq.vds.GetDeviceRequestReplyAddress", "1:'" + m_provider + "'"}};
    std::string const& type = request.at(1);
    if (type == "vq.vds.ReportSparseDeviceInitialized") {
        m_announcements = 25;  // several times: a subscription may take longer than the whole bring-up
    }
    auto const found = fields.find(type);
    return {"any identity", type + ".Reply", found == fields.end() ? "" : wire::Bytes(found->second)};
}

}  // namespace vq::test
