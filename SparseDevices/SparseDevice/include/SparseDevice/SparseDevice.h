#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ChannelTypes.pb.h"
#include "DataTypes/ConfigurationState.h"
#include "SparseDevice/ASparseDevice.h"
#include "SparseDevice/EventSender.h"
#include "SparseDevice/ManifestProcessor.h"
#include "SparseDevice/StatsCollector.h"

class AMessage;
class AMessagePipeEventListener;
class AMessagePipeEventSender;
class AMessagePipeProvider;
class ASparseDeviceCommandHandler;
class Channel;
class ChannelFactory;
class ChannelObserver;
class ChannelProducer;
class EventDispatcher;
class SparseDeviceApplication;

namespace google::protobuf {
class MessageLite;
}
namespace vq::vds {
class GetChannelMappings_Reply;
class GetDeviceInfo_Reply;
class GetDeviceInfos_Reply;
}  // namespace vq::vds
namespace vq::sd {
enum UserMessageCategory : int;
}

/// A client of the Virtual Device Server: registers itself and its channels, follows the server's events,
/// answers commands on a request pipe of its own, and comes back by itself when the server has dropped it.
///
/// One thread makes every call and uses every pipe, except where an operation says "any thread". An exchange
/// with the server blocks: 15 s to send and 15 s for the answer, if nothing else is said. An exchange on a
/// pipe that has been disposed ends the process.
class SparseDevice : public ASparseDevice {
public:
    enum class State : std::int32_t {
        Uninitialized = 0,  ///< before Init, and after Uninit
        Registered = 1,     ///< the server knows the device
        Initialized = 2,    ///< channels registered, readiness reported
        Pruned = 3,         ///< the server has dropped the device; it registers anew by itself
    };

    explicit SparseDevice(SparseDeviceType type);
    /// Ends the device's life with the server by SparseDevice::Uninit. A subclass with an Uninit of its own
    /// calls that in its own destructor.
    ~SparseDevice() override;

    /// One step: waits for the device's pace, then serves channels, commands and events.
    /// @return false when something in it failed; that does not stop the device.
    bool Update() override;
    void UpdateObserverChannelMapping() override;
    void ClearChannels() override;

    /// Reaches the server, registers the device and makes its channels. Runs again, with the same manifest,
    /// each time the device has to come back to the server; the live configuration then stays as it is.
    /// @param data         copied.
    /// @param application  not owned, may be null; must outlive the device.
    /// @return false when the server cannot be reached or refuses (logged).
    virtual bool Init(ManifestProcessor::ManifestData const& data, SparseDeviceApplication* application);
    /// Serves the commands that wait, up to the first that cannot be served; what still waits after a second
    /// of it, in the next step.
    virtual bool ProcessMessages();
    /// Hands the server's events that wait to the dispatcher, for a second at most likewise.
    virtual bool ProcessEvents();
    /// Queues an event for the server; it goes out in the next step. Any thread, but not from a signal
    /// handler and not with a lock held that the device's thread may want: an exchange under way makes the
    /// caller wait.
    /// @param event  complete, or it is logged and dropped; copied.
    virtual void QueueSparseDeviceEvent(google::protobuf::MessageLite const& event);
    /// A setting has changed.
    virtual void OnConfigurationSettingsChanged();
    /// Once after the application has started all its devices, and again after each return to the server.
    virtual bool OnPostInit();
    /// The device's own work of a step.
    virtual bool OnUpdate();
    /// The application's thread calls these two. False is logged there.
    virtual bool OnSuspend();
    virtual bool OnResume();
    /// Leaves the server (unless it has dropped the device already) and ends channels and dispatcher.
    virtual void Uninit();
    /// Another device has left the server.
    virtual void OnDeviceUnregisteredEvent(std::string const& deviceName);

    /// Registers the channels that Init made and reports the device as ready.
    /// @return false when the server does not take the channels; whether it takes the report does not count.
    bool FinishInit();

    /// Asks to be ended; the next step leaves the server. Any thread.
    /// @param wholeApplication  asks the same of the application.
    void RequestExit(bool wholeApplication);
    bool IsRequestingExit() const { return m_requestExit; }
    /// Wakes the application's loop. Any thread.
    void TriggerStateChanged();
    /// The server is about to go: ends the device and its application, without waiting for the server.
    bool OnServerStopping();

    /// @param hz  steps a second at most; below 1 counts as 1.
    void SetUpdateHertzMaximum(float hz);
    /// Any thread.
    float GetUpdateHertzMaximum() const { return m_updateHertz; }

    State GetState() const { return m_state; }
    /// Makes the next step call OnPostInit. Any thread.
    void SetPostInitPending() { m_postInitPending = true; }
    bool IsSuspended() const { return m_suspended; }
    bool IsServerStopping() const { return m_serverStopping; }
    bool IsAutoStatsEnabled() const { return m_autoStats; }
    void EnableAutoStats(bool enable) { m_autoStats = enable; }
    void EnableHelloDataEvents(bool enable) { m_sendHelloDataEvents = enable; }
    std::uint64_t EventsProcessed() const { return m_eventsProcessed; }
    VirtualDeviceStats::StatsCollector& Stats() { return m_stats; }
    /// The live configuration. A change through SetValue is published as an event.
    ConfigurationState& Configuration() { return m_configurationState; }
    ManifestProcessor::ManifestData const& Manifest() const { return m_manifest; }
    SparseDeviceApplication* Application() const { return m_application; }
    std::map<std::string, std::unique_ptr<ChannelProducer>> const& Producers() const { return m_producers; }
    std::map<std::string, std::unique_ptr<ChannelObserver>> const& Observers() const { return m_observers; }

    /// The pipes, owned by the pipe provider; null before the first Init.
    AMessagePipeRequestReply* ServerPipe() const { return m_serverPipe; }
    AMessagePipeEventListener* ServerEventListener() const { return m_serverEventListener; }
    AMessagePipeEventListener* DataEventListener() const { return m_dataEventListener; }
    AMessagePipeEventSender* DataEventSender() const { return m_dataEventSender; }
    /// Replaced at each Init, deleted by Uninit; null in between. Handlers are registered anew after each
    /// Init, and must not call Uninit.
    EventDispatcher* Dispatcher() const { return m_eventDispatcher.get(); }

    /// A producer or observer of that channel: the one registered, or a new one, registered at once.
    /// @param dataType  display text of the data type; without it the channel must be known to the server or
    ///                  the manifest.
    /// @return owned by the device; null when the channel is not known or of another type (logged).
    ChannelProducer* MakeProducerChannel(std::string const& name);
    ChannelProducer* MakeProducerChannel(std::string const& name, std::string const& dataType);
    ChannelObserver* MakeObserverChannel(std::string const& name);
    ChannelObserver* MakeObserverChannel(std::string const& name, std::string const& dataType);
    /// The same, with the channel name taken from a setting.
    ChannelProducer* MakeProducerChannelFromProperty(std::string const& property);
    ChannelProducer* MakeProducerChannelFromProperty(std::string const& property,
                                                     std::string const& dataType);
    ChannelObserver* MakeObserverChannelFromProperty(std::string const& property);
    ChannelObserver* MakeObserverChannelFromProperty(std::string const& property,
                                                     std::string const& dataType);

    /// Takes a channel over and, when the device is initialised, tells the server.
    /// @param channel  taken over; deleted when another channel has its name. Null, and a server that refuses
    ///                 the channel, end the process.
    /// @return the channel that is registered under that name.
    ChannelProducer* RegisterChannel(ChannelProducer* channel);
    ChannelObserver* RegisterChannel(ChannelObserver* channel);
    /// Deletes a channel, registered or not, and when the device is initialised tells the server.
    /// @return whether it was registered.
    bool UnregisterChannel(ChannelProducer* channel);
    bool UnregisterChannel(ChannelObserver* channel);

    /// Fetches the server's list of channels into the channel factory.
    /// @return false before Init, and when the server does not give it (logged).
    bool UpdateKnownChannels();

    /// The device that produces a channel, by the server's mapping: the first one, or the first of
    /// `priorities` that does, or the last other one. Up to 4 attempts of 2 s to send and 2 s to receive.
    /// @return empty when there is none.
    std::string GetChannelProviderDeviceName(std::string const& channel);
    std::string GetChannelProviderDeviceNameByPriority(std::string const& channel,
                                                       std::vector<std::string> const& priorities);
    /// @param priorities  may be empty.
    /// @param node        distinguishes several clients of one device in this process; may be empty.
    /// @return a client pipe owned by the pipe provider, the same one for the same device and node; null when
    ///         there is no producer or no address.
    AMessagePipeRequestReply* GetChannelProviderDeviceRequestReplyPipe(
        std::string const& channel, std::vector<std::string> const& priorities, std::string const& node);
    AMessagePipeRequestReply* GetDeviceRequestReplyPipe(std::string const& device, std::string const& node);
    /// @param address  text form.
    AMessagePipeRequestReply* GetDeviceRequestReplyPipeFromAddress(std::string const& device,
                                                                   std::string const& address,
                                                                   std::string const& node);

    /// What the server knows of one device, or of all.
    /// @param reply  filled; fresh.
    /// @return false when the server does not answer or does not know the device (logged).
    bool GetDeviceInfo(std::string const& device, vq::vds::GetDeviceInfo_Reply& reply);
    bool GetDeviceInfos(vq::vds::GetDeviceInfos_Reply& reply);
    /// Names of devices and channels; none, with an error line, when the server does not answer.
    std::vector<std::string> FindDevicesOfType(SparseDeviceType type);
    /// @param type  display text of a data type.
    /// @param flag  passed on to the server.
    std::vector<std::string> FindChannelsOfType(std::string const& type, bool flag);
    /// @param type  display text of a data type; empty for any.
    std::vector<std::string> FindDeviceChannels(std::string const& device, vq::ch::ChannelRole role,
                                                std::string const& type);

    /// Asks the server to map channels to this device.
    /// @return false when the server does not answer or refuses one of them (logged).
    bool AddChannelProducerFromSelf(std::string const& channel);
    bool AddChannelProducersFromSelf(std::vector<std::string> const& channels);

    /// Sends the queued events; what fails is dropped too.
    /// @return false when one of them failed (logged).
    bool SendSparseDeviceEvents();
    /// Shows or takes back a message to the user of the machine; goes out at once, with what is queued before
    /// it.
    /// @param category  a valid value, or the process ends.
    /// @param a, b      passed on as they are.
    /// @return as SendSparseDeviceEvents.
    bool SendSparseDeviceUserMessage(vq::sd::UserMessageCategory category, std::string const& text,
                                     std::uint64_t a, std::uint64_t b);
    bool CancelSparseDeviceUserMessage(std::uint64_t id);
    /// Sends the statistics, if the server wants them.
    void ConditionallySendStatsUpdate();

protected:
    /// Adds a group of commands. Call it in the subclass's constructor or before FinishInit of it: commands
    /// enter the device's map when it registers with the server.
    /// @param key  not 0, which is the default handler's, unless to replace that one.
    void AddCommandHandler(int key, std::unique_ptr<ASparseDeviceCommandHandler> handler);

    /// Where subclasses publish their events.
    std::shared_ptr<IEventSender> const& EventSender() const { return m_eventSender; }
    AMessagePipeProvider* PipeProvider() const;

private:
    using TimePoint = std::chrono::steady_clock::time_point;

    void SetIdentity(ManifestProcessor::ManifestData const& data, SparseDeviceApplication* application);
    void AdoptConfiguration(ManifestProcessor::ManifestData const& data);
    void MakeManifestChannels();
    bool SetupComms();
    bool OpenEventListeners(AMessagePipeProvider* provider);
    bool OpenDevicePipe(AMessagePipeProvider* provider);
    AMessagePipeEventListener* OpenEventListener(AMessagePipeProvider* provider, std::string const& address);
    void MakeChannelFactory();
    void SetupCommandHandlers();
    void SetupDispatcher();

    TimePoint Pace();
    bool Reinitialize();
    bool UpdateInitialized(TimePoint now);
    bool UpdateProducers();
    bool SendHelloEvents();
    bool DistributeEvents();
    void SortArrivals();
    void DropUnconsumed();
    bool DispatchEvents();
    bool ServeRequest(AMessage* message);
    bool RefuseRequest(std::string const& text);
    bool OnDeviceUnregistered(AMessage* message);
    void OnAnyPropertyChangedEvent(std::string const& name);

    template <class C>
    using ChannelMap = std::map<std::string, std::unique_ptr<C>>;
    template <class C>
    C* MakeChannel(ChannelMap<C> const& channels, std::string const& name);
    template <class C>
    C* MakeChannel(ChannelMap<C> const& channels, std::string const& name, std::string const& dataType);
    template <class C>
    C* EnterChannel(ChannelMap<C>& channels, C* channel);
    template <class C>
    bool RemoveChannel(ChannelMap<C>& channels, C* channel);
    std::string const& StringSetting(std::string const& property);

    bool AutomapProducers() const;
    bool SendRegisterDeviceMessage(AMessagePipeProvider* provider);
    bool OpenDataEventSender(AMessagePipeProvider* provider);
    bool SendRegisterDeviceChannelsMessage(bool automap);
    bool SendRegisterDeviceChannelMessage(Channel* channel, bool automap);
    bool SendUnregisterDeviceChannelMessage(Channel* channel);
    bool SendReportDeviceInitializedMessage();
    void SendUnregisterDeviceMessage();
    bool GetChannelMappings(std::string const& channel, vq::vds::GetChannelMappings_Reply& mappings);

    /// Owns the descriptors of the channels, so it goes after them.
    std::unique_ptr<ChannelFactory> m_channelFactory;
    ChannelMap<ChannelProducer> m_producers;
    ChannelMap<ChannelObserver> m_observers;
    ManifestProcessor::ManifestData m_manifest;
    ConfigurationState m_configurationState;
    ManifestProcessor::ApplicationManifestData m_applicationData;
    AMessagePipeRequestReply* m_serverPipe = nullptr;
    AMessagePipeEventListener* m_serverEventListener = nullptr;
    AMessagePipeEventListener* m_dataEventListener = nullptr;
    AMessagePipeEventSender* m_dataEventSender = nullptr;
    std::uint64_t m_eventsProcessed = 0;
    std::unique_ptr<EventDispatcher> m_eventDispatcher;
    std::unordered_map<std::string, int> m_commandMap;
    std::map<int, std::unique_ptr<ASparseDeviceCommandHandler>> m_commandHandlers;
    VirtualDeviceStats::StatsCollector m_stats;
    /// Type name and serialised bytes.
    std::vector<std::pair<std::string, std::string>> m_pendingEvents;
    std::mutex m_pendingEventsMutex;
    std::atomic<float> m_updateHertz{10.0f};
    TimePoint m_nextUpdate;
    TimePoint m_lastStats;
    TimePoint m_lastHello;
    bool m_autoStats = false;
    bool m_sendHelloDataEvents = true;
    std::atomic<bool> m_suspended{false};
    std::atomic<bool> m_postInitPending{false};
    std::atomic<bool> m_postReinitPending{false};
    std::atomic<bool> m_requestExit{false};
    std::atomic<bool> m_serverStopping{false};
    std::atomic<State> m_state{State::Uninitialized};
    std::shared_ptr<IEventSender> m_eventSender;
    std::atomic<SparseDeviceApplication*> m_application{nullptr};
    /// Set while the device returns to the server by itself.
    bool m_reinitializing = false;
    /// Scratch of a step, kept so that an idle step allocates nothing.
    std::list<AvailableReaderMessage> m_available;
    /// A message of m_available by its channel.
    struct Arrival {
        std::string_view channel;
        std::size_t number;
        std::list<AvailableReaderMessage>::iterator entry;
    };
    std::vector<Arrival> m_arrivals;  // kept for its room
};
