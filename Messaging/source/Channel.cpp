#include "Messaging/Channel.h"

#include "DataTypes/ChannelDescriptor.h"
#include "Descriptors.pb.h"
#include "Logging/Log.h"

std::string const& Channel::GetName() const {
    return m_descriptor->name;
}

void Channel::PopulateChannelDescriptionMessage(vq::descriptors::data::ChannelDescription* message) const {
    message->set_name(m_descriptor->name);
    message->set_data_type(m_descriptor->dataType);
    message->set_third_text(m_descriptor->defaultProducer);
    message->set_flag_4(m_descriptor->resizable);
    message->set_flag_5(m_descriptor->userVisible);
    VQ_CHECK(vq::ch::ChannelRole_IsValid(m_role));
    message->set_role(m_role);
}
