#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"
#include "Utils/OSUtils.h"
#include "Utils/SharedMemoryMmap.h"

namespace {

using Access = SharedMemory::Access;

std::string PathOf(std::string const& file) {
    return GetUserTempDirectory() + file;
}

void WriteFileOf(std::string const& file, std::string const& contents) {
    std::ofstream(PathOf(file), std::ios::binary) << contents;
}

off_t LengthOf(std::string const& file) {
    struct stat status {};
    return ::stat(PathOf(file).c_str(), &status) == 0 ? status.st_size : -1;
}

auto const kPage = static_cast<off_t>(GetPageSize());

TEST(SharedMemoryTest, ABlockIsSharedByNameAndOutlivesItsObjects) {
    {
        SharedMemoryMmap writer("some/block", 100);
        ASSERT_FALSE(writer.Exists());
        ASSERT_TRUE(writer.Create());
        std::strcpy(static_cast<char*>(writer.Attach(Access::ReadWrite)), "hello");
        SharedMemoryMmap reader("some_block", 100);
        ASSERT_TRUE(reader.Open());
        EXPECT_STREQ(static_cast<char*>(reader.Attach(Access::Read)), "hello");
        SharedMemoryMmap moved = std::move(writer);
        EXPECT_TRUE(moved.IsAttached());
        // NOLINTNEXTLINE(bugprone-use-after-move): what is left of it is closed
        EXPECT_FALSE(writer.IsAttached());
        EXPECT_FALSE(writer.Close());
    }
    SharedMemoryMmap later("some/block", 100);
    EXPECT_EQ(LengthOf("some_block"), kPage);
    ASSERT_TRUE(later.Create());
    EXPECT_STREQ(static_cast<char*>(later.Attach(Access::Read)), "hello");
    EXPECT_TRUE(later.Delete());
    EXPECT_FALSE(later.IsAttached());
    vq::test::LogCapture log;
    EXPECT_FALSE(later.Delete());
    EXPECT_TRUE(log.Lines().empty());
}

TEST(SharedMemoryTest, OpeningFollowsTheStateOfTheFile) {
    struct Case {
        char const* what;
        off_t before;  // -1: no file
        std::uint64_t size;
        off_t after;
        char const* line;
    };
    Case const cases[] = {
        {"no file", -1, 10, -1, "Failed to open shared memory block 'b' at '"},
        {"left empty by a crash", 0, 10, kPage, nullptr},
        {"cut within the page", 100, 10, kPage, nullptr},
        {"longer", 3 * kPage, 10, 3 * kPage, nullptr},
        {"a page short", kPage, 5000, kPage, " is smaller than expected: 4096 vs 8192)"},
        {"cut in the last page", kPage + 1, 5000, 2 * kPage, nullptr},
        {"size 0 takes a page", 0, 0, kPage, nullptr},
    };
    for (Case const& c : cases) {
        RemoveFile(PathOf("b"));
        if (c.before >= 0) {
            WriteFileOf("b", std::string(static_cast<std::size_t>(c.before), 'x'));
        }
        vq::test::LogCapture log;
        SharedMemoryMmap block("b", c.size);
        EXPECT_EQ(block.Open(), c.before >= 0) << c.what;
        EXPECT_EQ(LengthOf("b"), c.after) << c.what;
        EXPECT_EQ(log.Lines().size(), c.line != nullptr ? 1u : 0u) << c.what;
        EXPECT_TRUE(c.line == nullptr || log.Has(LogLevel::Error, c.line)) << c.what;
    }
}

TEST(SharedMemoryTest, OperationsOutOfTurnAreRefusedWithTheirLine) {
    vq::test::LogCapture log;
    SharedMemoryMmap block("turns", 1);
    EXPECT_EQ(block.Attach(Access::None), nullptr);
    EXPECT_FALSE(block.Resize(10));
    EXPECT_FALSE(block.Close());
    EXPECT_TRUE(block.Create());
    EXPECT_FALSE(block.Create());
    EXPECT_TRUE(block.Open());
    void* const first = block.Attach(Access::Read);
    EXPECT_EQ(block.Attach(Access::Read), first);
    EXPECT_FALSE(block.Resize(10));
    EXPECT_NE(block.Attach(Access::ReadWrite), nullptr);
    EXPECT_EQ(block.GetAccess(), Access::ReadWrite);
    EXPECT_TRUE(block.Detach());
    EXPECT_FALSE(block.Detach());
    EXPECT_TRUE(block.Resize(4000));
    EXPECT_EQ(block.GetSize(), 4000u);
    EXPECT_EQ(LengthOf("turns"), kPage);
    EXPECT_FALSE(block.Resize(std::uint64_t{1} << 62));
    EXPECT_EQ(block.GetSize(), 4000u);
    EXPECT_EQ(LengthOf("turns"), kPage);
    EXPECT_TRUE(block.Resize(0));
    EXPECT_EQ(block.Attach(Access::Read), nullptr);
    EXPECT_EQ(log.Lines(),
              (Lines{"E Passing Access==None to SharedMemory::Attach, returning nullptr",
                     "E Failed to resize shared memory as no such file exists",
                     "E Failed to create shared memory block 'turns', already open",
                     "E Failed to open shared memory block 'turns', already open",
                     "E Failed to resize mapped memory -- Detach() first",
                     "E Failed to resize to 4611686018427387904 bytes the shared memory block 'turns' at '" +
                         PathOf("turns") + "': File too large"}));
}

TEST(SharedMemoryTest, AnUnknownTypeGivesABlockThatRefusesAll) {
    vq::test::LogCapture log;
    auto const block = SharedMemoryFactory::Make("odd", 1, static_cast<SharedMemoryType>(7));
    EXPECT_EQ(log.Lines(), (Lines{"E BUG: unhandled memory type: ??? (7)"}));
    EXPECT_FALSE(block->Create() || block->Open() || block->Exists() || block->Resize(2) || block->Close() ||
                 block->Detach() || block->Delete() || block->Attach(Access::Read) != nullptr);
}

TEST(SharedMemoryTest, AFullDiskIsAnErrorAndNotAFault) {
    std::string const directory = GetUserTempDirectory();
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=16k") != 0) {
        GTEST_SKIP() << "needs the right to mount";
    }
    WriteFileOf("filler", std::string(static_cast<std::size_t>(4 * kPage), 'x'));
    vq::test::LogCapture log;
    SharedMemoryMmap created("full", 100);
    EXPECT_FALSE(created.Create());
    created.Close();
    SharedMemoryMmap opened("full", 100);
    EXPECT_FALSE(opened.Open());
    std::string const where =
        "shared memory block 'full' at '" + PathOf("full") + "': No space left on device";
    EXPECT_EQ(log.Lines(), (std::vector{"E Failed to allocate 4096 bytes for " + where,
                                        "E Failed to allocate space for " + where}));
    EXPECT_EQ(LengthOf("full"), 0);
    RemoveFile(PathOf("filler"));
    EXPECT_TRUE(opened.Open());
    EXPECT_FALSE(opened.Resize(100000));
    EXPECT_EQ(opened.GetSize(), 100u);
    EXPECT_EQ(LengthOf("full"), kPage);
    EXPECT_EQ(::umount2(directory.c_str(), MNT_DETACH), 0);
}

}  // namespace
