#pragma once

#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>

#include "Messaging/AMessageManager.h"
#include "Messaging/ZMQMessageContext.h"
#include "ServerRequests.pb.h"
#include "TestSupport/TestHome.h"
#include "VirtualDeviceServer/VirtualDeviceServer.h"

namespace vq::server {

inline ServerOptions Options(std::string const& address) {
    ServerOptions options;
    options.address = MessageAddress::FromString(address);
    // Relative, as people type it; clients are told the full path.
    options.dataDirectory = std::filesystem::relative(test::HomeDirectory() + "data");
    options.heartbeatPeriod = std::chrono::milliseconds(50);
    std::filesystem::create_directory(options.dataDirectory);
    std::ofstream(options.dataDirectory + "/ShimMultiDeviceManifest.json") << "{}";
    return options;
}

/// A server on a thread of its own; stopped at the end.
class RunningServer {
public:
    explicit RunningServer(ServerOptions const& options) {
        std::promise<bool> started;
        m_thread = std::thread([this, options, &started] {
            VirtualDeviceServer server(options);
            bool const good = server.Start();
            if (good) {
                m_server = &server;
                m_address = server.GetAddress().ToString();
            }
            started.set_value(good);
            if (good) {
                server.Run();
            }
        });
        m_good = started.get_future().get();
    }
    ~RunningServer() {
        Stop();
        Join();
    }
    void Stop() {
        if (m_good && m_thread.joinable()) {
            m_server->RequestStop();
        }
    }
    void Join() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    bool IsGood() const { return m_good; }
    std::string const& Address() const { return m_address; }

private:
    VirtualDeviceServer* m_server = nullptr;
    std::string m_address;
    bool m_good = false;
    std::thread m_thread;
};

inline zmq::context_t& SharedContext() {
    auto* const context =
        AMessageManager::Instance().GetContext(MessageAddress::FromString("LOOPBACK:context"));
    return *static_cast<ZMQMessageContext*>(context)->GetZMQContext();
}

}  // namespace vq::server
