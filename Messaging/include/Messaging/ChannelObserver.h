#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Messaging/AMessage.h"
#include "Messaging/AMessageContext.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/Channel.h"
#include "Messaging/ChannelData.h"
#include "Messaging/MessageTypeName.h"
#include "Messaging/ObserverDataQueue.h"

/// The receiving end of a channel: decodes the events that its device hands it into samples, and keeps the
/// newest ones for the application. Threads: the device's thread hands in events; pop, clear and resize on
/// any thread.
class ChannelObserver : public Channel {
public:
    using DataQueue = ObserverDataQueueBase<CircularBufferDataQueue>;

    /// Subscribes to the hellos of producers.
    /// @param context, listener  not owned, outlive the channel; the listener is not null.
    ChannelObserver(AMessageContext* context, AMessagePipeEventListener* listener);

    /// Whether events of this type name are for this observer.
    virtual bool HandlesWireMessageType(std::string const& type) const;
    /// Takes one event in.
    /// @param message  not owned.
    /// @return false, without a line, when it is of another type or does not decode.
    virtual bool HandleWireMessage(AChannelMessage* message);

    /// Takes events in, in order; always true.
    /// @param messages  the caller goes on owning them.
    bool UpdateFromEvents(std::vector<AChannelMessage*> const& messages);

    /// The oldest sample, removed; null if there is none.
    std::shared_ptr<IData> PopOldestData() { return m_dataQueue.PopOldestData(); }
    /// The newest sample, removed; null if there is none. Older ones stay.
    std::shared_ptr<IData> PopNewestData() { return m_dataQueue.PopNewestData(); }
    /// Appends all samples, oldest first, and empties the queue; true if there was one.
    bool PopAllData(std::vector<std::shared_ptr<IData>>& list) { return m_dataQueue.PopAllData(list); }
    void ClearData() { m_dataQueue.ClearData(); }
    /// @param capacity  samples that are kept, 20 at first. 0 and the present one are ignored (logged).
    void ResizeDataQueueCapacity(std::size_t capacity) { m_dataQueue.ResizeCapacity(capacity); }
    /// When the queue is full the oldest sample gives way.
    void PushNewData(std::shared_ptr<IData> sample) { m_dataQueue.PushNewData(std::move(sample)); }
    /// Not available: says so in the log.
    void RequestInitialDataState();

    /// Where its events come from.
    AMessagePipeEventListener* GetListenerPipe() const { return m_listener; }

protected:
    AMessagePipeEventListener* m_listener;
    AMessageContext* m_context;

private:
    DataQueue m_dataQueue;
};

/// @tparam T  wire message.
/// @tparam D  data class, built from a T.
template <class T, class D>
class ChannelObserverTemplate : public ChannelObserver {
public:
    /// @param descriptor  not owned, outlives the channel.
    ChannelObserverTemplate(AMessageContext* context, AMessagePipeEventListener* listener,
                            ChannelDescriptor* descriptor)
        : ChannelObserver(context, listener) {
        SetDescriptor(descriptor);
        listener->ListenTo(MessageTypeName(T::default_instance()));
    }

    bool HandlesWireMessageType(std::string const& type) const override {
        return type == MessageTypeName(T::default_instance()) ||
               ChannelObserver::HandlesWireMessageType(type);
    }

    bool HandleWireMessage(AChannelMessage* message) override {
        std::shared_ptr<IData> sample = Decode(message);
        if (sample == nullptr) {
            return ChannelObserver::HandleWireMessage(message);
        }
        PushNewData(std::move(sample));
        return true;
    }

private:
    std::shared_ptr<IData> Decode(AChannelMessage* message) {
        if constexpr (std::is_same_v<D, ProtoMessageDataTemplate<T>>) {
            return D::Make([this, message](T& event) { return m_context->DecodeMessage(message, event); });
        } else {
            T event;
            return m_context->DecodeMessage(message, event) ? std::make_shared<D>(std::move(event)) : nullptr;
        }
    }
};
