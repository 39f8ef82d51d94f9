// Moving a log out of the way, by size and by date.

#include "FileLogFixture.h"
#include "TestSupport/Test.h"

namespace vq::test {

namespace {

/// Noon of a day in the past, in local time: no day begins or ends nearby.
std::time_t NoonDaysAgo(int days) {
    std::time_t const now = std::time(nullptr);
    std::tm local = *std::localtime(&now);
    local.tm_mday -= days;
    local.tm_hour = 12;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

TEST_F(FileLogTest, RotatesBeforeAWriteThatWouldReachTheLimit) {
    handler->SetBuffered(false);
    handler->SetMaxFileSize(400);
    std::string const today = Dated(std::time(nullptr));
    for (char letter = 'a'; letter < 'e'; ++letter) {
        Log(std::string(200, letter));
    }
    EXPECT_THAT(Names(), ElementsAre("app" + today + "-0001.log", "app" + today + "-0002.log",
                                     "app" + today + ".log", "app.log"));
    EXPECT_THAT(Messages(directory + "app" + today + ".log"), ElementsAre("***", std::string(200, 'a')));
    EXPECT_THAT(Messages(directory + "app" + today + "-0002.log"), ElementsAre(std::string(200, 'c')));
    EXPECT_THAT(Messages(), ElementsAre(std::string(200, 'd')));
    std::vector<DatedLog> const logs = handler->GetLogsAtLocation();
    ASSERT_EQ(logs.size(), 4U);
    EXPECT_TRUE(std::is_sorted(logs.begin(), logs.end(),
                               [](DatedLog const& a, DatedLog const& b) { return a.time < b.time; }));
    EXPECT_THAT(handler->GetOldLogsAtLocation(), IsEmpty());

    handler->SetMaxFileSize(200);
    EXPECT_EQ(Messages().size(), 0U) << "a lower limit holds at once";
    EXPECT_EQ(Names().size(), 5U);
}

TEST_F(FileLogTest, RotatesAnOlderLogWhenItOpensIt) {
    std::time_t const before = NoonDaysAgo(3);
    std::ofstream(path) << "x <y~z> I [a] old\n";
    SetModified(path, before);
    std::ofstream(directory + "app-1-2.log").flush();
    std::ofstream(directory + "app.log.txt").flush();
    std::ofstream(directory + "appendix.log").flush();
    LogCapture const capture(LogLevel::Verbose);
    Log("new");
    std::string const rotated = "app" + Dated(before) + ".log";
    EXPECT_THAT(capture.Lines(), ElementsAre("V Moving old log file out of the way...",
                                             "V Rotating log into " + directory + rotated + "...",
                                             "V ... done!", "I Logging to " + path));
    EXPECT_THAT(Messages(directory + rotated), ElementsAre("old"));
    EXPECT_EQ(std::filesystem::file_size(directory + rotated), 18U);
    EXPECT_THAT(Messages(), ElementsAre("***", "new"));
    struct stat entry {};
    ASSERT_EQ(::stat((directory + rotated).c_str(), &entry), 0);
    EXPECT_EQ(entry.st_mtime, before);
    std::vector<DatedLog> const old = handler->GetOldLogsAtLocation();
    ASSERT_EQ(old.size(), 1U);
    EXPECT_EQ(old[0].path, directory + rotated);
    EXPECT_EQ(handler->GetLogsAtLocation().size(), 3U);
}

TEST_F(FileLogTest, TakesWhatIsBufferedToANewLocationBehindItsRotatedLog) {
    std::string const other = directory + "other.log";
    Log("one");
    EXPECT_EQ(Messages().size(), 2U);
    Log("two");
    Log("two");
    std::ofstream(other) << std::string(1000, 'x') << "\n";
    SetModified(other, NoonDaysAgo(1));
    handler->SetLocation(other);
    EXPECT_EQ(Messages().size(), 2U);
    Log("three");
    EXPECT_THAT(Messages(other), ElementsAre("two", "two (repeated 1 time)", "***", "three"));
    EXPECT_EQ(handler->GetLocation(), other);
}

TEST_F(FileLogTest, FinishesOrUndoesTheRotationOfAProcessThatDied) {
    std::time_t const before = NoonDaysAgo(1);
    std::string const copy = directory + ".app.rotated";
    std::string const dated = directory + "app" + Dated(before) + ".log";
    for (bool const emptied : {false, true}) {
        std::ofstream(copy) << "x <y~z> I [a] old\n";
        SetModified(copy, before);
        std::ofstream(path) << (emptied ? "" : "x <y~z> I [a] old\nx <y~z> I [a] more\n");
        Log(emptied ? "newer" : "new");
        if (emptied) {
            EXPECT_THAT(Messages(), ElementsAre("***", "newer"));
            EXPECT_THAT(Messages(dated), ElementsAre("old"));
        } else {
            EXPECT_THAT(Messages(), ElementsAre("old", "more", "***", "new"));
            EXPECT_FALSE(std::filesystem::exists(dated));
        }
        EXPECT_FALSE(std::filesystem::exists(copy));
        handler->Close();
    }
}

TEST_F(FileLogTest, GivesUpRotatingWhenAllNamesOfADayAreTaken) {
    std::string const today = Dated(std::time(nullptr));
    std::ofstream(directory + "app" + today + ".log").flush();
    for (int i = 1; i < 100; ++i) {
        char number[16];
        std::snprintf(number, sizeof number, "-%04d", i);
        std::ofstream(directory + "app" + today + number + ".log").flush();
    }
    LogCapture const capture;
    Log("kept");
    handler->Flush();
    handler->SetMaxFileSize(10);
    EXPECT_TRUE(capture.Has(LogLevel::Warning, "All 100 existing files at " + directory + std::string("app") +
                                                   today + ".log exist, cannot rotate"));
    Log("too");
    EXPECT_THAT(Messages(), ElementsAre("***", "kept", "too"));
    std::filesystem::remove(directory + "app" + today + "-0099.log");
    Log("room");
    EXPECT_THAT(Messages(), ElementsAre("room"));
}

TEST_F(FileLogTest, NamesTheLogOfAPathWithoutDotOrDirectory) {
    std::time_t const before = NoonDaysAgo(2);
    // The last one is not seen as old.
    std::vector<std::array<std::string, 3>> const cases = {
        {"./x.log", "x.log", "x" + Dated(before) + ".log"},
        {"y.tar.log", "y.tar.log", "y.tar" + Dated(before) + ".log"},
        {"plain", "plain", ""}};
    std::filesystem::path const working = std::filesystem::current_path();
    std::filesystem::current_path(directory);
    for (auto const& [location, full, rotated] : cases) {
        std::ofstream(full) << "x <y~z> I [a] old\n";
        SetModified(full, before);
        handler->SetLocation(location);
        EXPECT_EQ(handler->GetLocation(), full);
        Log("new");
        EXPECT_EQ(Messages(full).size(), rotated.empty() ? 3U : 2U);
        EXPECT_EQ(std::filesystem::exists(rotated), !rotated.empty()) << location;
    }
    handler->SetMaxFileSize(1);
    EXPECT_TRUE(std::filesystem::exists("plain" + Dated(std::time(nullptr))));
    EXPECT_THAT(handler->GetLogsAtLocation(), IsEmpty());
    std::filesystem::current_path(working);
}

}  // namespace

}  // namespace vq::test
