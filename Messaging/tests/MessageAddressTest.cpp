#include "Messaging/MessageAddress.h"

#include "Messaging/TransportProvider.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"

namespace {

using Transport = MessageAddress::Transport;

TEST(MessageAddressTest, TextFormsAreReadAndWrittenBack) {
    std::map<std::string, Transport> const transports = {{"NONE", Transport::NONE},
                                                         {"SOCKET", Transport::SOCKET},
                                                         {"IPC", Transport::IPC},
                                                         {"LOOPBACK", Transport::LOOPBACK}};
    testing::internal::CaptureStderr();
    for (auto const& [text, location, transport, name, port, written] : Rows<6>("MessageAddress", "texts")) {
        MessageAddress const address = MessageAddress::FromString(text);
        EXPECT_EQ(address, (MessageAddress{location, transports.at(transport), name})) << text;
        EXPECT_EQ(address.ExtractPort(), std::stoi(port)) << text;
        EXPECT_EQ(address.ToString(), written);
    }
    EXPECT_EQ((MessageAddress{"x", static_cast<Transport>(-7), "n"}.ToString()), "-7:x?n");
    // Only an unknown transport word is logged.
    std::string const output = testing::internal::GetCapturedStderr();
    EXPECT_NE(output.find("Invalid MessageAddress: socket:localhost:1"), std::string::npos) << output;
    EXPECT_EQ(output.find("17975"), std::string::npos) << output;
}

TEST(MessageAddressTest, ALogicalNameResolvesUnderItsLocation) {
    std::string const temp = vq::test::HomeDirectory() + ".config/vqvds/";
    for (auto const& [resolved, text] :
         {std::pair{ZMQLoopbackAddressProvider("").Resolve("n", false), std::string("LOOPBACK:_.n")},
          {ZMQLoopbackAddressProvider("a").Resolve("", true), "LOOPBACK:a"},
          {ZMQIPCAddressProvider("/tmp/s").Resolve("a/b/c", false), "IPC:/tmp/s.a_b_c"},
          {ZMQIPCAddressProvider("default").Resolve("", false), "IPC:" + temp + "default"},
          {ZMQIPCAddressProvider("").Resolve("n", true), "IPC:" + temp + "_.n"},
          {ZMQSocketAddressProvider("", 5).Resolve("", false), "SOCKET:localhost:5"}}) {
        EXPECT_EQ(resolved.ToString(), text);
    }
}

}  // namespace
