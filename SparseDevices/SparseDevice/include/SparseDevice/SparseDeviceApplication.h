#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "SparseDevice/ManifestProcessor.h"

class AMessageContext;
class AMessagePipeEventListener;
class AMessagePipeProvider;
class AMessagePipeRequestReply;
class SparseDevice;
class SparseDeviceMuleBase;

/// What the command line of a stand-alone program may override.
struct SparseDeviceCLIOptions {
    std::string manifestPath;
    std::string applicationLabel;
    std::string applicationName;
    std::string deviceName;
    /// Forbids automatic mapping of the devices' channels; counts together with an application label.
    bool disableAutomap = false;
    /// The options asked for help or the version, and that has been printed.
    bool exitNow = false;
};

/// The owner of the devices of a process. As a stand-alone program: registers with the server, starts its
/// devices, runs a loop that watches the server's heartbeat, reads commands from standard input, and ends in
/// good order on a signal. A subclass says by RunDevices which devices there are.
///
/// Threads: Run and all virtual operations but the three of the input thread belong to the main thread. The
/// operations that ask for exit or set a flag may be called from any thread.
class SparseDeviceApplication {
public:
    /// Opens the file log and enters the process-wide list of applications.
    SparseDeviceApplication();
    /// Leaves the list and, unless the main loop has done so, stops the devices.
    virtual ~SparseDeviceApplication();
    SparseDeviceApplication(SparseDeviceApplication const&) = delete;
    SparseDeviceApplication& operator=(SparseDeviceApplication const&) = delete;

    virtual std::string GetVersion() const;
    /// For the program's own command line; nothing here calls it.
    virtual bool ProcessParams(int argc, char const* const* argv);
    /// Starts the devices and adds their mules.
    /// @return false ends the program.
    virtual bool RunDevices() = 0;
    /// Stops each device that asks for it. True when the loop is to end: exit was requested, or no device
    /// runs.
    virtual bool CheckDevicesForShutdown();
    /// Input thread. One line of standard input; false for a command that nobody knows.
    virtual bool ProcessInputCommand(std::string const& line);
    /// Input thread.
    virtual void PrintInputCommandsList();
    /// Makes the application known to the server and takes the id that it gives. Waits up to 5 s to send and
    /// 5 s to receive.
    /// @return false when there is no pipe, no answer or no id, or the server refuses (logged).
    virtual bool RegisterApplication();
    /// Tells the server that the devices run; waits as long.
    /// @return false when there is no pipe or no answer, or the server refuses (logged).
    virtual bool ReportInitialization();
    /// Takes the registration back, waiting up to 1 s to send and 1 s to receive; drops id and pipe in any
    /// case. Always true.
    virtual bool UnregisterApplication();
    /// Starts reading standard input, when there is one to read.
    virtual void StartInputThread();
    /// Input thread. False ends all applications.
    virtual bool OnInputThreadStart();
    /// For programs: a device of theirs has started. Nothing here calls it.
    virtual void OnStarted(std::shared_ptr<SparseDevice> device);
    /// Begins to listen to the server's heartbeat. False (logged) ends the program before its loop.
    virtual bool OnInitialization();
    /// Behind the last pass of the main loop, before the devices end.
    virtual bool OnShutdown();
    /// Hand the call to each device that runs; true when all of them said so.
    virtual bool OnSuspend();
    virtual bool OnResume();
    /// Passes of the main loop a second; 1001 and more: without a pause.
    virtual float GetUpdateHz();
    /// One pass of the main loop, its pause included. False is logged and does not end the loop.
    virtual bool OnUpdate();
    /// At least one heartbeat of the server has come since the last pass.
    virtual void OnServerHeartbeat();

    /// The whole program, up to the end of its loop.
    /// @return false when there is no server, or one of the steps before the loop failed (logged).
    bool Run();
    /// The part of Run between registering and unregistering. Installs signal handlers.
    void RunApplication();
    /// Ends input and devices; once.
    void CleanupThreads();
    /// From now on SIGINT, SIGTERM and SIGABRT ask every application to end; a second one kills the process.
    /// With the Terminator on, a process that takes more than 2 s to end after it was asked to is ended with
    /// status 1.
    void HookSignals();
    /// Before HookSignals.
    void SetUseTerminator(bool use) { m_useTerminator = use; }

    /// Any thread, at any time.
    void RequestExit();
    static void RequestAllExit();
    void TriggerStateChanged();
    /// @return whether TriggerStateChanged or RequestExit was called since the last time; true at first.
    bool TakeAndClearStateChanged();
    bool IsExitRequested() const;
    bool IsRunning() const { return m_running; }

    /// Call OnSuspend or OnResume, and log a failure.
    void HandleSuspend();
    void HandleResume();

    /// Adds a device's thread, in RunDevices or before.
    /// @param mule  not owned, not null. It must outlive the application, whose end stops it; a subclass that
    ///              holds it as a member stops it in its own destructor by CleanupThreads.
    void AddDeviceMule(SparseDeviceMuleBase* mule);
    std::vector<SparseDeviceMuleBase*> const& Mules() const { return m_mules; }

    /// The process id until the server has given an id. Any thread.
    std::int32_t GetApplicationId() const { return m_applicationId; }
    ManifestProcessor& GetManifestProcessor() { return m_manifestProcessor; }
    ManifestProcessor const& GetManifestProcessor() const { return m_manifestProcessor; }

    /// Reads the manifest and lets the options override what it says. Ends the process with status 0 when the
    /// options say so.
    /// @param defaultManifest  path to use when the options have none.
    /// @return false when the manifest cannot be read (logged).
    bool HandleCommonSparseDeviceCLIOptions(SparseDeviceCLIOptions const& options,
                                            std::string const& defaultManifest);

    /// The pipe to the server, made when there is none or it has been disposed; null when it cannot be made.
    AMessagePipeRequestReply* GetServerRequestReply();
    /// The context of the server's address and its pipes; owned by the message manager.
    AMessageContext* GetServerMessageContext();
    AMessagePipeProvider* GetMessagePipeProvider();
    /// A client pipe to a device's commands, owned by the pipe provider; null when the server does not know
    /// the device.
    /// @param node  may be empty; the server sees it.
    AMessagePipeRequestReply* GetDeviceRequestReplyPipe(std::string const& device, std::string const& node);
    AMessagePipeRequestReply* GetDeviceRequestReplyPipeFromAddress(std::string const& device,
                                                                   std::string const& address,
                                                                   std::string const& node);

    /// Milliseconds between the last two passes of the main loop.
    std::int64_t MeasuredPeriod() const { return m_measuredPeriod; }

protected:
    void SetApplicationId(std::int32_t id) { m_applicationId = id; }

private:
    struct ExitFlags;
    struct InputGate;

    void EnterList();
    void LeaveList();
    void RunLoop();
    void SleepUntilNextUpdate(float hertz);
    bool DrainHeartbeats();
    bool ForEachDevice(std::function<bool(SparseDevice&)> const& operation);
    static void ProcessInputThread(std::shared_ptr<InputGate> const& gate,
                                   std::shared_ptr<ExitFlags> const& flags);
    static void Terminator(std::shared_ptr<ExitFlags> const& flags, std::string const& name);
    static void OnSignal(int number);
    static void AnnounceSignal();

    std::vector<SparseDeviceMuleBase*> m_mules;
    std::atomic<bool> m_running{false};
    /// Shared with the threads that may outlive the application.
    std::shared_ptr<ExitFlags> m_flags;
    AMessagePipeRequestReply* m_serverPipe = nullptr;
    std::atomic<bool> m_cleanupPending{true};
    std::shared_ptr<InputGate> m_inputGate;
    std::thread m_inputThread;
    ManifestProcessor m_manifestProcessor;
    std::atomic<std::int32_t> m_applicationId;
    bool m_useTerminator = true;
    std::thread m_terminatorThread;
    AMessagePipeEventListener* m_heartbeatListener = nullptr;
    std::chrono::steady_clock::time_point m_lastUpdate;
    std::int64_t m_measuredPeriod = 0;
    std::chrono::steady_clock::time_point m_lastHeartbeat;
    bool m_monitorHeartbeat = false;
};
