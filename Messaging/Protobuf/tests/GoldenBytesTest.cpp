#include "GoldenSample.h"
#include "WireWriter.h"

namespace {

using golden::Sample;
using wire::Float;
using wire::Number;
using wire::Text;

class GoldenBytes : public testing::Test {
protected:
    static std::vector<Sample> Samples() {
        std::vector<Sample> all;
        for (auto const& part : {golden::IdentitySamples(), golden::ServerSamples(), golden::EventSamples(),
                                 golden::ChannelSamples(), golden::ConfigSamples()}) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }
};

TEST_F(GoldenBytes, MessagesCarryTheirNameAndWriteTheirFieldsAsByHand) {
    for (auto const& sample : Samples()) {
        EXPECT_EQ(sample.message->GetTypeName(), sample.typeName);
        EXPECT_EQ(sample.message->SerializeAsString(), sample.Bytes()) << sample.typeName;
    }
}

TEST_F(GoldenBytes, BytesWrittenByHandAreReadWithoutRemainder) {
    for (auto const& sample : Samples()) {
        EXPECT_EQ(sample.unknownFieldsOf(sample.Bytes()), "") << sample.typeName;
        std::unique_ptr<google::protobuf::MessageLite> parsed(sample.message->New());
        EXPECT_TRUE(parsed->ParseFromString(sample.Bytes())) << sample.typeName;
        EXPECT_EQ(parsed->SerializeAsString(), sample.Bytes()) << sample.typeName;
    }
}

TEST_F(GoldenBytes, AMessageIsIncompleteExactlyWithoutARequiredField) {
    for (auto const& sample : Samples()) {
        for (std::size_t i = 0; i < sample.pieces.size(); ++i) {
            std::unique_ptr<google::protobuf::MessageLite> parsed(sample.message->New());
            EXPECT_TRUE(parsed->ParsePartialFromString(sample.Bytes(i)));
            EXPECT_EQ(parsed->IsInitialized(), !sample.pieces[i].required)
                << sample.typeName << " without piece " << i;
        }
    }
}

TEST_F(GoldenBytes, UnknownFieldsSurviveARoundTrip) {
    std::string const extra = Number(150, 12) + Text(151, "later version") + Float(152, 0.5F);
    for (auto const& sample : Samples()) {
        std::unique_ptr<google::protobuf::MessageLite> parsed(sample.message->New());
        EXPECT_TRUE(parsed->ParseFromString(sample.Bytes() + extra)) << sample.typeName;
        EXPECT_EQ(parsed->SerializeAsString(), sample.Bytes() + extra) << sample.typeName;
    }
}

}  // namespace
