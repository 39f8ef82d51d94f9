#include "DataTypes/ChannelDescriptor.h"

#include "Descriptors.pb.h"
#include "ServerRequests.pb.h"

#include <utility>

ChannelDescriptor::ChannelDescriptor(std::string channelName, std::string channelLabel, std::string type,
                                     std::string producer, bool isResizable, bool isUserVisible)
    : name(std::move(channelName)),
      label(std::move(channelLabel)),
      dataType(std::move(type)),
      defaultProducer(std::move(producer)),
      resizable(isResizable),
      userVisible(isUserVisible) {}

ChannelDescriptor::ChannelDescriptor(vq::vds::ChannelInfo const& info)
    : ChannelDescriptor(info.name(), info.text_3(), info.text_4(), info.text_5(), info.flag_6(),
                        info.flag_7()) {}

ChannelDescriptor::ChannelDescriptor(vq::descriptors::data::ChannelDescription const& message)
    : ChannelDescriptor(message.name(), message.name(), message.data_type(), message.third_text(),
                        message.flag_4(), message.flag_5()) {}
