#include "GoldenSample.h"
#include "Identity.pb.h"
#include "ServerRequests.pb.h"
#include "WireWriter.h"

namespace golden {

using wire::Number;
using wire::Text;

namespace {

std::string const attributeBytes =
    Number(1, 7) + Text(2, "email") + Text(3, "a@b") + Number(4, 1) + Number(5, 0);
std::string const profileBytes = Number(1, 2) + Text(2, attributeBytes);
std::string const counterBytes = Text(1, "updates") + Number(2, 0x54c2220f) + Number(3, -5) + Number(4, 4) +
                                 Number(5, -3) + Number(6, 2) + Number(7, 1);
std::string const timerBytes = Text(1, "wait") + Number(2, 9) + Number(3, 1LL << 40) + Number(4, 2) +
                               Number(5, 1LL << 33) + Number(6, 1LL << 34) + Number(7, 1LL << 35);
std::string const statsBytes = Text(1, counterBytes) + Text(2, timerBytes);

void FillProfile(vq::sd::VQIdentityProfile& profile) {
    profile.set_attribute_count(2);
    auto& attribute = *profile.add_attributes();
    attribute.set_key(vq::sd::VQIdentityAttributeKey_7);
    attribute.set_name("email");
    attribute.set_value("a@b");
    attribute.set_is_requested(true);
    attribute.set_is_granted(false);
}

void FillStats(vq::st::StatsCollection& stats) {
    auto& counter = *stats.add_counters();
    counter.set_name("updates");
    counter.set_id(0x54c2220f);
    counter.set_value(-5);
    counter.set_samples(4);
    counter.set_minimum(-3);
    counter.set_maximum(2);
    counter.set_last(1);
    auto& timer = *stats.add_timers();
    timer.set_name("wait");
    timer.set_id(9);
    timer.set_total(1LL << 40);
    timer.set_samples(2);
    timer.set_minimum(1LL << 33);
    timer.set_maximum(1LL << 34);
    timer.set_last(1LL << 35);
}

template <typename Message>
void FillResultAndProfile(Message& m) {
    m.set_result(-1);
    FillProfile(*m.mutable_profile());
}

template <typename Message>
void FillHandleAndResult(Message& m) {
    m.mutable_handle()->set_handle(1ULL << 63);
    m.set_result(3);
}

std::string const handleBytes = Number(1, static_cast<std::int64_t>(1ULL << 63));
}  // namespace

std::vector<Sample> IdentitySamples() {
    using namespace vq::sd;
    std::vector<Piece> const syncReply{Needs(Number(1, -1)), Needs(Text(2, profileBytes))};
    std::vector<Piece> const waitReply{Needs(Number(1, -1)), May(Text(2, profileBytes))};
    std::vector<Piece> const wait{Needs(Text(1, handleBytes)), Needs(Number(2, 5000))};
    auto const fillWait = [](auto& m) {
        m.mutable_handle()->set_handle(1ULL << 63);
        m.set_timeout(5000);
    };
    return {
        Of<VQIdentityAttribute>("vq.sd.VQIdentityAttribute",
                                {Needs(Number(1, 7)), Needs(Text(2, "email")), Needs(Text(3, "a@b")),
                                 Needs(Number(4, 1)), Needs(Number(5, 0))},
                                [](auto& m) {
                                    VQIdentityProfile profile;
                                    FillProfile(profile);
                                    m = profile.attributes(0);
                                }),
        Of<VQIdentityProfile>("vq.sd.VQIdentityProfile", {Needs(Number(1, 2)), May(Text(2, attributeBytes))},
                              FillProfile),
        Of<VQIdentityGetAttributeNames>("vq.sd.VQIdentityGetAttributeNames", {}, [](auto&) {}),
        Of<VQIdentityGetAttributeNames::Reply>("vq.sd.VQIdentityGetAttributeNames.Reply", syncReply,
                                               FillResultAndProfile),
        Of<VQIdentityGetKnownAttributeNames>("vq.sd.VQIdentityGetKnownAttributeNames",
                                             {May(Number(1, 0)), May(Number(1, 3))},
                                             [](auto& m) {
                                                 m.add_keys(VQIdentityAttributeKey_0);
                                                 m.add_keys(VQIdentityAttributeKey_3);
                                             }),
        Of<VQIdentityGetKnownAttributeNames::Reply>("vq.sd.VQIdentityGetKnownAttributeNames.Reply", syncReply,
                                                    FillResultAndProfile),
        Of<VQIdentityRequestAttributeValues>("vq.sd.VQIdentityRequestAttributeValues",
                                             {May(Text(1, profileBytes))},
                                             [](auto& m) { FillProfile(*m.mutable_profile()); }),
        Of<VQIdentityRequestAttributeValues::Reply>("vq.sd.VQIdentityRequestAttributeValues.Reply", syncReply,
                                                    FillResultAndProfile),
        Of<VQIdentityReleaseUserProfile::Reply>("vq.sd.VQIdentityReleaseUserProfile.Reply",
                                                {Needs(Number(1, -1))}, [](auto& m) { m.set_result(-1); }),
        Of<VQIdentityGetAttributeNamesAsync::Reply>("vq.sd.VQIdentityGetAttributeNamesAsync.Reply",
                                                    {Needs(Text(1, handleBytes)), Needs(Number(2, 3))},
                                                    FillHandleAndResult),
        Of<VQIdentityGetAttributeNamesWait>("vq.sd.VQIdentityGetAttributeNamesWait", wait, fillWait),
        Of<VQIdentityGetAttributeNamesWait::Reply>("vq.sd.VQIdentityGetAttributeNamesWait.Reply", waitReply,
                                                   FillResultAndProfile),
        Of<VQIdentityRequestAttributeValuesAsync>("vq.sd.VQIdentityRequestAttributeValuesAsync",
                                                  {May(Text(1, profileBytes))},
                                                  [](auto& m) { FillProfile(*m.mutable_profile()); }),
        Of<VQIdentityRequestAttributeValuesAsync::Reply>("vq.sd.VQIdentityRequestAttributeValuesAsync.Reply",
                                                         {Needs(Number(1, 3)), Needs(Text(2, handleBytes))},
                                                         FillHandleAndResult),
        Of<VQIdentityRequestAttributeValuesWait>("vq.sd.VQIdentityRequestAttributeValuesWait", wait,
                                                 fillWait),
        Of<VQIdentityRequestAttributeValuesWait::Reply>("vq.sd.VQIdentityRequestAttributeValuesWait.Reply",
                                                        waitReply, FillResultAndProfile),
    };
}

std::vector<Sample> ServerSamples() {
    using namespace vq::vds;
    std::string const description =
        Text(1, "dev") + Text(2, "Device") + Text(3, "Identity") + Number(9, 4242) + Number(10, 0);
    std::string const channel =
        Text(1, "id") + Text(2, "Feature") + Text(3, "dev") + Number(4, 0) + Number(5, 1) + Number(6, 1);
    std::string const mapping = Text(1, "dev") + Text(2, "id");
    return {
        Of<Error>("vq.vds.Error", {Needs(Text(1, "no"))}, [](auto& m) { m.set_message("no"); }),
        Of<GetDeviceInfo::Error>("vq.vds.GetDeviceInfo.Error", {Needs(Text(1, "no"))},
                                 [](auto& m) { m.set_message("no"); }),
        Of<GetVersion::Reply>("vq.vds.GetVersion.Reply",
                              {Needs(Number(1, 1)), May(Number(2, 2)), May(Number(3, 3)), May(Number(4, 4))},
                              [](auto& m) {
                                  m.set_major(1);
                                  m.set_minor(2);
                                  m.set_patch(3);
                                  m.set_build(4);
                              }),
        Of<GetProtocolVersion::Reply>("vq.vds.GetProtocolVersion.Reply",
                                      {Needs(Number(1, 13)), Needs(Number(2, 12))},
                                      [](auto& m) {
                                          m.set_server_version(13);
                                          m.set_protocol_version(12);
                                      }),
        Of<DeviceInfo>(
            "vq.vds.DeviceInfo",
            {Needs(Number(1, -1)), Needs(Text(2, "dev")), Needs(Text(3, "Device")),
             Needs(Text(4, "Identity")), May(Text(5, "out")), May(Text(6, "in")), Needs(Number(7, 1)),
             Needs(Number(8, 0)), Needs(Number(11, 4294967295)), Needs(Number(12, 0))},
            [](auto& m) {
                m.set_id(-1);
                m.set_name("dev");
                m.set_display_name("Device");
                m.set_type("Identity");
                m.add_producer_channels("out");
                m.add_observer_channels("in");
                m.set_flag_7(true);
                m.set_flag_8(false);
                m.set_process_id(4294967295U);
                m.set_second_process_id(0);
            }),
        Of<ChannelInfo>(
            "vq.vds.ChannelInfo",
            {Needs(Number(1, 5)), Needs(Text(2, "id")), Needs(Text(3, "Label")), Needs(Text(4, "Feature")),
             Needs(Text(5, "dev")), Needs(Number(6, 1)), Needs(Number(7, 0)), Needs(Number(8, 1))},
            [](auto& m) {
                m.set_id(5);
                m.set_name("id");
                m.set_text_3("Label");
                m.set_text_4("Feature");
                m.set_text_5("dev");
                m.set_flag_6(true);
                m.set_flag_7(false);
                m.set_flag_8(true);
            }),
        Of<GetChannelMappings::Reply>("vq.vds.GetChannelMappings.Reply",
                                      {May(Text(1, mapping)), May(Text(2, mapping))},
                                      [](auto& m) {
                                          m.add_mappings()->set_device("dev");
                                          m.mutable_mappings(0)->set_channel("id");
                                          *m.add_second_mappings() = m.mappings(0);
                                      }),
        Of<GetDeviceRequestReplyAddress>("vq.vds.GetDeviceRequestReplyAddress",
                                         {Needs(Text(1, "dev")), Needs(Number(2, 0)), May(Text(3, ""))},
                                         [](auto& m) {
                                             m.set_device("dev");
                                             m.set_flag(false);
                                             m.set_node("");
                                         }),
        Of<RegisterSparseDevice>("vq.vds.RegisterSparseDevice",
                                 {Needs(Text(1, description)), Needs(Text(2, "SOCKET:a:1"))},
                                 [](auto& m) {
                                     auto& d = *m.mutable_description();
                                     d.set_name("dev");
                                     d.set_display_name("Device");
                                     d.set_type("Identity");
                                     d.set_process_id(4242);
                                     d.set_second_process_id(0);
                                     m.set_address("SOCKET:a:1");
                                 }),
        Of<RegisterSparseDevice::Reply>("vq.vds.RegisterSparseDevice.Reply",
                                        {Needs(Number(1, 0)), Needs(Number(2, 1))},
                                        [](auto& m) {
                                            m.set_device_id(0);
                                            m.set_auto_stats(true);
                                        }),
        Of<RegisterSparseDeviceChannels>("vq.vds.RegisterSparseDeviceChannels",
                                         {Needs(Number(1, 7)), May(Text(2, channel)), May(Number(3, 1))},
                                         [](auto& m) {
                                             m.set_device_id(7);
                                             auto& c = *m.add_channels();
                                             c.set_name("id");
                                             c.set_data_type("Feature");
                                             c.set_third_text("dev");
                                             c.set_flag_4(false);
                                             c.set_flag_5(true);
                                             c.set_role(vq::ch::ChannelRole_Observer);
                                             m.set_flag(true);
                                         }),
        Of<RegisterSparseDeviceChannels::Reply>("vq.vds.RegisterSparseDeviceChannels.Reply",
                                                {May(Number(1, 1)), May(Number(1, 300))},
                                                [](auto& m) {
                                                    m.add_channel_ids(1);
                                                    m.add_channel_ids(300);
                                                }),
        Of<SparseDeviceStatsUpdate>("vq.vds.SparseDeviceStatsUpdate",
                                    {Needs(Number(1, 7)), Needs(Text(2, "dev")), Needs(Text(3, statsBytes))},
                                    [](auto& m) {
                                        m.set_device_id(7);
                                        m.set_name("dev");
                                        FillStats(*m.mutable_stats());
                                    }),
        Of<SendSparseDeviceEvent>(
            "vq.vds.SendSparseDeviceEvent",
            {Needs(Number(1, 7)), Needs(Text(2, "vq.sd.X")), Needs(Text(3, std::string("\0\xff", 2)))},
            [](auto& m) {
                m.set_device_id(7);
                m.set_event_type("vq.sd.X");
                m.set_event_data(std::string("\0\xff", 2));
            }),
        Of<RegisterDeviceApplication>(
            "vq.vds.RegisterDeviceApplication",
            {Needs(Text(1, "app")), Needs(Text(2, "App")), Needs(Number(3, 1LL << 33)), May(Number(4, 1))},
            [](auto& m) {
                m.set_name("app");
                m.set_second_name("App");
                m.set_process_id(1LL << 33);
                m.set_flag(true);
            }),
        Of<PortableSharedMemoryConfiguration>(
            "vq.vds.PortableSharedMemoryConfiguration",
            {Needs(Number(1, 1)), Needs(Text(2, Number(1, 8) + Number(2, 1) + Text(11, Number(1, 3))))},
            [](auto& m) {
                m.set_id_1(1);
                m.mutable_settings()->set_value_1(8);
                m.mutable_settings()->set_flag_2(true);
                m.mutable_settings()->mutable_delta()->set_method(TransmissionMethodDelta::Method_3);
            }),
    };
}
}  // namespace golden
