#pragma once

// What nearly every test needs: the framework, its HOME, and the everyday parts of the standard library.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "TestSupport/TestHome.h"

using namespace std::chrono_literals;
using testing::AllOf, testing::Contains, testing::ElementsAre, testing::EndsWith, testing::HasSubstr;
using testing::IsEmpty, testing::Not, testing::StartsWith;

/// Lines of a log, for one.
using Lines = std::vector<std::string>;

namespace vq::test {

/// All of a file; empty when there is none.
inline std::string ReadFile(std::string const& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

/// Memory that a process has in use, in MiB.
inline double ResidentMiB(pid_t pid) {
    std::istringstream pages(ReadFile("/proc/" + std::to_string(pid) + "/statm"));
    double total = 0;
    double resident = 0;
    pages >> total >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1 << 20);
}

/// Threads of a process. One that has been joined stays in sight for a moment longer and does not count.
inline std::ptrdiff_t CountThreads(pid_t pid) {
    constexpr unsigned kExiting = 4;  // PF_EXITING
    std::ptrdiff_t count = 0;
    for (auto const& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::string const status = ReadFile(thread.path() / "stat");
        std::istringstream fields(status.substr(status.rfind(')') + 1));
        std::string skipped;
        for (int i = 0; i < 6; ++i) {
            fields >> skipped;
        }
        unsigned flags = kExiting;
        fields >> flags;
        count += (flags & kExiting) == 0;
    }
    return count;
}

}  // namespace vq::test
