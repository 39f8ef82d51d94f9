// What clients do to each other by way of a server: each request with its answer and the events that follow.

#include "RawDevice.h"
#include "RunningServer.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"
#include "Utils/TextUtils.h"

namespace vq::server {
namespace {

/// The bytes of a cell of the table.
std::string Bytes(std::string const& cell) {
    std::map<std::string, std::string> const shorthands = {
        {"device", "1:{1:'NAME' 2:'NAME' 3:'Generic' 9:0 10:0} 2:'IPC:/tmp/NAME'"},
        {"produces", "2:{1:'NAME' 2:'Vec3' 3:'' 4:0 5:0 6:0}"},
        {"observes", "2:{1:'NAME' 2:'Vec3' 3:'' 4:0 5:0 6:1}"}};
    std::string fields;
    for (std::string const& word : Tokenize(cell, " ", false)) {
        std::size_t const colon = word.find(':');
        auto const found = shorthands.find(word.substr(0, colon));
        fields += found == shorthands.end() ? word
                                            : ReplaceSubstring(found->second, "NAME", word.substr(colon + 1));
        fields += ' ';
    }
    return wire::Bytes(ReplaceSubstring(fields, "LONG", std::string(2000, 'x')));
}

class ServerEventsTest : public testing::TestWithParam<char const*> {
public:
    ~ServerEventsTest() override {
        m_server.reset();
        AMessageManager::Instance().Cleanup();
    }

    void ExpectEvent(std::string const& type, std::string const& fields) {
        std::pair<std::string, std::string> event;
        do {
            event = m_events.NextEvent();
        } while (event.first == "vq.vds.HelloEvent" || event.first == "vq.vds.ServerStartedEvent");
        EXPECT_EQ(event.first, "vq.vds." + type);
        EXPECT_TRUE(fields == kNone || event.second == Bytes(fields)) << testing::PrintToString(event.second);
    }
    void ExpectAnswer(std::string const& request, std::string const& fields, std::string const& answer) {
        std::string const type = "vq.vds." + request;
        auto const [kind, payload] = m_client.Exchange({"", type, Bytes(fields)});
        if (answer == "refused") {
            EXPECT_EQ(kind, "vq.vds.Error");
            return;
        }
        bool const isError = answer.starts_with("Error ");
        std::string const expected = isError ? answer.substr(6) : answer;
        EXPECT_EQ(kind, type + (isError ? ".Error" : ".Reply"));
        EXPECT_TRUE(expected == kNone || payload == Bytes(expected)) << testing::PrintToString(payload);
    }

    std::optional<RunningServer> m_server{Options("IPC:" + test::HomeDirectory() + GetParam())};
    test::RawSocket m_client{ZMQ_REQ, m_server->Address()};
    test::RawSocket m_events = Listen(m_client.Get(vq::vds::GetServerEventAddress()).address());
};

TEST_P(ServerEventsTest, FollowEachRequestInOrder) {
    for (auto const& [what, fields, answer] : Rows<3>("ServerEvents", GetParam())) {
        SCOPED_TRACE(testing::Message() << what << " " << fields);
        if (what.starts_with("> ")) {
            ExpectEvent(what.substr(2), fields);
        } else {
            ExpectAnswer(what, fields, answer);
        }
    }
    // And no others behind them.
    ExpectAnswer("RegisterVQSDKApplication", "1:'last' 2:1", kNone);
    ExpectEvent("VQSDKApplicationRegisteredEvent", kNone);
}

INSTANTIATE_TEST_SUITE_P(Of, ServerEventsTest,
                         testing::Values("Registration", "Unreachable", "Namesakes", "Channels", "Mappings",
                                         "Silence", "Applications", "AbsoluteData", "SharedMemory"),
                         [](auto const& param) { return std::string(param.param); });

}  // namespace
}  // namespace vq::server
