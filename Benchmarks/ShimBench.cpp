// The way of an identity call through our own threads and records, beside the bare work in it.

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AsyncCmd.h"
#include "Identity.pb.h"
#include "Logging/LogConfig.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "Messaging/MessageUtils.h"
#include "SparseDeviceHelpers/SparseDeviceMule.h"
#include "Twin.h"
#include "identity/ProfileCache.h"

namespace {

using Request = vq::sd::VQIdentityGetAttributeNames;
using Reply = vq::RpcReply<Request::Reply>;
constexpr std::chrono::milliseconds kTimeout{5000};

vq::sd::VQIdentityProfile MakeProfile(int attributes) {
    vq::sd::VQIdentityProfile profile;
    profile.set_attribute_count(static_cast<std::uint32_t>(attributes));
    for (int i = 0; i < attributes; ++i) {
        vq::sd::VQIdentityAttribute& attribute = *profile.add_attributes();
        attribute.set_key(static_cast<vq::sd::VQIdentityAttributeKey>(i % 8));
        attribute.set_name("AttributeName" + std::to_string(i));
        attribute.set_value("a value as long as an address is, number " + std::to_string(i));
        attribute.set_is_requested(true);
        attribute.set_is_granted(true);
    }
    return profile;
}

AMessagePipeProvider& Pipes() {
    AMessageManager& manager = AMessageManager::Instance();
    return *manager.GetContext(manager.GetDefaultServerIpcAddress())->GetPipeProvider();
}

MessageAddress AddressOf(char const* name) {
    MessageAddress address = AMessageManager::Instance().GetDefaultServerIpcAddress();
    address.logicalName = name;
    return address;
}

/// A pipe pair over ipc whose far end answers every request with a profile, on a thread of its own. The near
/// end belongs to whoever asks first.
class Provider {
public:
    explicit Provider(char const* name)
        : m_address(AddressOf(name)),
          m_pipe(Pipes().GetRequestReplyServer(m_address, "")),
          m_thread([this] { Run(); }) {}
    ~Provider() {
        Stop stop;
        stop.mutable_handle()->set_handle(0);
        stop.set_timeout(0);
        MessageUtils::Send(Client(), stop, kTimeout, nullptr);
        m_thread.join();
    }
    Provider(Provider const&) = delete;
    Provider& operator=(Provider const&) = delete;

    AMessagePipeRequestReply* Client() { return Pipes().GetRequestReplyClient(m_address, ""); }

private:
    using Stop = vq::sd::VQIdentityGetAttributeNamesWait;

    void Run() {
        Request::Reply reply;
        reply.set_result(0);
        *reply.mutable_profile() = MakeProfile(8);
        auto const forever = std::chrono::milliseconds::max();
        Request request;
        Stop stop;
        while (MessageUtils::ReceiveOneOf(m_pipe, request, stop, forever, nullptr) && !stop.IsInitialized()) {
            MessageUtils::Send(m_pipe, reply, forever, nullptr);
        }
    }

    MessageAddress const m_address;
    AMessagePipeRequestReply* const m_pipe;
    std::thread m_thread;
};

Provider* g_muleProvider = nullptr;

/// A device that has asked to end: its mule no longer steps it, and so runs each command as it comes.
class UnpacedDevice : public SparseDevice {
public:
    UnpacedDevice() : SparseDevice(SparseDeviceType::Shim) {}

    bool Init(ManifestProcessor::ManifestData const&, SparseDeviceApplication*) override {
        m_pipe = g_muleProvider->Client();
        RequestExit(false);
        return m_pipe != nullptr;
    }
    bool FinishInit() { return true; }
    AMessagePipeRequestReply* GetFeatureProviderPipe(vq::SdkShim::Feature) { return m_pipe; }

private:
    AMessagePipeRequestReply* m_pipe = nullptr;
};

void MuleCommandIpc(benchmark::State& state) {
    LogConfig::Instance().SetLevel(LogLevel::Error);  // a device thread without privileges says so in a line
    bench::OneProcessor const processor;
    {
        Provider alone("bench.alone");
        Provider throughMule("bench.mule");
        g_muleProvider = &throughMule;
        SparseDeviceMule<UnpacedDevice> mule;
        ManifestProcessor::ManifestData data;
        data.deviceName = "bench";
        if (!mule.StartDevice(data, nullptr)) {
            state.SkipWithError("the device did not start");
            return;
        }
        AMessagePipeRequestReply* const pipe = alone.Client();
        bool ok = true;
        bench::RunTwin(
            state, 20,
            [&] {
                Request::Reply reply;
                ok &= MessageUtils::SendReceive(pipe, Request(), reply, kTimeout, nullptr);
                return reply.profile().attributes_size();
            },
            [&] {
                Reply const reply =
                    vq::SdkShim::AsyncCmd<101>(&mule, vq::SdkShim::Feature::Identity, Request(), kTimeout)
                        .get();
                ok &= reply.success;
                return reply.reply.profile().attributes_size();
            });
        if (!ok) {
            state.SkipWithError("an exchange failed");
        }
        mule.StopDevice();
    }
    AMessageManager::Instance().Cleanup();
}
VQ_TWIN("mule_command_ipc", MuleCommandIpc);

/// The records by hand: room once, then copies, and a record each as the interface's array of pointers wants
/// it.
class PlainRecords {
public:
    PlainRecords() {
        m_names.reserve(50);
        m_values.reserve(50);
        m_records.reserve(50);
        m_pointers.reserve(50);
    }
    VQIdentityAttribute** Fill(vq::sd::VQIdentityProfile const& profile) {
        m_records.clear();
        m_pointers.clear();
        m_names.clear();
        m_values.clear();
        for (vq::sd::VQIdentityAttribute const& from : profile.attributes()) {
            m_names.push_back(from.name());
            m_values.push_back(from.value());
            m_records.push_back(std::make_unique<VQIdentityAttribute>(
                VQIdentityAttribute{static_cast<VQIdentityAttributeKey>(from.key()), m_names.back().c_str(),
                                    m_values.back().c_str(), from.is_requested(), from.is_granted()}));
            m_pointers.push_back(m_records.back().get());
        }
        return m_pointers.data();
    }

private:
    std::vector<std::string> m_names;
    std::vector<std::string> m_values;
    std::vector<std::unique_ptr<VQIdentityAttribute>> m_records;
    std::vector<VQIdentityAttribute*> m_pointers;
};

void ReplyToRecords(benchmark::State& state) {
    vq::sd::VQIdentityProfile const profile = MakeProfile(8);
    PlainRecords plain;
    vq::IdentityShim::ProfileCache cache;
    VQIdentityProfile* out = cache.Profile();
    bench::RunTwin(
        state, 200, [&] { return plain.Fill(profile); },
        [&] {
            cache.ClearProfile();
            cache.PullOutProfile(profile);
            cache.FillVQProfileAttributeNames(&out);
            return out->attribute_ptrs;
        });
}
VQ_TWIN("reply_to_records", ReplyToRecords);

}  // namespace
