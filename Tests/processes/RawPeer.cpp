#include "RawPeer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zmq.h>

#include <cstring>

#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "Utils/ServerRegistry.h"

namespace vq::test {

namespace {

constexpr char kIdentityChannel[] = "identity_feature";

std::string HeaderOf(google::protobuf::MessageLite const& event) {
    // Type, NUL, channel name, NUL, channel id in four bytes.
    return event.GetTypeName() + std::string(6, '\0');
}

// The library's device finds its feature channel by this property.
void WriteManifest(std::string const& directory) {
    std::string const path = directory + "ShimMultiDeviceManifest.json";
    std::FILE* file = std::fopen(path.c_str(), "w");
    ASSERT_NE(file, nullptr) << path;
    std::fputs(R"({ "Manifests": [ { "ManifestType": "SparseDevice", "DeviceName": "IdentityShimSparseDevice",
        "DeviceType": "Shim", "UpdateHertz": 50, "ConfigurationProperties": {
        "IdentityFeatureChannel": { "Type": "string", "Default": "identity_feature" } } } ] })",
               file);
    std::fclose(file);
}

}  // namespace

Frames FramesOf(google::protobuf::MessageLite const& message) {
    return {"", message.GetTypeName(), message.SerializePartialAsString()};
}

RawSocket::RawSocket(int type, std::string const& endpoint)
    : m_context(zmq_ctx_new()), m_socket(zmq_socket(m_context, type)) {
    int const linger = 0;
    int const limit = 30000;
    zmq_setsockopt(m_socket, ZMQ_LINGER, &linger, sizeof linger);
    zmq_setsockopt(m_socket, ZMQ_RCVTIMEO, &limit, sizeof limit);
    if (type == ZMQ_SUB) {
        zmq_setsockopt(m_socket, ZMQ_SUBSCRIBE, "", 0);
    }
    bool const binds = type == ZMQ_REP || type == ZMQ_PUB || type == ZMQ_ROUTER;
    int const result = binds ? zmq_bind(m_socket, endpoint.c_str()) : zmq_connect(m_socket, endpoint.c_str());
    EXPECT_EQ(result, 0) << endpoint << ": " << zmq_strerror(zmq_errno());
}

RawSocket::~RawSocket() {
    zmq_close(m_socket);
    zmq_ctx_term(m_context);
}

void RawSocket::Send(Frames const& frames) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
        int const flags = i + 1 < frames.size() ? ZMQ_SNDMORE : 0;
        EXPECT_GE(zmq_send(m_socket, frames[i].data(), frames[i].size(), flags), 0)
            << zmq_strerror(zmq_errno());
    }
}

Frames RawSocket::Receive() {
    Frames frames;
    int more = 1;
    while (more != 0) {
        zmq_msg_t message;
        zmq_msg_init(&message);
        if (zmq_msg_recv(&message, m_socket, 0) < 0) {
            zmq_msg_close(&message);
            return {};
        }
        frames.emplace_back(static_cast<char const*>(zmq_msg_data(&message)), zmq_msg_size(&message));
        more = zmq_msg_more(&message);
        zmq_msg_close(&message);
    }
    return frames;
}

bool RawSocket::Poll(int milliseconds) {
    zmq_pollitem_t item{m_socket, 0, ZMQ_POLLIN, 0};
    return zmq_poll(&item, 1, milliseconds) > 0;
}

void Exchange(RawSocket& socket, google::protobuf::MessageLite const& request,
              google::protobuf::MessageLite& reply) {
    socket.Send(FramesOf(request));
    Frames const answer = socket.Receive();
    ASSERT_EQ(answer.size(), 3U) << request.GetTypeName();
    ASSERT_EQ(answer[1], reply.GetTypeName()) << answer[2];
    ASSERT_TRUE(reply.ParseFromString(answer[2])) << answer[1];
}

RawProvider::RawProvider(std::string const& serverEndpoint, std::string const& ownPath, Answer answer)
    : m_socket(ZMQ_REP, "ipc://" + ownPath), m_answer(std::move(answer)) {
    Register(serverEndpoint, ownPath);
    m_thread = std::thread([this] { Serve(); });
}

RawProvider::~RawProvider() {
    m_stop = true;
    m_thread.join();
}

void RawProvider::Register(std::string const& serverEndpoint, std::string const& ownPath) {
    RawSocket server(ZMQ_REQ, serverEndpoint);
    vq::vds::RegisterSparseDevice device;
    device.mutable_description()->set_name("AnotherIdentityDevice");
    device.mutable_description()->set_display_name("Another make");
    device.mutable_description()->set_type("Identity");
    device.mutable_description()->set_process_id(1);
    device.mutable_description()->set_second_process_id(0);
    device.set_address("IPC:" + ownPath);
    vq::vds::RegisterSparseDevice::Reply registered;
    Exchange(server, device, registered);

    vq::vds::RegisterSparseDeviceChannels channels;
    channels.set_device_id(registered.device_id());
    channels.set_flag(true);
    auto& channel = *channels.add_channels();
    channel.set_name(kIdentityChannel);
    channel.set_data_type("Feature");
    channel.set_third_text("AnotherIdentityDevice");
    channel.set_flag_4(false);
    channel.set_flag_5(true);
    channel.set_role(vq::ch::ChannelRole_Producer);
    vq::vds::RegisterSparseDeviceChannels::Reply ids;
    Exchange(server, channels, ids);
    EXPECT_EQ(ids.channel_ids_size(), 1);

    vq::vds::ReportSparseDeviceInitialized report;
    report.set_device_id(registered.device_id());
    vq::vds::ReportSparseDeviceInitialized::Reply reported;
    Exchange(server, report, reported);
}

void RawProvider::Serve() {
    while (!m_stop) {
        if (!m_socket.Poll(20)) {
            continue;
        }
        Frames const request = m_socket.Receive();
        {
            std::lock_guard const lock(m_mutex);
            m_requests.push_back(request);
        }
        m_socket.Send(m_answer(request));
    }
}

std::vector<Frames> RawProvider::Requests() {
    std::lock_guard const lock(m_mutex);
    return m_requests;
}

RawServer::RawServer(std::string const& directory, std::string const& provider)
    : m_directory(directory),
      m_provider(provider),
      m_requests(ZMQ_REP, "ipc://" + directory + "rq"),
      m_events(ZMQ_PUB, "ipc://" + directory + "ev"),
      m_heartbeat(ZMQ_PUB, "ipc://" + directory + "hb"),
      m_broadcast(ZMQ_PUB, "ipc://" + directory + "bc") {
    WriteManifest(directory);
    ServerDescriptor line;
    line.name = "raw";
    line.address = MessageAddress::FromString("IPC:" + directory + "rq");
    line.heartbeatAddress = MessageAddress::FromString("IPC:" + directory + "hb");
    line.memoryEventAddress = MessageAddress::FromString("IPC:" + directory + "me");
    line.protocol = 12;
    line.minimumProtocol = 11;
    EXPECT_TRUE(ServerRegistry::Instance().RegisterServer(line, std::chrono::seconds(30), nullptr));
    m_thread = std::thread([this] { Serve(); });
}

RawServer::~RawServer() {
    m_stop = true;
    m_thread.join();
}

void RawServer::Publish(google::protobuf::MessageLite const& event) {
    m_events.Send({HeaderOf(event), event.SerializeAsString()});
}

void RawServer::PublishHeartbeat() {
    vq::vds::ServerHeartbeat const heartbeat;
    m_heartbeat.Send({HeaderOf(heartbeat), heartbeat.SerializeAsString()});
}

void RawServer::PublishRegistration() {
    vq::vds::DeviceRegisteredEvent event;
    event.set_name("IdentityShimSparseDevice");
    event.set_type("Shim");
    event.set_device_id(7);
    Publish(event);
}

void RawServer::Serve() {
    // Several times: a subscription may take longer than the whole bring-up.
    int announcements = 0;
    while (!m_stop) {
        PublishHeartbeat();
        if (announcements > 0) {
            --announcements;
            PublishRegistration();
        }
        if (!m_requests.Poll(50)) {
            continue;
        }
        Frames const request = m_requests.Receive();
        {
            std::lock_guard const lock(m_mutex);
            m_seen.push_back(request);
        }
        m_requests.Send(AnswerTo(request));
        if (request.size() == 3 && request[1] == "vq.vds.ReportSparseDeviceInitialized") {
            announcements = 5;
        }
    }
}

Frames RawServer::AnswerTo(Frames const& request) {
    auto const address = [&](char const* suffix) { return "IPC:" + m_directory + suffix; };
    std::string const& type = request.at(1);
    if (type == "vq.vds.GetProtocolVersion") {
        vq::vds::GetProtocolVersion::Reply reply;
        reply.set_server_version(1);
        reply.set_protocol_version(12);
        return FramesOf(reply);
    }
    if (type == "vq.vds.GetDataPath") {
        vq::vds::GetDataPath::Reply reply;
        reply.set_path(m_directory);
        return FramesOf(reply);
    }
    if (type == "vq.vds.GetServerEventAddress") {
        vq::vds::GetServerEventAddress::Reply reply;
        reply.set_address(address("ev"));
        return FramesOf(reply);
    }
    if (type == "vq.vds.GetServerDataEventBroadcastAddress") {
        vq::vds::GetServerDataEventBroadcastAddress::Reply reply;
        reply.set_address(address("bc"));
        return FramesOf(reply);
    }
    if (type == "vq.vds.RegisterSparseDevice") {
        vq::vds::RegisterSparseDevice::Reply reply;
        reply.set_device_id(7);
        reply.set_auto_stats(false);
        return FramesOf(reply);
    }
    if (type == "vq.vds.CreateServerDataEventListenerAddress") {
        vq::vds::CreateServerDataEventListenerAddress::Reply reply;
        reply.set_address(address("de"));
        return FramesOf(reply);
    }
    if (type == "vq.vds.GetChannelMappings") {
        vq::vds::GetChannelMappings::Reply reply;
        auto& mapping = *reply.add_mappings();
        mapping.set_device("MockVQ1IdentitySparseDevice");
        mapping.set_channel(kIdentityChannel);
        return FramesOf(reply);
    }
    if (type == "vq.vds.GetDeviceRequestReplyAddress") {
        vq::vds::GetDeviceRequestReplyAddress::Reply reply;
        reply.set_address(m_provider);
        return FramesOf(reply);
    }
    // The rest of the bring-up is answered by replies without fields.
    return {"any identity", type + ".Reply", ""};
}

std::vector<std::string> RawServer::RequestTypes() {
    std::lock_guard const lock(m_mutex);
    std::vector<std::string> types;
    for (Frames const& request : m_seen) {
        types.push_back(request.size() > 1 ? request[1] : "?");
    }
    return types;
}

std::string RawServer::PayloadOf(std::string const& type) {
    std::lock_guard const lock(m_mutex);
    for (Frames const& request : m_seen) {
        if (request.size() == 3 && request[1] == type) {
            return request[2];
        }
    }
    return {};
}

}  // namespace vq::test
