#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "TestSupport/TestHome.h"
#include "Utils/FileDescriptor.h"
#include "Utils/OSUtils.h"

namespace {

using std::chrono::seconds;
using testing::UnorderedElementsAre;

void WriteFile(std::string const& path, std::string const& text = "x") {
    std::ofstream(path) << text;
}

class FileUtilsTest : public testing::Test {
protected:
    FileUtilsTest() : m_root(GetFullPath(vq::test::HomeDirectory()) + "files/") {
        std::filesystem::create_directory(m_root);
    }
    ~FileUtilsTest() override { std::filesystem::remove_all(m_root); }

    std::string const m_root;
};

TEST_F(FileUtilsTest, ResolvesPathsThatExistAndKeepsTheOthers) {
    std::filesystem::create_directories(m_root + "a/b");
    std::filesystem::create_symlink("a", m_root + "link");
    std::filesystem::current_path(m_root);
    std::string const working = GetCurrentWorkingDirectory();
    EXPECT_EQ(EnsureDirectoryPath(working), m_root);
    std::string const tooLong(5000, 'x');
    struct Case {
        std::string path;
        std::string full;
    };
    Case const cases[] = {
        {"a/../link/b", m_root + "a/b"},
        {"link/b/", m_root + "a/b/"},
        {"../none/../x", m_root + "../none/../x"},
        {"none/", m_root + "none/"},
        {m_root + "none/../x", m_root + "none/../x"},
        {tooLong, tooLong},
    };
    for (Case const& c : cases) {
        EXPECT_EQ(GetFullPath(c.path), c.full);
    }
}

TEST_F(FileUtilsTest, APathOfMoreThanAThousandBytesComesBackUnchanged) {
    std::filesystem::current_path(m_root);
    for (int i = 0; i < 6; ++i) {
        std::string const name(200, 'd');
        ASSERT_TRUE(CreateDirectoryPath(name));
        std::filesystem::current_path(name);
    }
    EXPECT_EQ(GetFullPath("."), ".");
    EXPECT_EQ(GetCurrentWorkingDirectory(), "");
    std::filesystem::current_path("/");
}

TEST_F(FileUtilsTest, GivesRelativePaths) {
    std::filesystem::create_directories(m_root + "a/b");
    std::filesystem::create_directories(m_root + "c");
    struct Case {
        std::string path;
        std::string base;
        std::string relative;
    };
    Case const cases[] = {
        {m_root + "a/b", m_root + "a", "b"},
        {m_root + "a/b", m_root + "c", "../a/b"},
        {m_root + "a/b", m_root + "a/b", "../b"},
        {"/elsewhere" + m_root + "a/x", m_root + "a", "x"},
        {m_root + "a", "/does/not/exist", m_root + "a"},
    };
    for (Case const& c : cases) {
        EXPECT_EQ(GetRelativePathTo(c.path, c.base), c.relative) << c.path << " from " << c.base;
    }
}

TEST_F(FileUtilsTest, MakesOneLevelAndTakesAnyEntryForIt) {
    WriteFile(m_root + "file");
    EXPECT_TRUE(CreateDirectoryPath(m_root + "new/"));
    EXPECT_TRUE(CreateDirectoryPath(m_root + "new"));
    EXPECT_TRUE(CreateDirectoryPath(m_root + "file"));
    EXPECT_TRUE(CreateDirectoryPath("/"));
    EXPECT_FALSE(CreateDirectoryPath(m_root + "missing/new"));
    EXPECT_TRUE(DirectoryExists(m_root + "new") && !FileExists(m_root + "new"));
    EXPECT_TRUE(FileExists(m_root + "file") && !DirectoryExists(m_root + "file"));
    EXPECT_THAT(GetDirectoryEntries(m_root), UnorderedElementsAre("new", "file"));
    EXPECT_TRUE(GetDirectoryEntries(m_root + "missing").empty());
}

TEST_F(FileUtilsTest, RemovesATreeWithoutFollowingItsLinks) {
    std::filesystem::create_directories(m_root + "tree/deep/deeper");
    std::filesystem::create_directories(m_root + "target");
    WriteFile(m_root + "target/kept");
    WriteFile(m_root + "tree/deep/file");
    std::filesystem::create_symlink(m_root + "target", m_root + "tree/deep/link");
    std::filesystem::create_symlink("nowhere", m_root + "tree/dangling");
    std::ostringstream errors;
    EXPECT_TRUE(RemoveDirectoryTree(m_root + "tree", errors));
    EXPECT_TRUE(RemoveDirectoryTree(m_root + "tree", errors));
    EXPECT_EQ(errors.str(), "");
    EXPECT_FALSE(DirectoryExists(m_root + "tree"));
    EXPECT_TRUE(FileExists(m_root + "target/kept"));
}

TEST_F(FileUtilsTest, NamesWhatItCouldNotRemoveAndRemovesTheRest) {
    std::filesystem::create_directories(m_root + "tree/a");
    std::filesystem::create_directories(m_root + "tree/b");
    ASSERT_EQ(::mkfifo((m_root + "tree/a/pipe").c_str(), 0600), 0);
    WriteFile(m_root + "tree/b/file");
    std::ostringstream errors;
    EXPECT_FALSE(RemoveDirectoryTree(m_root + "tree", errors));
    EXPECT_EQ(errors.str(), m_root + "tree/a/pipe (unknown file)\n" + m_root +
                                "tree/a/ (failed to remove)\n" + m_root + "tree/ (failed to remove)\n");
    EXPECT_FALSE(DirectoryExists(m_root + "tree/b"));
}

TEST_F(FileUtilsTest, ResizesWhatHasBeenWritten) {
    std::FILE* const file = OpenSharedFile(m_root + "file", "w+");
    ASSERT_NE(file, nullptr);
    std::fputs("12345", file);
    EXPECT_TRUE(ResizeFile(file, 3));
    EXPECT_EQ(std::filesystem::file_size(m_root + "file"), 3U);
    std::fclose(file);
    std::uint64_t space = 0;
    EXPECT_TRUE(GetDiskFreeSpaceFile(m_root + "file", space));
    EXPECT_GT(space, 0U);
    EXPECT_FALSE(GetDiskFreeSpaceFile(m_root + "missing/file", space));
    EXPECT_EQ(space, 0U);
}

TEST_F(FileUtilsTest, TheLockExcludesAnotherProcessUntilItIsReleased) {
    std::FILE* const file = OpenSharedFile(m_root + "lock", "w+");
    int held[2];
    int release[2];
    ASSERT_EQ(::pipe(held) + ::pipe(release), 0);
    pid_t const child = ::fork();
    if (child == 0) {
        std::FILE* const own = OpenSharedFile(m_root + "lock", "r+");
        bool const locked = LockFile(own, seconds::max());
        ssize_t const told = ::write(held[1], locked ? "y" : "n", 1);
        char byte = 0;
        ::close(release[1]);
        ::_exit(told == 1 && ::read(release[0], &byte, 1) == 0 && UnlockFile(own) ? 0 : 1);
    }
    ::close(release[0]);
    FileDescriptor releaser(release[1]);
    char answer = 0;
    ASSERT_EQ(::read(held[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y');

    bool timedOut = false;
    auto const start = std::chrono::steady_clock::now();
    EXPECT_FALSE(LockFile(file, seconds(1), &timedOut));
    EXPECT_TRUE(timedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, seconds(1));

    releaser.Reset();
    EXPECT_TRUE(LockFile(file, seconds(300), &timedOut));
    EXPECT_FALSE(timedOut);
    EXPECT_TRUE(LockFile(file, seconds::max() - seconds(1))) << "held by this open already";
    EXPECT_TRUE(UnlockFile(file));
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    std::fclose(file);
}

}  // namespace
