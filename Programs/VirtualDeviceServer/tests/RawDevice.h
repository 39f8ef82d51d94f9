#pragma once

#include <string>

#include "ServerEvents.pb.h"
#include "ServerRequests.pb.h"
#include "TestSupport/RawWire.h"

namespace vq::server {

/// Hears what a server publishes there. Waits until it is heard that the server publishes, so that nothing is
/// missed afterwards.
inline test::RawSocket Listen(std::string const& address, zmq::context_t* context = nullptr) {
    test::RawSocket socket(ZMQ_SUB, address, context);
    EXPECT_FALSE(socket.Receive().empty()) << "nothing is published at " << address;
    return socket;
}

inline vq::vds::RegisterSparseDevice Registration(std::string const& name) {
    return wire::Parsed<vq::vds::RegisterSparseDevice>("1:{1:'" + name + "' 2:'" + name +
                                                       "' 3:'Generic' 9:0 10:0} 2:'IPC:/tmp/" + name + "'");
}

/// A device as far as the server sees it.
class RawDevice {
public:
    /// @param client  outlives the device
    RawDevice(test::RawSocket& client, std::string const& name, zmq::context_t* context = nullptr)
        : m_client(client),
          m_id(client.Get(Registration(name)).device_id()),
          m_address(client.Get<vq::vds::CreateServerDataEventListenerAddress>("1:" + std::to_string(m_id))
                        .address()),
          m_publisher(ZMQ_PUB, m_address, context) {}

    void ServeChannel(std::string const& channel) {
        m_client.Get<vq::vds::RegisterSparseDeviceChannels>("1:" + std::to_string(m_id) + " 2:{1:'" +
                                                            channel + "' 2:'Vec3' 3:'' 4:0 5:0 6:0} 3:1");
    }
    void SayHello() { Publish({std::string("vq.ch.HelloDataEvent\0\0\0\0\0\0", 26), "\n\1x"}); }
    /// Greets until a listener of the server's broadcast hears it.
    void JoinUntilHeardBy(test::RawSocket& listener) {
        for (int i = 0; i < 3000; ++i) {
            SayHello();
            if (listener.Poll(std::chrono::milliseconds(20)) &&
                listener.Receive()[0].starts_with("vq.ch.HelloDataEvent")) {
                return;
            }
        }
        ADD_FAILURE() << "the server does not hear the device";
    }
    void Publish(test::Frames const& frames) { m_publisher.Send(frames); }

    std::int32_t Id() const { return m_id; }
    std::string const& Address() const { return m_address; }

private:
    test::RawSocket& m_client;
    std::int32_t m_id;
    std::string m_address;
    test::RawSocket m_publisher;
};

}  // namespace vq::server
