#include "ChannelData.pb.h"
#include "Config.pb.h"
#include "DeviceEvents.pb.h"
#include "DeviceRequests.pb.h"
#include "GoldenSample.h"
#include "ServerEvents.pb.h"
#include "WireWriter.h"

namespace golden {

using wire::Float;
using wire::Number;
using wire::Text;

namespace {

std::string const vec3Bytes = Float(1, 1.5F) + Float(2, -2) + Float(3, 0);
std::string const quaternionBytes = Float(1, 0) + Float(2, 0) + Float(3, 0) + Float(4, 1);

}  // namespace

std::vector<Sample> EventSamples() {
    using namespace vq::vds;
    return {
        Of<ServerHeartbeat>("vq.vds.ServerHeartbeat", {}, [](auto&) {}),
        Of<ServerStoppingEvent>("vq.vds.ServerStoppingEvent", {Needs(Text(1, "bye"))},
                                [](auto& m) { m.set_text("bye"); }),
        Of<DeviceRegisteredEvent>(
            "vq.vds.DeviceRegisteredEvent",
            {Needs(Text(1, "dev")), Needs(Text(2, "Identity")), Needs(Number(3, 4294967295))},
            [](auto& m) {
                m.set_name("dev");
                m.set_type("Identity");
                m.set_device_id(4294967295U);
            }),
        Of<DeviceUnregisteredEvent>("vq.vds.DeviceUnregisteredEvent",
                                    {Needs(Text(1, "dev")), Needs(Number(2, 7))},
                                    [](auto& m) {
                                        m.set_name("dev");
                                        m.set_device_id(7);
                                    }),
        Of<ChannelRegisteredEvent>("vq.vds.ChannelRegisteredEvent",
                                   {Needs(Text(1, "dev")), Needs(Text(2, "id")), Needs(Number(3, 0))},
                                   [](auto& m) {
                                       m.set_device("dev");
                                       m.set_channel("id");
                                       m.set_role(vq::ch::ChannelRole_Producer);
                                   }),
        Of<ChannelMappingChangedEvent>(
            "vq.vds.ChannelMappingChangedEvent",
            {Needs(Text(1, "id")), May(Text(2, "a")), May(Text(2, "b")), May(Text(3, "c"))},
            [](auto& m) {
                m.set_channel("id");
                m.add_devices("a");
                m.add_devices("b");
                m.add_second_devices("c");
            }),
        Of<SharedMemoryModifiedEvent>(
            "vq.vds.SharedMemoryModifiedEvent",
            {Needs(Text(1, "cam")), Needs(Number(2, 5)), Needs(Number(3, 0)), Needs(Number(4, 64))},
            [](auto& m) {
                m.set_memory_id("cam");
                m.set_generation(5);
                m.set_offset(0);
                m.set_size(64);
            }),
        Of<VQSDKApplicationUnregisteredEvent>("vq.vds.VQSDKApplicationUnregisteredEvent",
                                              {Needs(Number(1, 3))},
                                              [](auto& m) { m.set_application_id(3); }),
        Of<vq::sd::UserMessageEvent>(
            "vq.sd.UserMessageEvent",
            {Needs(Text(1, "hi")), Needs(Number(2, 3)), Needs(Number(3, 1)), Needs(Number(4, 2))},
            [](auto& m) {
                m.set_text("hi");
                m.set_category(vq::sd::UserMessageCategory_3);
                m.set_field_3(1);
                m.set_field_4(2);
            }),
    };
}

std::vector<Sample> ChannelSamples() {
    using namespace vq::ch;
    return {
        Of<HelloDataEvent>("vq.ch.HelloDataEvent", {Needs(Text(1, "hello")), May(Number(2, -7))},
                           [](auto& m) {
                               m.set_text("hello");
                               m.set_number(-7);
                           }),
        Of<Vec3ChannelDataEvent>(
            "vq.ch.Vec3ChannelDataEvent",
            {Needs(Float(1, 1.5F)), Needs(Float(2, -2)), Needs(Float(3, 0)), May(Number(4, 1))},
            [](auto& m) {
                m.set_x(1.5F);
                m.set_y(-2);
                m.set_z(0);
                m.set_flag(true);
            }),
        Of<TimestampChannelDataEvent>("vq.ch.TimestampChannelDataEvent", {May(Text(1, Number(1, -1)))},
                                      [](auto& m) { m.mutable_timestamp()->set_value(~0ULL); }),
        Of<TransformChannelDataEvent>("vq.ch.TransformChannelDataEvent",
                                      {Needs(Text(1, Text(1, vec3Bytes) + Text(2, quaternionBytes))),
                                       May(Number(2, 1)), May(Number(3, 1)), May(Number(4, 0)),
                                       May(Number(5, 1)), May(Text(6, Number(1, 1) + Number(2, -2)))},
                                      [](auto& m) {
                                          auto& position = *m.mutable_transform()->mutable_position();
                                          position.set_x(1.5F);
                                          position.set_y(-2);
                                          position.set_z(0);
                                          auto& rotation = *m.mutable_transform()->mutable_rotation();
                                          rotation.set_x(0);
                                          rotation.set_y(0);
                                          rotation.set_z(0);
                                          rotation.set_w(1);
                                          m.set_absolute_position(true);
                                          m.set_absolute_orientation(true);
                                          m.set_translate_relative(false);
                                          m.set_rotate_relative(true);
                                          m.add_contributors()->set_first(1);
                                          m.mutable_contributors(0)->set_second(-2);
                                      }),
        Of<SharedBufferChannelDataUpdatedEvent>(
            "vq.ch.SharedBufferChannelDataUpdatedEvent",
            {Needs(Text(1, "cam")), Needs(Text(2, Number(1, 4096) + Text(3, Number(1, 64)))),
             Needs(Number(3, 5)), Needs(Number(4, 0)), Needs(Number(5, 64))},
            [](auto& m) {
                m.set_server_memory_id("cam");
                m.mutable_descriptor()->set_buffersize(4096);
                m.mutable_descriptor()->mutable_image()->set_width(64);
                m.set_generation(5);
                m.set_updated_offset(0);
                m.set_updated_size(64);
            }),
        Of<PcfDataEvent>("vq.ch.PcfDataEvent",
                         {May(Text(3, Text(1, Number(1, 1) + Number(1, 2)) + Text(2, vec3Bytes)))},
                         [](auto& m) {
                             m.mutable_pcf()->mutable_cfuid()->add_data(1);
                             m.mutable_pcf()->mutable_cfuid()->add_data(2);
                             m.mutable_pcf()->mutable_position()->set_x(1.5F);
                             m.mutable_pcf()->mutable_position()->set_y(-2);
                             m.mutable_pcf()->mutable_position()->set_z(0);
                         }),
        Of<vq::math::VQMat4f>("vq.math.VQMat4f", {May(Text(1, wire::FloatBytes(1) + wire::FloatBytes(2)))},
                              [](auto& m) {
                                  m.add_matrix_colmajor(1);
                                  m.add_matrix_colmajor(2);
                              }),
    };
}

std::vector<Sample> ConfigSamples() {
    using namespace vq::cfg;
    std::string const yes = Number(4, 1);
    return {
        Of<CommonProperty>(
            "vq.cfg.CommonProperty",
            {Needs(Text(1, "volume")), Needs(Text(2, "float")), May(Text(3, yes)), May(Text(10, "Volume")),
             May(Text(11, "how loud")), May(Text(12, "audio")), May(Text(13, "?")), May(Number(14, -1)),
             May(Number(15, 1)), May(Number(16, 0)), May(Text(17, Text(1, Text(1, "k") + Text(2, yes))))},
            [](auto& m) {
                m.set_name("volume");
                m.set_type("float");
                m.mutable_default_value()->set_boolean_value(true);
                m.set_label("Volume");
                m.set_description("how loud");
                m.set_category("audio");
                m.set_field_13("?");
                m.set_priority(-1);
                m.set_user_visible(true);
                m.set_field_16(false);
                auto& entry = *m.mutable_metadata()->add_entries();
                entry.set_name("k");
                entry.mutable_value()->set_boolean_value(true);
            }),
        Of<SimpleType>("vq.cfg.SimpleType",
                       {Needs(Text(1, "percent")), Needs(Text(2, "integer")), May(Text(3, Number(2, 50))),
                        May(Text(4, Number(2, 0))), May(Text(5, Number(2, 100))), May(Number(6, 2))},
                       [](auto& m) {
                           m.set_name("percent");
                           m.set_base_type("integer");
                           m.mutable_default_value()->set_integer_value(50);
                           m.mutable_lower_limit()->set_integer_value(0);
                           m.mutable_upper_limit()->set_integer_value(100);
                           m.set_out_of_range_handling(OutOfRangeHandling_Wrap);
                       }),
        Of<ArrayType>("vq.cfg.ArrayType",
                      {Needs(Text(1, "vec3")), Needs(Text(2, "Vec3")), May(Text(3, "three")),
                       Needs(Text(4, "float")), May(Text(5, Number(2, 3)))},
                      [](auto& m) {
                          m.set_name("vec3");
                          m.set_label("Vec3");
                          m.set_description("three");
                          m.set_element_type("float");
                          m.mutable_default_value()->set_integer_value(3);
                      }),
        Of<ConfigurationSetting>("vq.cfg.ConfigurationSetting",
                                 {Needs(Text(1, "volume")), Needs(Text(9, yes))},
                                 [](auto& m) {
                                     m.set_name("volume");
                                     m.mutable_value()->set_boolean_value(true);
                                 }),
        Of<vq::sd::SetDeviceConfiguration>(
            "vq.sd.SetDeviceConfiguration", {May(Text(2, Text(1, "volume") + Text(9, yes)))},
            [](auto& m) {
                m.add_settings()->set_name("volume");
                m.mutable_settings(0)->mutable_value()->set_boolean_value(true);
            }),
    };
}

}  // namespace golden
