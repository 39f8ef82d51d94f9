#include <fcntl.h>

#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"

namespace {

TEST(ProcessUtilsTest, SearchesItsOwnDirectoryBeforeThePath) {
    EXPECT_EQ(GetExecutableDirectory() + "platform_test",
              std::filesystem::read_symlink("/proc/self/exe").string());
    ::setenv("PATH", "/first::/second", 1);
    EXPECT_THAT(GetExecutableSearchPath(), ElementsAre(GetExecutableDirectory(), "/first", "/second"));
    ::setenv("PATH", "/later", 1);
    EXPECT_EQ(GetExecutableSearchPath().back(), "/second");
    EXPECT_EQ(ResolveOnPath("platform_test"), GetExecutablePath());
    EXPECT_EQ(ResolveOnPath("no-such-program"), "no-such-program");
    ::setenv("LD_LIBRARY_PATH", ":/a::/b", 1);
    EXPECT_THAT(GetSharedLibrarySearchPath(), ElementsAre("/a", "/b"));
    ::unsetenv("LD_LIBRARY_PATH");
    EXPECT_TRUE(GetSharedLibrarySearchPath().empty());
}

TEST(ProcessUtilsTest, FindsTheFirstFileThatItsOwnerMayUse) {
    std::string const home = GetFullPath(vq::test::HomeDirectory());
    for (char const* name : {"one", "two", "one/directory"}) {
        std::filesystem::create_directories(home + name);
    }
    std::ofstream(home + "one/tool") << "x";
    std::ofstream(home + "two/tool") << "x";
    std::filesystem::permissions(home + "two/tool", std::filesystem::perms::owner_all);
    std::vector<std::string> const directories = {"/missing", home + "one", home + "two"};
    std::string found = "untouched";
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

TEST(ProcessUtilsTest, TheTemporaryDirectoryIsTriedUntilItCanBeMadeAndThenKept) {
    std::string const home = vq::test::HomeDirectory() + "missing/";
    ::setenv("HOME", home.c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(GetUserTempDirectory(), home);
    std::filesystem::create_directories(home);
    std::ofstream(home + ".config") << "a file in the way";
    EXPECT_EQ(GetUserTempDirectory(), home + ".config/");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to create directory '" + home + ".config' (No such file or directory)" +
                  "Failed to create directory '" + home + ".config/vqvds' (Not a directory)");
    std::filesystem::remove(home + ".config");
    EXPECT_EQ(GetUserTempDirectory(), home + ".config/vqvds/");
    EXPECT_TRUE(DirectoryExists(home + ".config/vqvds/"));
    ::setenv("HOME", "/elsewhere", 1);
    EXPECT_EQ(GetUserTempDirectory(), home + ".config/vqvds/");
}

TEST(ProcessUtilsTest, TakesDataRootsFromTheEnvironment) {
    EXPECT_EQ(GetTestDataRootPath(), "test/");
    ::setenv("VQ_VDS_DATA", "/some/data", 1);
    ::setenv("VQ_VDS_TEST", "/some/test/", 1);
    EXPECT_EQ(GetDataRootPath() + GetTestDataRootPath(), "/some/data//some/test/");
    ::unsetenv("HOME");
    std::filesystem::current_path("/usr");
    EXPECT_EQ(GetUserHomeDirectory(), EnsureDirectoryPath(GetCurrentWorkingDirectory()));
}

TEST(ProcessUtilsTest, StandardInputIsNotAccessibleWhenClosedOrNull) {
    ::close(STDIN_FILENO);
    EXPECT_FALSE(IsStdinAccessible());
    for (std::string const source : {"/dev/null", "/dev/zero", "/proc/self/exe"}) {
        ASSERT_EQ(::open(source.c_str(), O_RDONLY), STDIN_FILENO);
        EXPECT_EQ(IsStdinAccessible(), source != "/dev/null") << source;
        ::close(STDIN_FILENO);
    }
}

}  // namespace
