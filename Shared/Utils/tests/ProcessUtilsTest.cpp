#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "TestSupport/TestHome.h"
#include "Utils/OSUtils.h"

namespace {

using testing::ElementsAre;

// Writes a file with these permissions.
void WriteFile(std::string const& path, mode_t mode) {
    std::ofstream(path) << "x";
    ::chmod(path.c_str(), mode);
}

TEST(ProcessUtilsTest, KnowsTheRunningProgram) {
    EXPECT_EQ(GetExecutablePath(), std::filesystem::read_symlink("/proc/self/exe").string());
    EXPECT_EQ(GetExecutableName(), "platform_test");
    EXPECT_EQ(GetExecutableDirectory() + GetExecutableName(), GetExecutablePath());
}

TEST(ProcessUtilsTest, SearchesItsOwnDirectoryBeforeThePath) {
    ::setenv("PATH", "/first::/second", 1);
    EXPECT_THAT(GetExecutableSearchPath(), ElementsAre(GetExecutableDirectory(), "/first", "/second"));
    ::setenv("PATH", "/later", 1);
    EXPECT_EQ(GetExecutableSearchPath().back(), "/second");
    EXPECT_EQ(ResolveOnPath("platform_test"), GetExecutablePath());
    EXPECT_EQ(ResolveOnPath("no-such-program"), "no-such-program");
    EXPECT_EQ(ResolveOnPath("/no/such/program"), "/no/such/program");
}

TEST(ProcessUtilsTest, FindsTheFirstFileThatItsOwnerMayUse) {
    std::string const home = GetFullPath(vq::test::HomeDirectory());
    for (char const* name : {"one", "two", "one/directory"}) {
        std::filesystem::create_directories(home + name);
    }
    WriteFile(home + "one/tool", 0600);
    WriteFile(home + "two/tool", 0700);
    std::vector<std::string> const directories = {"/missing", home + "one", home + "two"};
    std::string found = "untouched";
    EXPECT_FALSE(ResolveOnPath(directories, "none", false, found));
    EXPECT_FALSE(ResolveOnPath(directories, "directory", false, found));
    EXPECT_FALSE(ResolveOnPath(directories, home + "one/tool", true, found));
    EXPECT_EQ(found, "untouched");
    EXPECT_TRUE(ResolveOnPath(directories, "tool", false, found));
    EXPECT_EQ(found, home + "one/tool");
    EXPECT_TRUE(ResolveOnPath(directories, "tool", true, found));
    EXPECT_EQ(found, home + "two/tool");
    EXPECT_TRUE(ResolveOnPath({}, home + "one/../two/tool", true, found));
    EXPECT_EQ(found, home + "two/tool");
}

TEST(ProcessUtilsTest, FindsSharedLibrariesByTheLoadersRules) {
    ::setenv("LD_LIBRARY_PATH", ":/a::/b", 1);
    EXPECT_THAT(GetSharedLibrarySearchPath(), ElementsAre("/a", "/b"));
    ::unsetenv("LD_LIBRARY_PATH");
    EXPECT_TRUE(GetSharedLibrarySearchPath().empty());
    EXPECT_THAT(GetSharedLibraryExtensions(), ElementsAre(".so", ""));
}

TEST(ProcessUtilsTest, MakesTheTemporaryDirectoryOnce) {
    std::string const expected = vq::test::HomeDirectory() + ".config/vqvds/";
    EXPECT_EQ(GetUserTempDirectory(), expected);
    EXPECT_TRUE(DirectoryExists(expected));
    ::setenv("HOME", "/elsewhere", 1);
    EXPECT_EQ(GetUserTempDirectory(), expected);
}

TEST(ProcessUtilsTest, ATemporaryDirectoryThatCannotBeMadeIsTriedAgain) {
    std::string const home = vq::test::HomeDirectory() + "missing/";
    ::setenv("HOME", home.c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(GetUserTempDirectory(), home);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to create directory '" + home + ".config' (No such file or directory)");
    std::filesystem::create_directories(home);
    std::ofstream(home + ".config") << "a file in the way";
    testing::internal::CaptureStderr();
    EXPECT_EQ(GetUserTempDirectory(), home + ".config/");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to create directory '" + home + ".config/vqvds' (Not a directory)");
    std::filesystem::remove(home + ".config");
    EXPECT_EQ(GetUserTempDirectory(), home + ".config/vqvds/");
}

TEST(ProcessUtilsTest, TakesDataRootsFromTheEnvironment) {
    EXPECT_FALSE(IsTestDataRootPathDefined());
    EXPECT_EQ(GetTestDataRootPath(), "test/");
    ::setenv("VQ_VDS_DATA", "/some/data", 1);
    ::setenv("VQ_VDS_TEST", "/some/test/", 1);
    EXPECT_EQ(GetDataRootPath(), "/some/data/");
    EXPECT_EQ(GetTestDataRootPath(), "/some/test/");
    EXPECT_TRUE(IsTestDataRootPathDefined());
    ::unsetenv("HOME");
    EXPECT_EQ(GetUserHomeDirectory(), EnsureDirectoryPath(GetCurrentWorkingDirectory()));
}

TEST(ProcessUtilsTest, RoundsSizesUpToPages) {
    std::size_t const page = GetPageSize();
    EXPECT_EQ(GetNextLargestPageSize(0), page);
    EXPECT_EQ(GetNextLargestPageSize(1), page);
    EXPECT_EQ(GetNextLargestPageSize(page), page);
    EXPECT_EQ(GetNextLargestPageSize(page + 1), 2 * page);
}

TEST(ProcessUtilsTest, ReadsTheKernelsRelease) {
    int major = -1;
    int minor = -1;
    EXPECT_TRUE(GetOSVersion(major, minor));
    std::ifstream release("/proc/sys/kernel/osrelease");
    int expectedMajor = 0;
    int expectedMinor = 0;
    char dot = 0;
    release >> expectedMajor >> dot >> expectedMinor;
    EXPECT_EQ(major, expectedMajor);
    EXPECT_EQ(minor, expectedMinor);
}

TEST(ProcessUtilsDeathTest, StandardInputIsNotAccessibleWhenClosedOrNull) {
    auto const check = [](char const* source) {
        ::close(STDIN_FILENO);
        if (source != nullptr && std::freopen(source, "r", stdin) == nullptr) {
            std::_Exit(9);
        }
        std::_Exit(IsStdinAccessible() ? 1 : 0);
    };
    EXPECT_EXIT(check(nullptr), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(check("/dev/null"), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(check("/dev/zero"), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(check("/proc/self/exe"), testing::ExitedWithCode(1), "");
}

}  // namespace
