#include "Messaging/MessageAddress.h"

#include <gtest/gtest.h>

#include "Messaging/SocketTypes.h"
#include "Messaging/TransportProvider.h"
#include "TestSupport/TestHome.h"

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
        {"IPC:default?sparseDevice.audio", {"default", Transport::IPC, "sparseDevice.audio"}, -1, nullptr},
        {"IPC:x:80", {"x:80", Transport::IPC, ""}, -1, nullptr},
        {"IPC:x?", {"x", Transport::IPC, ""}, -1, "IPC:x"},
        {"LOOPBACK:", {"", Transport::LOOPBACK, ""}, -1, nullptr},
        {"NONE:", {}, -1, nullptr},
        {"NONE:abc", {"abc", Transport::NONE, ""}, -1, nullptr},
        {"", {}, -1, "NONE:"},
        {"17975", {}, -1, "NONE:"},
        {"a?SOCKET:x", {}, -1, "NONE:"},
        {"socket:localhost:1", {}, -1, "NONE:"},
        {" IPC:x", {}, -1, "NONE:"},
    };
    for (Case const& c : cases) {
        MessageAddress const address = MessageAddress::FromString(c.text);
        EXPECT_EQ(address, c.address) << c.text;
        EXPECT_EQ(address.ExtractPort(), c.port) << c.text;
        EXPECT_EQ(address.ToString(), c.written != nullptr ? c.written : c.text);
    }
    EXPECT_EQ((MessageAddress{"x", static_cast<Transport>(-7), "n"}.ToString()), "-7:x?n");
}

TEST(MessageAddressTest, OnlyAnUnknownTransportWordIsLogged) {
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    MessageAddress::FromString("no colon");
    MessageAddress::FromString("Ipc:x");
    std::string const output =
        testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    EXPECT_NE(output.find("Invalid MessageAddress: Ipc:x"), std::string::npos) << output;
    EXPECT_EQ(output.find("no colon"), std::string::npos) << output;
}

TEST(MessageAddressTest, ALogicalNameResolvesUnderItsLocation) {
    std::string const temp = vq::test::HomeDirectory() + ".config/vqvds/";
    EXPECT_EQ(ZMQLoopbackAddressProvider("").Resolve("n", false),
              (MessageAddress{"_.n", Transport::LOOPBACK, ""}));
    EXPECT_EQ(ZMQLoopbackAddressProvider("a").Resolve("", true),
              (MessageAddress{"a", Transport::LOOPBACK, ""}));
    EXPECT_EQ(ZMQIPCAddressProvider("/tmp/s").Resolve("a/b/c", false),
              (MessageAddress{"/tmp/s.a_b_c", Transport::IPC, ""}));
    EXPECT_EQ(ZMQIPCAddressProvider("default").Resolve("", false),
              (MessageAddress{temp + "default", Transport::IPC, ""}));
    EXPECT_EQ(ZMQIPCAddressProvider("").Resolve("n", true),
              (MessageAddress{temp + "_.n", Transport::IPC, ""}));
    EXPECT_EQ(ZMQSocketAddressProvider("", 5).Resolve("", false),
              (MessageAddress{"localhost:5", Transport::SOCKET, ""}));
}

TEST(MessageAddressTest, ATcpNameKeepsItsPortUntilItIsForcedToMove) {
    ZMQSocketAddressProvider provider("host", 80);
    MessageAddress const first = provider.Resolve("a", false);
    EXPECT_GT(first.ExtractPort(), 0);
    EXPECT_EQ(provider.Resolve("a", false), first);
    // The system may give the same free port again; what counts is that the later answer repeats the forced
    // one.
    MessageAddress const moved = provider.Resolve("a", true);
    EXPECT_EQ(provider.Resolve("a", false), moved);
    MessageAddress const movedHome = provider.Resolve("", true);
    EXPECT_NE(movedHome.ExtractPort(), 80);
    EXPECT_EQ(provider.Resolve("", false), movedHome);
}

TEST(MessageAddressTest, SocketTypesPairUpAndRefuseOtherNumbers) {
    for (int type = 0; type < 12; ++type) {
        EXPECT_EQ(SocketTypes::GetOppositeType(SocketTypes::GetOppositeType(type)), type);
    }
    EXPECT_EQ(SocketTypes::GetTypeName(SocketTypes::GetOppositeType(3)), "ZMQ_REP");
    EXPECT_EQ(SocketTypes::GetTypeName(12), "12");
    EXPECT_EQ(SocketTypes::GetTypeName(-1), "-1");
    EXPECT_DEATH(SocketTypes::GetOppositeType(12), "");
    EXPECT_DEATH(SocketTypes::GetOppositeType(-1), "");
}

}  // namespace
