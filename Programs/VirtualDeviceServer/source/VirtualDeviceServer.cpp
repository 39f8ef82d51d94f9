#include "VirtualDeviceServer/VirtualDeviceServer.h"

#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "DescriptorPoll.h"
#include "DeviceListeners.h"
#include "DeviceRequests.pb.h"
#include "Logging/Log.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/MessageUtils.h"
#include "RegistryEntry.h"
#include "RemoteDevices.h"
#include "RequestTable.h"
#include "ServerEndpoints.h"
#include "ServerEvents.pb.h"
#include "SocketUrl.h"
#include "Timers.h"
#include "Utils/OSUtils.h"

namespace vq::server {

namespace {

using std::chrono::milliseconds;
using Transport = MessageAddress::Transport;

/// Requests answered in one go before timers and signals have their turn.
constexpr int kRequestBatch = 64;
constexpr milliseconds kHelloPeriod{500};
constexpr milliseconds kTick{200};
/// A server that stood still for so long did not hear its devices.
constexpr milliseconds kStandstill{1000};
/// When the devices of a former life are announced as unregistered, after the start. Listeners come back
/// within some 200 ms, if nothing holds them up.
constexpr std::array kAnnouncements = {milliseconds(100),  milliseconds(250),  milliseconds(450),
                                       milliseconds(700),  milliseconds(1000), milliseconds(1500),
                                       milliseconds(2000), milliseconds(3000), milliseconds(4000),
                                       milliseconds(5000), milliseconds(7000), milliseconds(10000)};

std::string NameFromAddress(MessageAddress const& address) {
    std::string name = "vdserver";
    if (address == ServerOptions().address) {
        return name;
    }
    return name + "@" +
           (address.transport == Transport::IPC ? GetFileNameOf(address.location) : address.location);
}

void MakeTempDirectoryPrivate() {
    // Endpoints and tables in it are open to whoever may enter.
    std::string const directory = GetUserTempDirectory();
    if (::chmod(directory.c_str(), S_IRWXU) != 0) {
        LOG_W("Cannot keep others out of '%s': %s", directory.c_str(), GetOSErrorText(errno).c_str());
    }
}

void WarnOfOpenInterfaces(MessageAddress const& address) {
    if (address.transport == Transport::SOCKET && address.location.find("localhost") != std::string::npos) {
        LOG_W(
            "%s is reachable on every network interface, and nobody is asked who he is: serve on 127.0.0.1 "
            "or IPC to keep others out",
            address.ToString().c_str());
    }
}

}  // namespace

class VirtualDeviceServer::Implementation final : private ServerControl {
public:
    explicit Implementation(ServerOptions options);

    bool Start();
    void Run();
    void RequestStop();
    void StopWhenReadable(int descriptor);
    MessageAddress const& GetAddress() const { return m_address; }
    std::string const& GetName() const { return m_options.name; }

private:
    // ServerControl
    ServerOptions const& Options() const override { return m_options; }
    PublishingAddresses const& Addresses() const override { return m_endpoints.Addresses(); }
    std::optional<MessageAddress> CreateDataEventAddress(std::int32_t deviceId) override {
        return m_listeners->Create(deviceId);
    }
    DeviceCommands& Commands() override { return *m_commands; }
    ApplicationProcesses& Processes() override { return *m_processes; }
    void ResendLatestSamples() override;
    RemoteDevices& Remotes() override { return *m_remotes; }
    void Stop() override { ++m_stopRequests; }
    bool IsStopping() const override { return m_stopping; }

    bool CheckOptions() const;
    void OpenState(JournalContent const& former);
    bool EnterRegistry();
    void AddTimers();
    void OpenListeners();
    void Watch(ZMQMessagePipeBase const& pipe, bool (Implementation::*serve)());
    bool ServeRequests();
    bool TakeMemoryEvents();
    void AnswerRequest(AMessage const& message, bool malformed);
    void Reply(google::protobuf::MessageLite const& answer);
    void NoteChanges();
    milliseconds AnnounceFormerDevices();
    milliseconds Tick(TimePoint now);
    void BeginStop();
    bool IsDone(TimePoint now) const;

    ServerOptions m_options;
    MessageAddress m_address;
    DescriptorPoll m_poll;
    FileDescriptor m_stopEvent;
    ServerEndpoints m_endpoints;
    std::unique_ptr<ServerState> m_state;
    std::unique_ptr<ServerJournal> m_journal;
    std::unique_ptr<ChannelDataStore> m_channelData;
    std::unique_ptr<SharedMemoryStore> m_sharedMemory;
    std::unique_ptr<DeviceListeners> m_listeners;
    std::unique_ptr<DeviceCommands> m_commands;
    std::unique_ptr<ApplicationProcesses> m_processes;
    std::unique_ptr<RemoteDevices> m_remotes;
    RequestTable m_requests;
    RegistryEntry m_registryEntry;
    Timers m_timers;
    std::uint64_t m_noted = 0;  ///< the revision of the state that the journal holds
    std::size_t m_announcements = 0;
    TimePoint m_lastTick{};
    TimePoint m_lastPruning{};
    int m_stopRequests = 0;
    bool m_stopping = false;
    TimePoint m_stopDeadline{};
};

VirtualDeviceServer::Implementation::Implementation(ServerOptions options)
    : m_options(std::move(options)), m_stopEvent(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE)) {
    if (!m_stopEvent) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    StopWhenReadable(m_stopEvent.Get());
}

bool VirtualDeviceServer::Implementation::Start() {
    if (m_options.name.empty()) {
        m_options.name = NameFromAddress(m_options.address);
    }
    // Clients have working directories of their own.
    m_options.dataDirectory = GetFullPath(m_options.dataDirectory);
    if (!CheckOptions()) {
        return false;
    }
    MakeTempDirectoryPrivate();
    m_journal = std::make_unique<ServerJournal>(ServerJournal::PathFor(m_options.name, m_options.address));
    JournalContent const former = m_journal->Read();
    if (!m_endpoints.Open(m_options.address, former.addresses)) {
        return false;
    }
    m_address = m_endpoints.Requests().GetRemote();
    WarnOfOpenInterfaces(m_address);
    if (!EnterRegistry()) {
        return false;
    }
    OpenState(former);
    AddTimers();
    m_poll.Watch(m_endpoints.ListenersDescriptor(), [this] {
        m_endpoints.LookForListeners();
        return false;
    });
    Watch(dynamic_cast<ZMQMessagePipeBase const&>(m_endpoints.Requests()), &Implementation::ServeRequests);
    Watch(m_endpoints.MemoryEvents(), &Implementation::TakeMemoryEvents);
    LOG_I("Server '%s' takes requests at %s", m_options.name.c_str(), m_address.ToString().c_str());
    return true;
}

void VirtualDeviceServer::Implementation::Watch(ZMQMessagePipeBase const& pipe,
                                                bool (Implementation::*serve)()) {
    m_poll.Watch(DescriptorOf(pipe), [this, serve] { return (this->*serve)(); });
}

bool VirtualDeviceServer::Implementation::CheckOptions() const {
    if (!DirectoryExists(m_options.dataDirectory)) {
        LOG_E("The data directory '%s' does not exist", m_options.dataDirectory.c_str());
        return false;
    }
    if (!FileExists(EnsureDirectoryPath(m_options.dataDirectory) + "ShimMultiDeviceManifest.json")) {
        LOG_W("There is no ShimMultiDeviceManifest.json in '%s': shims will find no device of theirs",
              m_options.dataDirectory.c_str());
    }
    if (m_options.heartbeatPeriod.count() < 1 || m_options.heartbeatPeriod > milliseconds(1000)) {
        LOG_E("The heartbeat period must be 1 to 1000 ms");
        return false;
    }
    return true;
}

bool VirtualDeviceServer::Implementation::EnterRegistry() {
    ServerDescriptor descriptor;
    descriptor.name = m_options.name;
    descriptor.address = m_address;
    descriptor.protocol = descriptor.minimumProtocol = m_options.protocolVersion;
    descriptor.pid = ::getpid();
    descriptor.heartbeatAddress = m_endpoints.Addresses().heartbeat;
    descriptor.memoryEventAddress = m_endpoints.Addresses().memoryEvents;
    return m_registryEntry.Enter(descriptor);
}

void VirtualDeviceServer::Implementation::OpenState(JournalContent const& former) {
    auto const publish = [this](google::protobuf::MessageLite const& event) { m_endpoints.Publish(event); };
    m_state = std::make_unique<ServerState>(publish, former.memory);
    m_state->pruneAfter = m_options.pruneAfter;
    m_channelData = std::make_unique<ChannelDataStore>(
        publish, [this](std::string_view name) { return m_state->Channels().Contains(name); });
    m_sharedMemory = std::make_unique<SharedMemoryStore>(m_address, m_options.name, publish);
    OpenListeners();
    m_commands = std::make_unique<DeviceCommands>(m_endpoints.Provider(), m_poll);
    m_processes = std::make_unique<ApplicationProcesses>(
        m_options.launchDirectory, m_address.ToString(), m_poll,
        [this](std::int64_t id, std::string const& how) { m_state->EndApplicationsOf(id, how); });
    m_remotes = std::make_unique<RemoteDevices>(
        *m_endpoints.Provider().GetDeviceHandler(), *m_endpoints.Provider().GetContext(),
        RemoteDevices::Settings{.serverName = m_options.name,
                                .serverPort = std::max(m_address.ExtractPort(), 0),
                                .minimumLevel = m_options.minimumHeadsetLevel});
    ServeGeneralRequests(m_requests, *this);
    ServeDeviceRequests(m_requests, *m_state, *this);
    ServeChannelRequests(m_requests, *m_state);
    ServeApplicationRequests(m_requests, *m_state, *this);
    ServeLaunchRequests(m_requests, *m_state, *this);
    ServeRemoteRequests(m_requests, *this);
    ServeLogRequests(m_requests);
    ServeStatsRequests(m_requests, *m_state, *this);
    ServePropertyRequests(m_requests, *m_state, *this);
    ServeChannelDataRequests(m_requests, *m_channelData, *this);
    ServeSharedMemoryRequests(m_requests, *m_sharedMemory, *this);
    m_journal->Write({.memory = m_state->Memory(), .addresses = m_endpoints.Addresses()});
}

void VirtualDeviceServer::Implementation::OpenListeners() {
    // Addresses on this server's place: those of the devices are derived from it.
    m_listeners = std::make_unique<DeviceListeners>(
        m_endpoints.Provider(), m_address, m_poll,
        [this](std::int32_t id) { m_state->Heard(id, Timers::Clock::now()); },
        [this](EventHeader const& parsed, zmq::message_t& header, zmq::message_t& body) {
            m_channelData->Keep(parsed, header, body);
            m_endpoints.Broadcast(header, body);
        });
}

void VirtualDeviceServer::Implementation::AddTimers() {
    m_lastTick = m_lastPruning = Timers::Clock::now();
    m_timers.Add(milliseconds(0), [this](TimePoint) {
        m_endpoints.PublishHeartbeat();
        return m_options.heartbeatPeriod;
    });
    m_timers.Add(kHelloPeriod, [this](TimePoint) {
        m_endpoints.PublishHello();
        return kHelloPeriod;
    });
    m_timers.Add(kTick, [this](TimePoint now) { return Tick(now); });
    // At the time of the first announcement: before, nobody has had the time to listen.
    m_timers.Add(kAnnouncements.front(), [this](TimePoint) { return AnnounceFormerDevices(); });
}

void VirtualDeviceServer::Implementation::Run() {
    while (true) {
        TimePoint now = Timers::Clock::now();
        m_poll.WaitAndServe(m_timers.UntilNext(now));
        now = Timers::Clock::now();
        m_timers.RunDue(now);
        NoteChanges();
        if (m_stopRequests > 0 && !m_stopping) {
            BeginStop();
        }
        if (IsDone(now)) {
            break;
        }
    }
    m_remotes.reset();
    m_commands.reset();
    m_listeners.reset();
    m_sharedMemory.reset();
    m_endpoints.Close();
    LOG_I("Server '%s' has stopped", m_options.name.c_str());
}

bool VirtualDeviceServer::Implementation::ServeRequests() {
    AMessagePipeRequestReply& pipe = m_endpoints.Requests();
    for (int i = 0; i < kRequestBatch; ++i) {
        bool timedOut = false;
        std::unique_ptr<AMessage> const message(pipe.ReceiveNext(milliseconds(0), &timedOut));
        if (message != nullptr) {
            AnswerRequest(*message, pipe.DrainExtraFrames());
        } else if (pipe.OwesAnswerToMalformed()) {
            Reply(*GeneralError("the request has too few frames"));
        } else {
            return false;
        }
    }
    return true;
}

bool VirtualDeviceServer::Implementation::TakeMemoryEvents() {
    ZMQMessagePipeEventListener& pipe = m_endpoints.MemoryEvents();
    for (int i = 0; i < kRequestBatch; ++i) {
        bool timedOut = false;
        std::unique_ptr<AMessage> const message(pipe.ReceiveNext(milliseconds(0), &timedOut));
        if (timedOut) {
            return false;
        }
        vq::vds::SharedMemoryModifiedEvent event;
        if (pipe.GetContext()->DecodeMessage(message.get(), event)) {
            m_sharedMemory->NoteWrite(event);
        }
    }
    return true;
}

void VirtualDeviceServer::Implementation::ResendLatestSamples() {
    m_channelData->ForEachLatest(
        [this](zmq::message_t& header, zmq::message_t& body) { m_endpoints.Broadcast(header, body); });
}

void VirtualDeviceServer::Implementation::AnswerRequest(AMessage const& message, bool malformed) {
    AMessageContext* const context = m_endpoints.Requests().GetContext();
    Answer const answer =
        malformed ? GeneralError("the request has too many frames")
                  : m_requests.Handle(message.Type(), [&](google::protobuf::MessageLite& request) {
                        return context->DecodeMessage(&message, request);
                    });
    // On disk before the client knows: an id that was given out must not be given out again after a crash.
    NoteChanges();
    if (IsLogged(LogLevel::Verbose)) {
        LOG_V("Answering %s with %s", message.Type().c_str(), answer->GetTypeName().c_str());
    }
    Reply(*answer);
}

void VirtualDeviceServer::Implementation::Reply(google::protobuf::MessageLite const& answer) {
    AMessagePipeRequestReply* const pipe = &m_endpoints.Requests();
    constexpr milliseconds kNoLimit = milliseconds::max();
    if (!MessageUtils::Send(pipe, answer, kNoLimit, nullptr)) {
        // The request must be answered by something, or the socket takes no other.
        MessageUtils::SendError<vq::vds::Error>(pipe, "the server could not answer");
    }
}

void VirtualDeviceServer::Implementation::NoteChanges() {
    if (m_state->MemoryRevision() == m_noted) {
        return;
    }
    m_noted = m_state->MemoryRevision();
    m_journal->Write({.memory = m_state->Memory(), .addresses = m_endpoints.Addresses()});
    m_listeners->RetainOnly([this](std::int32_t id) { return m_state->Devices().Find(id) != nullptr; });
}

milliseconds VirtualDeviceServer::Implementation::AnnounceFormerDevices() {
    constexpr milliseconds kNever = std::chrono::hours(24);
    if (m_announcements == 0) {
        vq::vds::ServerStartedEvent event;
        event.set_text("server '" + m_options.name + "' has started");
        m_endpoints.Publish(event);
    }
    if (m_announcements == kAnnouncements.size()) {
        return kNever;
    }
    m_state->AnnounceFormerDevices();
    milliseconds const at = kAnnouncements[m_announcements];
    ++m_announcements;
    if (m_announcements == kAnnouncements.size() || !m_state->HasFormerDevices()) {
        m_announcements = kAnnouncements.size();
        m_state->ForgetFormerDevices();
        return kNever;
    }
    return kAnnouncements[m_announcements] - at;
}

milliseconds VirtualDeviceServer::Implementation::Tick(TimePoint now) {
    m_listeners->ConnectNew();
    m_commands->DropLate(now);
    m_processes->Tick(now);
    m_channelData->DropUnregistered();
    if (now - m_lastTick > kTick + kStandstill) {
        LOG_W("The server stood still for %lld ms",
              static_cast<long long>(std::chrono::duration_cast<milliseconds>(now - m_lastTick).count()));
        m_state->MarkAllHeard(now);
    }
    m_lastTick = now;
    m_state->AnnounceToNewListener(m_endpoints.ListenersChanged(), now);
    if (now - m_lastPruning >= m_state->pruneInterval) {
        m_lastPruning = now;
        m_state->PruneSilent(now);
    }
    return kTick;
}

void VirtualDeviceServer::Implementation::RequestStop() {
    std::uint64_t const one = 1;
    int const error = errno;
    static_cast<void>(!::write(m_stopEvent.Get(), &one, sizeof one));
    errno = error;
}

void VirtualDeviceServer::Implementation::StopWhenReadable(int descriptor) {
    m_poll.Watch(descriptor, [this, descriptor] {
        std::array<char, 256> buffer;
        if (::read(descriptor, buffer.data(), buffer.size()) <= 0) {
            return false;
        }
        Stop();
        return true;
    });
}

void VirtualDeviceServer::Implementation::BeginStop() {
    m_stopping = true;
    m_stopDeadline = Timers::Clock::now() + m_options.stopGrace;
    m_registryEntry.Remove();
    m_remotes->Stop();
    vq::vds::ServerStoppingEvent event;
    event.set_text("server '" + m_options.name + "' is stopping");
    m_endpoints.Publish(event);
    // The event may miss a device that has just come.
    for (auto const& [id, device] : m_state->Devices().All()) {
        m_commands->Send(device, vq::sd::NotifyServerStopping(), m_options.stopGrace);
    }
    m_timers.Add(m_options.stopGrace, [](TimePoint) { return milliseconds(100); });
}

bool VirtualDeviceServer::Implementation::IsDone(TimePoint now) const {
    return m_stopping && (m_stopRequests > 1 || now >= m_stopDeadline || m_state->Devices().All().empty());
}

VirtualDeviceServer::VirtualDeviceServer(ServerOptions options)
    : m_implementation(std::make_unique<Implementation>(std::move(options))) {}

VirtualDeviceServer::~VirtualDeviceServer() = default;

bool VirtualDeviceServer::Start() {
    return m_implementation->Start();
}

void VirtualDeviceServer::Run() {
    m_implementation->Run();
}

void VirtualDeviceServer::RequestStop() {
    m_implementation->RequestStop();
}

void VirtualDeviceServer::StopWhenReadable(int descriptor) {
    m_implementation->StopWhenReadable(descriptor);
}

MessageAddress const& VirtualDeviceServer::GetAddress() const {
    return m_implementation->GetAddress();
}

std::string const& VirtualDeviceServer::GetName() const {
    return m_implementation->GetName();
}

}  // namespace vq::server
