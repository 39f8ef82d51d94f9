#pragma once

#include "Config.pb.h"

#include <map>
#include <string>

namespace vq::vds {
class ChannelInfo;
}
namespace vq::descriptors::data {
class ChannelDescription;
}

/// Names a channel and tells what it carries.
class ChannelDescriptor {
public:
    /// @param name             channel name.
    /// @param label            display name.
    /// @param dataType         display text of the data type, such as "Vec3".
    /// @param defaultProducer  name of the device that normally produces the channel.
    /// @param isResizable      whether the buffer of a channel with shared memory can be resized.
    /// @param isUserVisible    whether tools are to show the channel.
    ChannelDescriptor(std::string name, std::string label, std::string dataType, std::string defaultProducer,
                      bool isResizable, bool isUserVisible);
    /// From what the server tells about a channel.
    explicit ChannelDescriptor(vq::vds::ChannelInfo const& info);
    /// From what a device tells at its registration; the name serves as label too.
    explicit ChannelDescriptor(vq::descriptors::data::ChannelDescription const& description);

    ChannelDescriptor(ChannelDescriptor const&) = default;
    ChannelDescriptor(ChannelDescriptor&&) noexcept = default;
    ChannelDescriptor& operator=(ChannelDescriptor const&) = default;
    ChannelDescriptor& operator=(ChannelDescriptor&&) noexcept = default;
    virtual ~ChannelDescriptor() = default;

    /// The same channel: name and data type are equal, nothing else counts.
    friend bool operator==(ChannelDescriptor const& left, ChannelDescriptor const& right) {
        return left.name == right.name && left.dataType == right.dataType;
    }

    std::string name;
    std::string label;
    std::string dataType;
    std::string defaultProducer;
    // Nothing fills these two.
    std::string description;
    std::map<std::string, vq::cfg::ConfigurationSetting> settings;
    bool resizable;
    bool userVisible;
};
