#pragma once

#include "ServerEvents.pb.h"
#include "TestSupport/Test.h"
#include "VirtualDeviceServer/ServerState.h"

namespace vq::server {

/// What an event says, in a few words.
inline std::string Describe(google::protobuf::MessageLite const& event) {
    auto const role = [](vq::ch::ChannelRole value) {
        return value == vq::ch::ChannelRole_Producer ? " as producer" : " as observer";
    };
    if (auto const* e = dynamic_cast<vq::vds::DeviceRegisteredEvent const*>(&event)) {
        return "registered " + e->name() + " " + std::to_string(e->device_id());
    }
    if (auto const* e = dynamic_cast<vq::vds::DeviceUnregisteredEvent const*>(&event)) {
        return "unregistered " + e->name() + " " + std::to_string(e->device_id());
    }
    if (auto const* e = dynamic_cast<vq::vds::DeviceInitializedEvent const*>(&event)) {
        return "initialized " + e->name() + " " + std::to_string(e->device_id());
    }
    if (auto const* e = dynamic_cast<vq::vds::ChannelRegisteredEvent const*>(&event)) {
        return e->device() + " has " + e->channel() + role(e->role());
    }
    if (auto const* e = dynamic_cast<vq::vds::ChannelUnregisteredEvent const*>(&event)) {
        return e->device() + " lost " + e->channel() + role(e->role());
    }
    if (auto const* e = dynamic_cast<vq::vds::ChannelMappingChangedEvent const*>(&event)) {
        std::string text = e->channel() + " from";
        for (std::string const& device : e->devices()) {
            text += " " + device;
        }
        return text;
    }
    return event.GetTypeName();
}

inline vq::vds::RegisterSparseDevice Registration(std::string const& name) {
    vq::vds::RegisterSparseDevice request;
    request.mutable_description()->set_name(name);
    request.mutable_description()->set_display_name(name);
    request.mutable_description()->set_type("Generic");
    request.mutable_description()->set_process_id(0);
    request.mutable_description()->set_second_process_id(0);
    request.set_address("IPC:/tmp/" + name);
    return request;
}

inline vq::vds::RegisterSparseDeviceChannels ChannelRegistration(std::int32_t device,
                                                                 std::vector<std::string> const& produced,
                                                                 std::vector<std::string> const& observed,
                                                                 bool automap) {
    vq::vds::RegisterSparseDeviceChannels request;
    request.set_device_id(device);
    request.set_flag(automap);
    auto const add = [&](std::string const& name, vq::ch::ChannelRole role) {
        auto& channel = *request.add_channels();
        channel.set_name(name);
        channel.set_data_type("Vec3");
        channel.set_third_text("");
        channel.set_flag_4(false);
        channel.set_flag_5(false);
        channel.set_role(role);
    };
    for (std::string const& name : produced) {
        add(name, vq::ch::ChannelRole_Producer);
    }
    for (std::string const& name : observed) {
        add(name, vq::ch::ChannelRole_Observer);
    }
    return request;
}

inline ServerState::Mappings Pairs(std::vector<std::pair<std::string, std::string>> const& pairs) {
    ServerState::Mappings mappings;
    for (auto const& [device, channel] : pairs) {
        auto& mapping = *mappings.Add();
        mapping.set_device(device);
        mapping.set_channel(channel);
    }
    return mappings;
}

/// A state whose events are collected, and short words for what devices do.
class StateFixture : public testing::Test {
protected:
    using Names = std::vector<std::string>;

    std::int32_t Register(std::string const& name) {
        std::int32_t id = 0;
        EXPECT_FALSE(state.RegisterDevice(Registration(name), now, id));
        return id;
    }

    std::vector<std::int32_t> Channels(std::int32_t device, Names const& produced, Names const& observed,
                                       bool automap) {
        std::vector<std::int32_t> ids;
        EXPECT_FALSE(state.RegisterChannels(ChannelRegistration(device, produced, observed, automap), ids));
        return ids;
    }

    /// A device that serves a channel.
    std::int32_t Provider(std::string const& name, std::string const& channel) {
        std::int32_t const id = Register(name);
        Channels(id, {channel}, {}, true);
        return id;
    }

    static Names Texts(ServerState::Mappings const& mappings) {
        Names texts;
        for (auto const& mapping : mappings) {
            texts.push_back(mapping.device() + ":" + mapping.channel());
        }
        return texts;
    }

    /// The mappings in force as "device:channel".
    Names InForce() const {
        Names texts;
        for (auto const& [device, channel] : state.Channels().Mappings()) {
            texts.push_back(state.Devices().Find(device)->name + ":" + channel);
        }
        return texts;
    }

    Names TakeEvents() { return std::exchange(events, {}); }

    Names events;
    TimePoint now = std::chrono::steady_clock::now();
    ServerState state{[this](auto const& event) { events.push_back(Describe(event)); }, {}};
};

}  // namespace vq::server
