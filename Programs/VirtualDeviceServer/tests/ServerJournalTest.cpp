#include "VirtualDeviceServer/ServerJournal.h"

#include "TestSupport/LogCapture.h"
#include "TestSupport/Table.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"

namespace vq::server {
namespace {

JournalContent Sample() {
    JournalContent content;
    content.memory = {
        .nextDeviceId = 12,
        .nextChannelId = 34,
        .nextApplicationId = 56,
        .devices = {{.id = 3, .name = "plain"}, {.id = 11, .name = std::string("odd \n%\t\0\xff name", 14)}}};
    content.addresses.events = MessageAddress::FromString("SOCKET:127.0.0.1:4001");
    content.addresses.dataEvents = MessageAddress::FromString("SOCKET:127.0.0.1:4002");
    content.addresses.heartbeat = MessageAddress::FromString("IPC:/tmp/with blank");
    content.addresses.memoryEvents = MessageAddress::FromString("LOOPBACK:x");
    return content;
}

TEST(ServerJournalTest, WhatWasWrittenIsReadByTheNextServer) {
    ServerJournal const journal(test::HomeDirectory() + "journal");
    EXPECT_EQ(journal.Read(), JournalContent()) << "no journal is a first life";
    EXPECT_TRUE(journal.Write(Sample()));
    EXPECT_EQ(journal.Read(), Sample());
    EXPECT_TRUE(journal.Write({}));
    EXPECT_EQ(journal.Read(), JournalContent()) << "a journal is replaced as a whole";
    EXPECT_FALSE(FileExists(test::HomeDirectory() + "journal.new"));
}

TEST(ServerJournalTest, EachServerHasAJournalOfItsOwn) {
    MessageAddress const address = MessageAddress::FromString("IPC:/tmp/a/b");
    std::string const path = ServerJournal::PathFor("x/y", address);
    EXPECT_EQ(GetDirectoryOf(path), GetUserTempDirectory());
    EXPECT_NE(path, ServerJournal::PathFor("x_y", address));
    EXPECT_NE(path, ServerJournal::PathFor("x/y", MessageAddress::FromString("IPC:/tmp/a_b")));
    std::string const longName(400, 'n');
    EXPECT_LT(GetFileNameOf(ServerJournal::PathFor(longName, address)).size(), 250U);
    EXPECT_NE(ServerJournal::PathFor(longName, address), ServerJournal::PathFor(longName + "n", address));
}

TEST(ServerJournalTest, AJournalCutAnywhereKeepsWhatStandsBeforeTheCut) {
    std::string const text = ServerJournal::Serialize(Sample());
    for (std::size_t length = 0; length < text.size() - 1; ++length) {
        JournalContent content;
        EXPECT_FALSE(ServerJournal::Parse(text.substr(0, length), content)) << length;
        for (KnownDevice const& device : content.memory.devices) {
            EXPECT_LT(device.id, content.memory.nextDeviceId) << "an id would be given out twice";
        }
    }
    JournalContent content;
    EXPECT_FALSE(ServerJournal::Parse(text.substr(0, text.find("heartbeat")), content));
    EXPECT_EQ(content.memory.nextDeviceId, 12);
    EXPECT_EQ(content.addresses.events, Sample().addresses.events);
}

TEST(ServerJournalTest, DamagedLinesAreRefused) {
    for (auto const& [line] : Rows<1>("ServerJournal", "damaged")) {
        JournalContent content;
        std::string const text = "vdserver-journal 1\n" + line + "\nend\n";
        EXPECT_FALSE(ServerJournal::Parse(text, content)) << line;
        EXPECT_EQ(content.memory, ServerMemory()) << line;
    }
    JournalContent content;
    EXPECT_FALSE(ServerJournal::Parse("vdserver-journal 1\nend\nmore\n", content));
    EXPECT_FALSE(ServerJournal::Parse(std::string(100, '\0'), content));
}

TEST(ServerJournalTest, NoiseIsReportedAndDoesNotKeepTheServerFromStarting) {
    std::string const path = test::HomeDirectory() + "noise";
    std::ofstream(path) << std::string(5000, '\x80');
    test::LogCapture const log;
    EXPECT_EQ(ServerJournal(path).Read(), JournalContent());
    EXPECT_TRUE(log.Has(LogLevel::Warning, "damaged"));
    EXPECT_FALSE(ServerJournal(test::HomeDirectory() + "missing/journal").Write({}));
    EXPECT_TRUE(log.Has(LogLevel::Error, "Failed to write the journal"));
}

}  // namespace
}  // namespace vq::server
