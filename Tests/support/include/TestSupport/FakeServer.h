#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "Messaging/AMessagePipe.h"
#include "Messaging/MessageAddress.h"
#include "Messaging/MessageTypeName.h"
#include "Messaging/ZMQMessageManager.h"
#include "ServerRequests.pb.h"

namespace vq::test {

/// A Virtual Device Server inside the test process, on a thread and a message manager of its own: it records
/// every request, answers as a friendly server would, and publishes what the test wants. It serves on an IPC
/// address in the test's HOME and points VQ_VDS_ADDRESS there. A second one on the same address, after the
/// first has gone, is a server that was restarted.
///
/// The test's thread makes all calls.
class FakeServer {
public:
    struct Request {
        std::string type;
        std::string payload;
    };
    struct DataEvent {
        std::string type;
        std::string channel;
        int channelId;
        std::string payload;
    };
    using Reply = std::unique_ptr<google::protobuf::MessageLite>;

    /// @param location      of the IPC address.
    /// @param firstDeviceId what the first device to register gets.
    explicit FakeServer(std::string const& location = "vds", std::int32_t firstDeviceId = 1);
    ~FakeServer();
    FakeServer(FakeServer const&) = delete;
    FakeServer& operator=(FakeServer const&) = delete;

    MessageAddress const& Address() const { return m_address; }

    /// Replaces the answer to one type of request. Runs on the server's thread. A null answer makes the
    /// server deaf and dumb from then on, as one that hangs.
    template <class R>
    void On(std::function<Reply(R const&)> answer) {
        std::lock_guard const lock(m_mutex);
        m_answers[MessageTypeName(R::default_instance())] = [answer](std::string const& payload) {
            R request;
            return request.ParseFromString(payload) ? answer(request) : Refuse("cannot read the request");
        };
    }
    /// The same answer each time, from its bytes.
    template <class R, class A = typename R::Reply>
    void Answer(std::string const& bytes = {}) {
        On<R>([bytes](R const&) {
            auto answer = std::make_unique<A>();
            answer->ParsePartialFromString(bytes);
            return answer;
        });
    }
    static Reply Refuse(std::string const& text);
    /// The request's own error.
    template <class R>
    static Reply RefuseBy(std::string const& text) {
        auto error = std::make_unique<typename R::Error>();
        error->set_message(text);
        return error;
    }

    /// Device and channel of each mapping in force.
    void SetMappings(std::vector<std::pair<std::string, std::string>> mappings) { Set(m_mappings, mappings); }
    void SetAutoStats(bool enable) { Set(m_autoStats, enable); }
    /// Where requests for that device go; a device that registers enters its own.
    void SetDeviceAddress(std::string const& device, std::string const& address) {
        std::lock_guard const lock(m_mutex);
        m_deviceAddresses[device] = address;
    }
    std::string DeviceAddress(std::string const& device) const {
        std::lock_guard const lock(m_mutex);
        auto const found = m_deviceAddresses.find(device);
        return found == m_deviceAddresses.end() ? "" : found->second;
    }

    /// Everything so far, in order of arrival.
    std::vector<Request> Requests() const { return Get(m_received); }
    /// The types alone, without their package.
    std::vector<std::string> RequestTypes() const;
    template <class R>
    std::vector<R> Received() const {
        std::vector<R> found;
        for (Request const& request : Requests()) {
            if (request.type == MessageTypeName(R::default_instance())) {
                found.emplace_back().ParseFromString(request.payload);
            }
        }
        return found;
    }
    void ClearRequests() { Set(m_received, {}); }
    /// Data events of registered devices, in order of arrival.
    std::vector<DataEvent> DataEvents() const { return Get(m_dataEvents); }

    /// Sends a server event. Who has not subscribed yet does not get it.
    void Publish(google::protobuf::MessageLite const& event) { QueueEvent(event, "", 0, false); }
    /// Sends a data event on the broadcast address.
    void PublishData(google::protobuf::MessageLite const& event, std::string const& channel, int channelId) {
        QueueEvent(event, channel, channelId, true);
    }

private:
    struct Outgoing {
        std::unique_ptr<google::protobuf::MessageLite> event;
        std::string channel;
        int channelId;
        bool isData;
    };

    template <class T>
    void Set(T& member, std::type_identity_t<T> value) {
        std::lock_guard const lock(m_mutex);
        member = std::move(value);
    }
    template <class T>
    T Get(T const& member) const {
        std::lock_guard const lock(m_mutex);
        return member;
    }
    void QueueEvent(google::protobuf::MessageLite const& event, std::string channel, int channelId,
                    bool isData);
    void Run();
    void OpenPipes();
    void ServeOne(AMessage& message);
    void SendQueued();
    void ReadDataEvents();
    void SetupAnswers();
    void SetupDeviceAnswers();
    void SetupApplicationAnswers();
    Reply OpenDataListener(vq::vds::CreateServerDataEventListenerAddress const& request);

    MessageAddress const m_address;
    std::thread m_thread;

    // Only the server's thread.
    ZMQMessageManager m_manager;
    AMessagePipeRequestReply* m_requests = nullptr;
    AMessagePipeEventSender* m_events = nullptr;
    AMessagePipeEventSender* m_data = nullptr;
    AMessagePipeEventSender* m_heartbeat = nullptr;
    std::vector<AMessagePipeEventListener*> m_dataListeners;
    bool m_deaf = false;
    std::int32_t m_nextDeviceId;
    std::int32_t m_nextChannelId = 1;

    // The rest by lock.
    mutable std::mutex m_mutex;
    std::condition_variable m_opened;
    bool m_stop = false;
    bool m_open = false;
    std::map<std::string, std::function<Reply(std::string const&)>> m_answers;
    std::deque<Outgoing> m_outgoing;
    std::vector<Request> m_received;
    std::vector<DataEvent> m_dataEvents;
    std::vector<std::pair<std::string, std::string>> m_mappings;
    std::map<std::string, std::string> m_deviceAddresses;
    std::map<std::int32_t, vq::descriptors::data::SparseDeviceDescription> m_devices;
    bool m_autoStats = false;
};

}  // namespace vq::test
