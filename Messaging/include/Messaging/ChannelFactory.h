#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DataTypes/ChannelDescriptor.h"
#include "Logging/Log.h"
#include "Messaging/ChannelTypeTraits.h"

/// Turns a channel's descriptor and a role into a live channel, and messages of unknown type into samples. It
/// owns the descriptors: channels made by it must be gone before it is deleted. The first factory of the
/// process fills the registrar, whatever thread it is built on. Threads: the device's thread.
class ChannelFactory {
public:
    /// Both callables give an object that the caller owns, or null.
    using ChannelCreator = std::function<Channel*(ChannelFactory*, ChannelDescriptor*, vq::ch::ChannelRole)>;
    using DataCreator = std::function<IData*(AMessageContext*, AChannelMessage*)>;

    /// The data types that the process knows. Read-only once the first factory stands.
    class Registrar {
    public:
        static Registrar& GetInstance();

        /// @param name  display text of the data type; an earlier channel creator of that name is replaced,
        ///              an earlier data creator stays.
        void Register(ChannelCreator channelCreator, DataCreator dataCreator, std::string const& name);
        /// Empty when there is none.
        ChannelCreator GetChannelCreator(std::string const& name) const;
        /// In order of registration.
        std::vector<DataCreator> GetDataCreators() const { return m_dataCreators; }
        bool IsEmpty() const { return m_channelCreators.empty(); }

    private:
        std::map<std::string, ChannelCreator> m_channelCreators;
        std::vector<DataCreator> m_dataCreators;
    };

    /// @param context   not owned.
    /// @param sender    where producers send; null when there are to be none. Not owned.
    /// @param listener  where observers listen; null when there are to be none. Not owned.
    ChannelFactory(AMessageContext* context, AMessagePipeEventSender* sender,
                   AMessagePipeEventListener* listener);
    ChannelFactory(ChannelFactory const&) = delete;
    ChannelFactory& operator=(ChannelFactory const&) = delete;
    ~ChannelFactory() = default;

    /// Takes over descriptors whose names are new and deletes the others.
    /// @param descriptors  owned by the factory from here on; the list is emptied.
    void AddChannelDescriptors(std::vector<ChannelDescriptor*>& descriptors);
    /// The descriptor of that name, made from the arguments when there is none; owned by the factory.
    /// @param third  name of the device that normally produces the channel.
    ChannelDescriptor* CreateChannelDescriptor(std::string const& name, std::string const& dataType,
                                               std::string const& third);

    /// A new channel, owned by the caller; null, with a line, when the name or its data type is unknown, and
    /// when the role has no pipe.
    Channel* CreateChannel(std::string const& name, vq::ch::ChannelRole role);
    /// @param descriptor  must outlive the channel.
    Channel* CreateChannel(ChannelDescriptor* descriptor, vq::ch::ChannelRole role);

    /// A sample of the first registered type that the message decodes as, owned by the caller; null, without
    /// a line, when there is none.
    IData* CreateDataFromMessage(AChannelMessage* message) const;

    /// Registers the data type of a wire message.
    template <class T>
    static void Register();

    /// What a channel creator calls.
    template <class T>
    static Channel* CreateChannelOfType(ChannelFactory* factory, ChannelDescriptor* descriptor,
                                        vq::ch::ChannelRole role);

private:
    template <class T>
    static IData* CreateDataOfType(AMessageContext* context, AChannelMessage* message);

    std::map<std::string, std::unique_ptr<ChannelDescriptor>> m_descriptors;
    AMessageContext* m_context;
    AMessagePipeEventSender* m_sender;
    AMessagePipeEventListener* m_listener;
};

template <class T>
void ChannelFactory::Register() {
    Registrar::GetInstance().Register(&CreateChannelOfType<T>, &CreateDataOfType<T>, ChannelDataTypeText<T>);
}

template <class T>
Channel* ChannelFactory::CreateChannelOfType(ChannelFactory* factory, ChannelDescriptor* descriptor,
                                             vq::ch::ChannelRole role) {
    using Traits = ChannelTypeTraits<T>;
    if (role == vq::ch::ChannelRole_Observer) {
        return new typename Traits::Observer(factory->m_context, factory->m_listener, descriptor);
    }
    if (role == vq::ch::ChannelRole_Producer) {
        auto* const producer = new typename Traits::Producer(factory->m_context, descriptor);
        producer->SetDataEventPipe(factory->m_sender);
        return producer;
    }
    LOG_E("Failed to create channel for %s - invalid channel role", descriptor->name.c_str());
    return nullptr;
}

template <class T>
IData* ChannelFactory::CreateDataOfType(AMessageContext* context, AChannelMessage* message) {
    T event;
    return context->DecodeMessage(message, event) ? new typename ChannelTypeTraits<T>::Data(std::move(event))
                                                  : nullptr;
}
