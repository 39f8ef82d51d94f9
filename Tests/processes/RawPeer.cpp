#include "RawPeer.h"

#include <fstream>
#include <map>

#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "TestSupport/WireWriter.h"
#include "Utils/ServerRegistry.h"

namespace vq::test {

namespace {

constexpr char kIdentityChannel[] = "identity_feature";

}  // namespace

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
    vq::vds::RegisterSparseDevice device;
    device.mutable_description()->set_name("AnotherIdentityDevice");
    device.mutable_description()->set_display_name("Another make");
    device.mutable_description()->set_type("Identity");
    device.mutable_description()->set_process_id(1);
    device.mutable_description()->set_second_process_id(0);
    device.set_address(ownAddress);
    vq::vds::RegisterSparseDeviceChannels channels;
    channels.set_device_id(server.Get(device).device_id());
    channels.set_flag(true);
    auto& channel = *channels.add_channels();
    channel.set_name(kIdentityChannel);
    channel.set_data_type("Feature");
    channel.set_third_text("AnotherIdentityDevice");
    channel.set_flag_4(false);
    channel.set_flag_5(true);
    channel.set_role(vq::ch::ChannelRole_Producer);
    EXPECT_EQ(server.Get(channels).channel_ids_size(), 1);
    vq::vds::ReportSparseDeviceInitialized report;
    report.set_device_id(channels.device_id());
    server.Get(report);
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
        vq::vds::DeviceRegisteredEvent event;
        event.set_name("IdentityShimSparseDevice");
        event.set_type("Shim");
        event.set_device_id(7);
        m_events.Send(EventFrames(event));
    }
}

Frames RawServer::AnswerTo(Frames const& request) {
    using wire::Number;
    using wire::Text;
    std::string const mapping = Text(1, "MockVQ1IdentitySparseDevice") + Text(2, kIdentityChannel);
    // The rest of the bring-up is answered by replies without fields.
    std::map<std::string, std::string> const payloads = {
        {"vq.vds.GetProtocolVersion", Number(1, 1) + Number(2, 12)},
        {"vq.vds.GetDataPath", Text(1, m_directory)},
        {"vq.vds.GetServerEventAddress", Text(1, m_address + "ev")},
        {"vq.vds.GetServerDataEventBroadcastAddress", Text(1, m_address + "bc")},
        {"vq.vds.RegisterSparseDevice", Number(1, 7) + Number(2, 0)},
        {"vq.vds.CreateServerDataEventListenerAddress", Text(1, m_address + "de")},
        {"vq.vds.GetChannelMappings", Text(1, mapping)},
        {"vq.vds.GetDeviceRequestReplyAddress", Text(1, m_provider)}};
    std::string const& type = request.at(1);
    if (type == "vq.vds.ReportSparseDeviceInitialized") {
        m_announcements = 25;  // several times: a subscription may take longer than the whole bring-up
    }
    auto const found = payloads.find(type);
    return {"any identity", type + ".Reply", found == payloads.end() ? "" : found->second};
}

}  // namespace vq::test
