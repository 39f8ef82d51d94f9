#include "Logging/Log.h"
#include "Messaging/AMessagePipe.h"
#include "Messaging/ChannelFactory.h"
#include "Messaging/ChannelObserver.h"
#include "Messaging/ChannelProducer.h"
#include "SparseDevice/SparseDevice.h"

// The device's channels: making, registering and ending them.

namespace {

using vq::ch::ChannelRole;

/// What differs between the two kinds of channel.
template <class C>
struct Kind;

template <>
struct Kind<ChannelProducer> {
    static constexpr ChannelRole role = vq::ch::ChannelRole_Producer;
    static constexpr char const* invalidDescriptor =
        "Failed to get producer channel %s, invalid channel descriptor";
    static constexpr char const* nameTaken =
        "Failed to register channel, device already contains a producer channel for %s - deleting new "
        "channel";
    static constexpr char const* registeredTwice =
        "Failed to register channel, device aleady registered producer channel for %s - ignoring second "
        "registration";
};

template <>
struct Kind<ChannelObserver> {
    static constexpr ChannelRole role = vq::ch::ChannelRole_Observer;
    static constexpr char const* invalidDescriptor =
        "Failed to get observer channel %s, invalid channel descriptor";
    static constexpr char const* nameTaken =
        "Failed to register channel, device already contains an observer channel for %s - deleting new "
        "channel";
    static constexpr char const* registeredTwice =
        "Failed to register channel, device already registered observer channel for %s - ignoring second "
        "registration";
};

}  // namespace

template <class C>
C* SparseDevice::MakeChannel(ChannelMap<C> const& channels, std::string const& name) {
    if (auto const found = channels.find(name); found != channels.end()) {
        return found->second.get();
    }
    if (m_channelFactory == nullptr) {
        LOG_E("Failed to make channel %s, need to run Init() first", name.c_str());
        return nullptr;
    }
    Channel* const channel = m_channelFactory->CreateChannel(name, Kind<C>::role);
    return channel == nullptr ? nullptr : RegisterChannel(static_cast<C*>(channel));
}

template <class C>
C* SparseDevice::MakeChannel(ChannelMap<C> const& channels, std::string const& name,
                             std::string const& dataType) {
    ChannelDescriptor const* const descriptor =
        m_channelFactory == nullptr ? nullptr : m_channelFactory->CreateChannelDescriptor(name, dataType, "");
    if (descriptor == nullptr || descriptor->dataType != dataType) {
        LOG_E(Kind<C>::invalidDescriptor, name.c_str());
        return nullptr;
    }
    return MakeChannel(channels, name);
}

template <class C>
C* SparseDevice::EnterChannel(ChannelMap<C>& channels, C* channel) {
    VQ_CHECK(channel != nullptr);
    VQ_CHECK(channel->GetRole() == Kind<C>::role);
    std::unique_ptr<C> owned(channel);
    std::string const& name = channel->GetName();
    std::unique_ptr<C>& slot = channels[name];
    if (slot.get() == channel) {
        static_cast<void>(owned.release());
        LOG_W(Kind<C>::registeredTwice, name.c_str());
        return channel;
    }
    if (slot != nullptr) {
        LOG_E(Kind<C>::nameTaken, name.c_str());
        return slot.get();
    }
    slot = std::move(owned);
    if constexpr (Kind<C>::role == ChannelRole::ChannelRole_Observer) {
        UpdateObserverChannelMapping();
    }
    if (m_state == State::Initialized) {
        bool const registered = SendRegisterDeviceChannelMessage(channel, true);
        VQ_CHECK(registered);
    }
    return channel;
}

template <class C>
bool SparseDevice::RemoveChannel(ChannelMap<C>& channels, C* channel) {
    if (channel == nullptr) {
        return false;
    }
    auto const found = channels.find(channel->GetName());
    if (found == channels.end() || found->second.get() != channel) {
        LOG_E(
            "Failed to unregister channel, channel not registered with the device - deleting unregistered "
            "channel");
        delete channel;
        return false;
    }
    if (m_state == State::Initialized) {
        SendUnregisterDeviceChannelMessage(channel);
    }
    channels.erase(found);
    if constexpr (Kind<C>::role == ChannelRole::ChannelRole_Observer) {
        UpdateObserverChannelMapping();
    }
    return true;
}

ChannelProducer* SparseDevice::MakeProducerChannel(std::string const& name) {
    return MakeChannel(m_producers, name);
}

ChannelProducer* SparseDevice::MakeProducerChannel(std::string const& name, std::string const& dataType) {
    return MakeChannel(m_producers, name, dataType);
}

ChannelObserver* SparseDevice::MakeObserverChannel(std::string const& name) {
    return MakeChannel(m_observers, name);
}

ChannelObserver* SparseDevice::MakeObserverChannel(std::string const& name, std::string const& dataType) {
    return MakeChannel(m_observers, name, dataType);
}

std::string const& SparseDevice::StringSetting(std::string const& property) {
    ConfigurationState const& configuration = m_configurationState;
    return configuration.GetValue(property).string_value();
}

ChannelProducer* SparseDevice::MakeProducerChannelFromProperty(std::string const& property) {
    return MakeProducerChannel(StringSetting(property));
}

ChannelProducer* SparseDevice::MakeProducerChannelFromProperty(std::string const& property,
                                                               std::string const& dataType) {
    return MakeProducerChannel(StringSetting(property), dataType);
}

ChannelObserver* SparseDevice::MakeObserverChannelFromProperty(std::string const& property) {
    return MakeObserverChannel(StringSetting(property));
}

ChannelObserver* SparseDevice::MakeObserverChannelFromProperty(std::string const& property,
                                                               std::string const& dataType) {
    return MakeObserverChannel(StringSetting(property), dataType);
}

ChannelProducer* SparseDevice::RegisterChannel(ChannelProducer* channel) {
    return EnterChannel(m_producers, channel);
}

ChannelObserver* SparseDevice::RegisterChannel(ChannelObserver* channel) {
    return EnterChannel(m_observers, channel);
}

bool SparseDevice::UnregisterChannel(ChannelProducer* channel) {
    return RemoveChannel(m_producers, channel);
}

bool SparseDevice::UnregisterChannel(ChannelObserver* channel) {
    return RemoveChannel(m_observers, channel);
}

void SparseDevice::UpdateObserverChannelMapping() {
    ASparseDevice::UpdateObserverChannelMapping();
    for (auto const& [name, observer] : m_observers) {
        m_readers.push_back(MessageReaderContext{observer->GetListenerPipe()});
    }
}

void SparseDevice::ClearChannels() {
    m_producers.clear();
    m_observers.clear();
}
