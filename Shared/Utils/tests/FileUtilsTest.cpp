#include <sys/stat.h>

#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"

namespace {

using std::chrono::seconds;

class FileUtilsTest : public testing::Test {
public:
    FileUtilsTest() : m_root(GetFullPath(vq::test::HomeDirectory()) + "files/") {
        std::filesystem::create_directory(m_root);
        std::filesystem::current_path(m_root);
    }
    ~FileUtilsTest() override { std::filesystem::remove_all(m_root); }

    /// Directories where the name ends in a slash, else files with something in them.
    static void Make(std::vector<std::string> const& names) {
        for (std::string const& name : names) {
            name.back() == '/' ? std::filesystem::create_directories(name)
                               : static_cast<bool>(std::ofstream(name) << "x");
        }
    }

    std::string const m_root;
};

TEST_F(FileUtilsTest, ResolvesPathsThatExistAndKeepsTheOthers) {
    Make({"a/b/", "c/"});
    std::filesystem::create_symlink("a", "link");
    std::string const tooLong(5000, 'x');
    for (auto const& [path, full] : {std::pair<std::string, std::string>{"a/../link/b", m_root + "a/b"},
                                     {"link/b/", m_root + "a/b/"},
                                     {"../none/../x", m_root + "../none/../x"},
                                     {m_root + "none/", m_root + "none/"},
                                     {tooLong, tooLong}}) {
        EXPECT_EQ(GetFullPath(path), full);
    }
    struct Case {
        std::string path, base, relative;
    };
    for (Case const& c : {Case{m_root + "a/b", m_root + "a", "b"},
                          {m_root + "a/b", m_root + "c", "../a/b"},
                          {m_root + "a/b", m_root + "a/b", "../b"},
                          {"/elsewhere" + m_root + "a/x", m_root + "a", "x"},
                          {m_root + "a", "/does/not/exist", m_root + "a"}}) {
        EXPECT_EQ(GetRelativePathTo(c.path, c.base), c.relative) << c.path << " from " << c.base;
    }
    // A path of more than a thousand bytes comes back unchanged.
    for (int i = 0; i < 6; ++i) {
        std::string const name(200, 'd');
        ASSERT_TRUE(CreateDirectoryPath(name));
        std::filesystem::current_path(name);
    }
    EXPECT_EQ(GetFullPath("."), ".");
    EXPECT_EQ(GetCurrentWorkingDirectory(), "");
    std::filesystem::current_path("/");
}

TEST_F(FileUtilsTest, MakesOneLevelAndTakesAnyEntryForIt) {
    Make({"file"});
    for (char const* path : {"new/", "new", "file", "/"}) {
        EXPECT_TRUE(CreateDirectoryPath(path)) << path;
    }
    std::filesystem::create_symlink("nowhere", "dangling");
    EXPECT_FALSE(CreateDirectoryPath("missing/new") || CreateDirectoryPath("dangling"));
    EXPECT_TRUE(DirectoryExists("new") && !FileExists("new"));
    EXPECT_TRUE(FileExists("file") && !DirectoryExists("file"));
    EXPECT_THAT(GetDirectoryEntries(m_root), testing::UnorderedElementsAre("new", "file", "dangling"));
    EXPECT_TRUE(GetDirectoryEntries("missing").empty());
}

TEST_F(FileUtilsTest, RemovesATreeWithoutFollowingItsLinksAndNamesWhatStays) {
    Make({"tree/deep/deeper/", "target/", "target/kept", "tree/deep/file", "odd/a/", "odd/b/", "odd/b/file"});
    std::filesystem::create_symlink(m_root + "target", "tree/deep/link");
    std::filesystem::create_symlink("nowhere", "tree/dangling");
    ASSERT_EQ(::mkfifo("odd/a/pipe", 0600), 0);
    std::ostringstream errors;
    EXPECT_TRUE(RemoveDirectoryTree(m_root + "tree", errors));
    EXPECT_TRUE(RemoveDirectoryTree(m_root + "tree", errors));
    EXPECT_FALSE(DirectoryExists("tree"));
    EXPECT_TRUE(FileExists("target/kept"));
    EXPECT_FALSE(RemoveDirectoryTree(m_root + "odd", errors));
    EXPECT_EQ(errors.str(), m_root + "odd/a/pipe (unknown file)\n" + m_root + "odd/a/ (failed to remove)\n" +
                                m_root + "odd/ (failed to remove)\n");
    EXPECT_FALSE(DirectoryExists("odd/b"));
}

TEST_F(FileUtilsTest, TheLockOfOneOpenExcludesAnotherUntilItIsReleased) {
    std::FILE* const own = OpenSharedFile("lock", "w+");
    std::FILE* const other = OpenSharedFile("lock", "r+");
    EXPECT_TRUE(LockFile(own, seconds::max()));
    bool timedOut = false;
    auto const start = std::chrono::steady_clock::now();
    EXPECT_FALSE(LockFile(other, seconds(1), &timedOut));
    EXPECT_TRUE(timedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, seconds(1));

    auto waiting = std::async(std::launch::async, [&] { return LockFile(other, seconds(300), &timedOut); });
    EXPECT_TRUE(LockFile(own, seconds::max() - seconds(1))) << "held by this open already";
    EXPECT_TRUE(UnlockFile(own));
    EXPECT_TRUE(waiting.get());
    EXPECT_FALSE(timedOut);
    std::fclose(own);
    std::fclose(other);
}

}  // namespace
