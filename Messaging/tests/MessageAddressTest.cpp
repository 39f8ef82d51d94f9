#include "Messaging/MessageAddress.h"

#include "Messaging/TransportProvider.h"
#include "TestSupport/Test.h"

namespace {

using Transport = MessageAddress::Transport;

TEST(MessageAddressTest, TextFormsAreReadAndWrittenBack) {
    struct Case {
        char const* text;
        MessageAddress address;
        int port;
        char const* written;
    };
    Case const cases[] = {
        {"SOCKET:localhost:5555", {"localhost:5555", Transport::SOCKET, ""}, 5555, nullptr},
        {"SOCKET:localhost:5555?dev", {"localhost:5555", Transport::SOCKET, "dev"}, -1, nullptr},
        {"SOCKET:::1:80", {"::1:80", Transport::SOCKET, ""}, 80, nullptr},
        {"SOCKET:host:abc", {"host:abc", Transport::SOCKET, ""}, 0, nullptr},
        {"SOCKET:host", {"host", Transport::SOCKET, ""}, -1, nullptr},
        {"SOCKET:", {"", Transport::SOCKET, ""}, -1, nullptr},
        {"IPC:/tmp/x?a?b", {"/tmp/x", Transport::IPC, "a?b"}, -1, nullptr},
        {"IPC:x:80", {"x:80", Transport::IPC, ""}, -1, nullptr},
        {"IPC:x?", {"x", Transport::IPC, ""}, -1, "IPC:x"},
        {"LOOPBACK:", {"", Transport::LOOPBACK, ""}, -1, nullptr},
        {"NONE:abc", {"abc", Transport::NONE, ""}, -1, nullptr},
        {"", {}, -1, "NONE:"},
        {"17975", {}, -1, "NONE:"},
        {"a?SOCKET:x", {}, -1, "NONE:"},
        {"socket:localhost:1", {}, -1, "NONE:"},
        {" IPC:x", {}, -1, "NONE:"},
    };
    testing::internal::CaptureStderr();
    for (Case const& c : cases) {
        MessageAddress const address = MessageAddress::FromString(c.text);
        EXPECT_EQ(address, c.address) << c.text;
        EXPECT_EQ(address.ExtractPort(), c.port) << c.text;
        EXPECT_EQ(address.ToString(), c.written != nullptr ? c.written : c.text);
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

TEST(MessageAddressTest, ATcpNameKeepsItsPortUntilItIsForcedToMove) {
    ZMQSocketAddressProvider provider("host", 80);
    MessageAddress const first = provider.Resolve("a", false);
    EXPECT_GT(first.ExtractPort(), 0);
    EXPECT_EQ(provider.Resolve("a", false), first);
    // The system may give the same free port again: what counts is that the later answer repeats the forced
    // one.
    for (char const* name : {"a", ""}) {
        MessageAddress const moved = provider.Resolve(name, true);
        EXPECT_NE(moved.ExtractPort(), 80);
        EXPECT_EQ(provider.Resolve(name, false), moved);
    }
}

}  // namespace
