#include "Utils/SharedMutex.h"

#include "TestSupport/LogCapture.h"
#include "TestSupport/Test.h"

namespace {

class SharedMutexTest : public testing::Test {
public:
    ~SharedMutexTest() override { m_mutex.Delete(); }
    std::string const m_name = "vqMutexTest." + std::to_string(::getpid());
    SharedMutex m_mutex{m_name};
};

TEST_F(SharedMutexTest, AHeldLockTimesOutAndAnybodyMayReleaseIt) {
    ASSERT_TRUE(m_mutex.Create());
    SharedMutex holder(m_name);
    ASSERT_TRUE(holder.Open() && holder.Lock() && holder.Close());
    bool timedOut = false;
    auto const start = std::chrono::steady_clock::now();
    EXPECT_FALSE(m_mutex.Lock(150ms, &timedOut));
    EXPECT_TRUE(timedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 150ms);
    timedOut = false;
    EXPECT_FALSE(m_mutex.Lock(0ms, &timedOut));
    EXPECT_TRUE(timedOut);
    EXPECT_FALSE(m_mutex.Lock(-5ms, nullptr));
    // A limit just below "none" is no representable number of the clock's units.
    for (auto const limit : {std::chrono::milliseconds(30s), std::chrono::milliseconds::max(),
                             std::chrono::milliseconds::max() - 1ms}) {
        EXPECT_TRUE(m_mutex.Unlock(1ms, &timedOut));
        EXPECT_TRUE(m_mutex.Lock(limit, &timedOut));
        EXPECT_FALSE(timedOut);
    }
}

TEST_F(SharedMutexTest, OperationsOutOfTurnAreRefusedWithTheirLine) {
    vq::test::LogCapture log(LogLevel::Trace);
    bool timedOut = true;
    EXPECT_FALSE(m_mutex.Exists() || m_mutex.Open() || m_mutex.Lock() || m_mutex.Lock(1ms, &timedOut) ||
                 timedOut);
    EXPECT_FALSE(m_mutex.Unlock() || m_mutex.Close());
    EXPECT_TRUE(m_mutex.Delete() && m_mutex.Create() && m_mutex.Exists());
    EXPECT_FALSE(m_mutex.Create() || m_mutex.Open());
    EXPECT_TRUE(m_mutex.Lock(1ms, nullptr));
    SharedMutex moved = std::move(m_mutex);
    EXPECT_TRUE(moved.Unlock() && moved.Delete());
    EXPECT_FALSE(SharedMutex("inner/slash").Create());
    EXPECT_TRUE(SharedMutex("inner/slash").Delete() && SharedMutex().Delete());
    EXPECT_EQ(log.Lines(),
              (Lines{"E Failed to open mutex " + m_name + ": No such file or directory",
                     "E Failed to lock mutex '" + m_name + "', not open",
                     "E Failed to lock mutex '" + m_name + "', not open",
                     "E Failed to unlock mutex '" + m_name + "', not open",
                     "E Failed to create Mutex '" + m_name + "', already open",
                     "E Failed to open mutex " + m_name + ", already open",
                     "T Locked shared mutex '" + m_name + "'", "T Unlocked shared mutex '" + m_name + "'",
                     "E Failed to create mutex 'inner/slash': Invalid argument"}));
}

}  // namespace
