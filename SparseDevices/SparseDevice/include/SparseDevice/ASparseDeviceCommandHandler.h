#pragma once

#include <functional>
#include <map>
#include <string>
#include <unordered_map>

class AMessage;
class AMessagePipeRequestReply;
class SparseDevice;

/// Serves one group of the requests that arrive on a device's own request pipe. Everything runs on the thread
/// that steps the device.
///
/// A subclass enters its commands in SetupCommandMap:
///     AddCommand(commandMap, "vq.sd.MyCommand", [this](AMessage* message) { return OnMyCommand(message); });
/// and joins its device by SparseDevice::AddCommandHandler. A handler function answers on RequestPipe()
/// exactly once and returns whether the answer was sent; on false the device tries to answer with an error.
class ASparseDeviceCommandHandler {
public:
    using Handler = std::function<bool(AMessage*)>;

    ASparseDeviceCommandHandler() = default;
    virtual ~ASparseDeviceCommandHandler() = default;
    ASparseDeviceCommandHandler(ASparseDeviceCommandHandler const&) = delete;
    ASparseDeviceCommandHandler& operator=(ASparseDeviceCommandHandler const&) = delete;

    /// @param device  the owner; not owned.
    virtual void SetDevice(SparseDevice* device);

    /// Called each time the device has registered with the server, after SetRequestPipe. Enters the type name
    /// of every command that this handler serves, with this handler's key.
    /// @return true; the device does not look at it.
    virtual bool SetupCommandMap(std::unordered_map<std::string, int>& commandMap) = 0;

    /// For shims whose connection ends; nothing here calls it.
    virtual void OnShimShutdown();

    /// Runs the handler function of the message's type; an unknown type is answered with an error.
    /// @param message  not owned, not null.
    /// @return whether an answer was sent.
    bool ProcessCommand(AMessage* message);

    /// Answers that the command exists but does nothing here.
    /// @param command  its name, for the text of the answer.
    bool SendNotImplemented(std::string const& command);

    SparseDevice* Device() const { return m_device; }
    AMessagePipeRequestReply* RequestPipe() const { return m_requestPipe; }

    /// @param pipe  the device's own request pipe; not owned. Replaced at each registration.
    void SetRequestPipe(AMessagePipeRequestReply* pipe) { m_requestPipe = pipe; }
    /// The key under which the device holds this handler; set by the device.
    void SetKey(int key) { m_key = key; }

protected:
    /// Enters one command, in place of an earlier one of that type.
    void AddCommand(std::unordered_map<std::string, int>& commandMap, std::string const& type,
                    Handler handler);

private:
    std::map<std::string, Handler> m_handlers;
    AMessagePipeRequestReply* m_requestPipe = nullptr;
    SparseDevice* m_device = nullptr;
    int m_key = 0;
};
