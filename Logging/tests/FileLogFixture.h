#pragma once

#include <sys/stat.h>
#include <utime.h>

#include "Logging/FileLogHandler.h"
#include "MakeRecord.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "Utils/TextUtils.h"

namespace vq::test {

/// A file log in a directory of its own, outside the process-wide configuration.
class FileLogTest : public testing::Test {
public:
    FileLogTest() {
        std::filesystem::create_directory(directory);
        handler->SetLocation(path);
    }
    ~FileLogTest() override {
        handler.reset();
        std::filesystem::remove_all(directory);
    }

    static LogRecord MakeRecord(std::string text) {
        LogRecord record = ::MakeRecord(LogLevel::Info, std::move(text), "Send");
        record.time = LogTimePoint{std::chrono::microseconds(1'600'000'000'007'999)};
        return record;
    }
    void Log(std::string text) { handler->Log(MakeRecord(std::move(text))); }
    /// Flushes, and gives what records left in a file: for each line what stands behind the location. Banners
    /// are "***".
    std::vector<std::string> Messages(std::string const& file) {
        handler->Flush();
        std::vector<std::string> messages;
        for (std::string const& line : SplitLines(ReadFile(file), false)) {
            std::size_t const location = line.find("] ");
            messages.push_back(line.starts_with("*** ")        ? "***"
                               : location != std::string::npos ? line.substr(location + 2)
                                                               : "torn: " + line);
        }
        return messages;
    }
    std::vector<std::string> Messages() { return Messages(path); }

    /// Names in the directory without hidden ones.
    std::set<std::string> Names() const {
        std::set<std::string> names;
        for (auto const& entry : std::filesystem::directory_iterator(directory)) {
            names.insert(entry.path().filename());
        }
        std::erase_if(names, [](std::string const& name) { return name.front() == '.'; });
        return names;
    }
    /// Of messages "WRITER NUMBER" in all files: the sorted numbers of each writer. Others count as well, by
    /// their first word: "***" and "torn:".
    std::map<std::string, std::multiset<int>> Count() {
        std::map<std::string, std::multiset<int>> numbers;
        for (std::string const& name : Names()) {
            for (std::string const& message : Messages(directory + name)) {
                std::string const writer = message.substr(0, message.find(' '));
                numbers[writer].insert(std::atoi(message.c_str() + writer.size()));
            }
        }
        return numbers;
    }
    static std::multiset<int> AllBelow(int count) {
        std::multiset<int> numbers;
        while (count > 0) {
            numbers.insert(--count);
        }
        return numbers;
    }

    static void SetModified(std::string const& file, std::time_t time) {
        utimbuf const both{time, time};
        ASSERT_EQ(::utime(file.c_str(), &both), 0);
    }
    static std::string Dated(std::time_t time) {
        char text[16];
        return {text, std::strftime(text, sizeof text, "-%Y%m%d", std::localtime(&time))};
    }

    std::string const directory = HomeDirectory() + "logs/";
    std::string const path = directory + "app.log";
    LogConfig config{false};
    std::unique_ptr<FileLogHandler> handler = std::make_unique<FileLogHandler>(config);
};

}  // namespace vq::test
