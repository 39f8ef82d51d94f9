#include "VerifyServerVersion.h"

#include "Messaging/AMessageContext.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/AMessagePipeProvider.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/RawWire.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "TestSupport/WireText.h"

TEST(VerifyServerVersionTest, ANewerProtocolIsRefusedAnyOlderOneAcceptedAndARefusalMayBeTheOlderTool) {
    std::string const path = "IPC:" + vq::test::HomeDirectory() + "server";
    vq::test::RawSocket server(ZMQ_REP, path);
    MessageAddress const address = MessageAddress::FromString(path);
    AMessageManager& manager = AMessageManager::Instance();
    auto* const pipe = manager.GetContext(address)->GetPipeProvider()->GetRequestReplyClient(address, "");
    for (auto const& row : Rows<4>("VerifyServerVersion", "Peers")) {
        vq::test::LogCapture const log;
        auto serving = std::async(std::launch::async, [&server, &row] {
            for (std::size_t i = 0; i < 2 && row[i] != kNone; ++i) {
                EXPECT_EQ(server.Receive().at(1), i == 0 ? "vq.vds.GetProtocolVersion" : "vq.vds.GetVersion");
                auto const blank = row[i].find(' ');
                server.Send({"", row[i].substr(0, blank), wire::Bytes(row[i].substr(blank))});
            }
        });
        EXPECT_EQ(vq::SdkShim::VerifyServerVersion(pipe, "Test"), std::stoi(row[2]));
        serving.get();
        std::string lines;
        for (std::string const& line : log.Lines()) {
            lines += line + "\n";
        }
        EXPECT_EQ(lines, row[3] == kNone ? "" : row[3]);
    }
    manager.Cleanup();
}
