#pragma once

#include <google/protobuf/message_lite.h>

#include <algorithm>
#include <memory>
#include <string>
#include <typeinfo>

#include "Messaging/Channel.h"
#include "Messaging/ChannelData.h"
#include "Messaging/MessageTypeName.h"

class AMessageContext;
class AMessagePipeEventSender;

/// The publishing end of a channel: setting a sample makes it the channel's current value and sends it at
/// once, whether or not the channel is active. There is no queue; a sample that cannot be sent is lost to the
/// network. Threads: one at a time, the one that owns the pipe.
class ChannelProducer : public Channel {
public:
    /// @param context  not owned, outlives the channel.
    explicit ChannelProducer(AMessageContext* context)
        : Channel(vq::ch::ChannelRole_Producer), m_context(context) {}

    /// A hook for the device's update pass.
    virtual bool Update() { return true; }
    /// Makes the sample the current one and sends it. Without a pipe, or without a sample, the process ends.
    virtual void SetData(std::shared_ptr<IData> sample);
    /// Makes a sample of serialized bytes and sets it. Bytes that do not parse give whatever fields could be
    /// read.
    virtual bool SetDataFromMessageArray(char const* bytes, int length) = 0;
    /// Makes a sample of a copy of the message and sets it.
    /// @return false, with an error line, when the message is not of the channel's type; true says nothing of
    ///         the send.
    virtual bool SetDataFromMessage(google::protobuf::MessageLite const* message) = 0;
    virtual void OnProducerActivated() { m_active = true; }
    virtual void OnProducerDeactivated() { m_active = false; }

    /// @param pipe  not owned, outlives the channel.
    void SetDataEventPipe(AMessagePipeEventSender* pipe) { m_eventPipe = pipe; }
    /// Sends the current sample. A failure is logged; nothing is repeated.
    void SendDataChangedMessage();
    /// Tells listeners that the producer is there.
    bool SendHelloEvent();

protected:
    /// True when the message is of that type; otherwise logged.
    static bool CheckMessageType(google::protobuf::MessageLite const* message, std::string const& expected);

    AMessagePipeEventSender* m_eventPipe = nullptr;
    AMessageContext* m_context;
    std::shared_ptr<IData> m_currentData;
};

/// @tparam T  wire message.
/// @tparam D  data class, built from a T.
template <class T, class D>
class ChannelProducerTemplate : public ChannelProducer {
public:
    /// @param descriptor  not owned, outlives the channel.
    ChannelProducerTemplate(AMessageContext* context, ChannelDescriptor* descriptor)
        : ChannelProducer(context) {
        SetDescriptor(descriptor);
    }

    bool Update() override { return ChannelProducer::Update(); }

    bool SetDataFromMessageArray(char const* bytes, int length) override {
        T message;
        // What did not parse, or lacks a required field, is still set: the send tells.
        static_cast<void>(message.ParsePartialFromArray(bytes, std::max(length, 0)));
        return SetDataFromMessage(&message);
    }

    bool SetDataFromMessage(google::protobuf::MessageLite const* message) override {
        // The names only where the classes differ or stem from different binaries.
        bool const isT = message != nullptr && &typeid(*message) == &typeid(T);
        if (!isT && !CheckMessageType(message, MessageTypeName(T::default_instance()))) {
            return false;
        }
        SetData(std::make_shared<D>(static_cast<T const&>(*message)));
        return true;
    }
};
