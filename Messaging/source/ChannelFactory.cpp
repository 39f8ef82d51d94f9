#include "Messaging/ChannelFactory.h"

#include <mutex>

ChannelFactory::Registrar& ChannelFactory::Registrar::GetInstance() {
    static Registrar s_registrar;
    return s_registrar;
}

void ChannelFactory::Registrar::Register(ChannelCreator channelCreator, DataCreator dataCreator,
                                         std::string const& name) {
    m_channelCreators.insert_or_assign(name, std::move(channelCreator));
    m_dataCreators.push_back(std::move(dataCreator));
    LOG_V("ChannelFactory Registrar received registration for %s", name.c_str());
}

ChannelFactory::ChannelCreator ChannelFactory::Registrar::GetChannelCreator(std::string const& name) const {
    auto const found = m_channelCreators.find(name);
    return found != m_channelCreators.end() ? found->second : ChannelCreator();
}

ChannelFactory::ChannelFactory(AMessageContext* context, AMessagePipeEventSender* sender,
                               AMessagePipeEventListener* listener)
    : m_context(context), m_sender(sender), m_listener(listener) {
    // Devices may start on several threads at once.
    static std::once_flag s_filled;
    std::call_once(s_filled, [] {
        if (Registrar::GetInstance().IsEmpty()) {
#define VQ_REGISTER(Message, text) Register<Message>();
            VQ_CHANNEL_DATA_TYPES(VQ_REGISTER)
#undef VQ_REGISTER
        }
    });
}

void ChannelFactory::AddChannelDescriptors(std::vector<ChannelDescriptor*>& descriptors) {
    for (ChannelDescriptor* const descriptor : descriptors) {
        auto const [place, isNew] = m_descriptors.try_emplace(descriptor->name, descriptor);
        if (isNew) {
            LOG_V("Adding channel descriptor for channel %s to the ChannelFactory", descriptor->name.c_str());
            continue;
        }
        LOG_V(
            "Attempting to add channel descriptor for channel %s which already exists - ignoring this "
            "descriptor",
            descriptor->name.c_str());
        if (place->second.get() != descriptor) {
            delete descriptor;
        }
    }
    descriptors.clear();
}

ChannelDescriptor* ChannelFactory::CreateChannelDescriptor(std::string const& name,
                                                           std::string const& dataType,
                                                           std::string const& third) {
    auto const [place, isNew] = m_descriptors.try_emplace(name, nullptr);
    if (isNew) {
        place->second = std::make_unique<ChannelDescriptor>("undefined", "undefined", "undefined",
                                                            "undefined", false, true);
        place->second->name = name;
        place->second->dataType = dataType;
        place->second->defaultProducer = third;
        LOG_V("Adding channel descriptor for channel %s to the ChannelFactory", name.c_str());
    }
    return place->second.get();
}

Channel* ChannelFactory::CreateChannel(std::string const& name, vq::ch::ChannelRole role) {
    auto const found = m_descriptors.find(name);
    if (found == m_descriptors.end()) {
        LOG_E("Failed to create channel for %s - undefined channel descriptor", name.c_str());
        return nullptr;
    }
    return CreateChannel(found->second.get(), role);
}

Channel* ChannelFactory::CreateChannel(ChannelDescriptor* descriptor, vq::ch::ChannelRole role) {
    if (role == vq::ch::ChannelRole_Observer && m_listener == nullptr) {
        LOG_W("Warning: ChannelFactory not configured for Observer production - no listenerPipe available");
        return nullptr;
    }
    if (role == vq::ch::ChannelRole_Producer && m_sender == nullptr) {
        LOG_W("Warning: ChannelFactory not configured for Producer production - no senderPipe available");
        return nullptr;
    }
    ChannelCreator const creator = Registrar::GetInstance().GetChannelCreator(descriptor->dataType);
    Channel* const channel = creator ? creator(this, descriptor, role) : nullptr;
    if (channel == nullptr) {
        LOG_E("Failed to create channel - %s", descriptor->name.c_str());
    }
    return channel;
}

IData* ChannelFactory::CreateDataFromMessage(AChannelMessage* message) const {
    for (DataCreator const& creator : Registrar::GetInstance().GetDataCreators()) {
        if (IData* const data = creator(m_context, message)) {
            return data;
        }
    }
    return nullptr;
}
