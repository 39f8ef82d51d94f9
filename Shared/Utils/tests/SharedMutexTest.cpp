#include "Utils/SharedMutex.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "TestSupport/LogCapture.h"

namespace {

using namespace std::chrono_literals;

std::string UniqueName() {
    return "vqMutexTest." + std::to_string(::getpid());
}

/// A process that takes the mutex and dies with it when told to.
class Holder {
public:
    explicit Holder(std::string const& name) {
        int ready[2];
        if (::pipe(ready) != 0) {
            return;
        }
        m_child = ::fork();
        if (m_child == 0) {
            SharedMutex mutex(name);
            if (!mutex.Open() || !mutex.Lock() || ::write(ready[1], "L", 1) != 1) {
                ::_exit(1);
            }
            ::pause();
            ::_exit(0);
        }
        char letter = 0;
        ::close(ready[1]);
        m_holds = ::read(ready[0], &letter, 1) == 1;
        ::close(ready[0]);
    }
    ~Holder() {
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
    }
    Holder(Holder const&) = delete;
    Holder& operator=(Holder const&) = delete;
    bool Holds() const { return m_holds; }

private:
    pid_t m_child = -1;
    bool m_holds = false;
};

class SharedMutexTest : public testing::Test {
protected:
    ~SharedMutexTest() override { m_mutex.Delete(); }
    SharedMutex m_mutex{UniqueName()};
};

TEST_F(SharedMutexTest, ALockHeldByAnotherProcessTimesOutAlsoAfterItsDeath) {
    ASSERT_TRUE(m_mutex.Create());
    {
        Holder const holder(UniqueName());
        ASSERT_TRUE(holder.Holds());
        bool timedOut = false;
        auto const start = std::chrono::steady_clock::now();
        EXPECT_FALSE(m_mutex.Lock(150ms, &timedOut));
        EXPECT_TRUE(timedOut);
        EXPECT_GE(std::chrono::steady_clock::now() - start, 150ms);
    }
    bool timedOut = false;
    EXPECT_FALSE(m_mutex.Lock(0ms, &timedOut));
    EXPECT_TRUE(timedOut);
    EXPECT_FALSE(m_mutex.Lock(-5ms, nullptr));
    EXPECT_TRUE(m_mutex.Unlock());  // anybody may
    EXPECT_TRUE(m_mutex.Lock(30s, &timedOut));
    EXPECT_FALSE(timedOut);
    EXPECT_TRUE(m_mutex.Unlock(1ms, &timedOut));
    EXPECT_TRUE(m_mutex.Lock(std::chrono::milliseconds::max(), nullptr));
    // A limit just below "none" is no representable number of the clock's units.
    EXPECT_TRUE(m_mutex.Unlock());
    EXPECT_TRUE(m_mutex.Lock(std::chrono::milliseconds::max() - 1ms, nullptr));
}

TEST_F(SharedMutexTest, OperationsOutOfTurnAreRefusedWithTheirLine) {
    vq::test::LogCapture log(LogLevel::Trace);
    bool timedOut = true;
    std::string const name = UniqueName();
    EXPECT_FALSE(m_mutex.Exists());
    EXPECT_FALSE(m_mutex.Open());
    EXPECT_FALSE(m_mutex.Lock());
    EXPECT_FALSE(m_mutex.Lock(1ms, &timedOut));
    EXPECT_FALSE(timedOut);
    EXPECT_FALSE(m_mutex.Unlock());
    EXPECT_FALSE(m_mutex.Close());
    EXPECT_TRUE(m_mutex.Delete());
    EXPECT_TRUE(m_mutex.Create());
    EXPECT_TRUE(m_mutex.Exists());
    EXPECT_FALSE(m_mutex.Create());
    EXPECT_FALSE(m_mutex.Open());
    EXPECT_TRUE(m_mutex.Lock(1ms, nullptr));
    SharedMutex moved = std::move(m_mutex);
    EXPECT_TRUE(moved.Unlock());
    EXPECT_TRUE(moved.Delete());
    EXPECT_FALSE(SharedMutex("inner/slash").Create());
    EXPECT_TRUE(SharedMutex("inner/slash").Delete());
    EXPECT_TRUE(SharedMutex().Delete());
    std::vector<std::string> const expected = {
        "E Failed to open mutex " + name + ": No such file or directory",
        "E Failed to lock mutex '" + name + "', not open",
        "E Failed to lock mutex '" + name + "', not open",
        "E Failed to unlock mutex '" + name + "', not open",
        "E Failed to create Mutex '" + name + "', already open",
        "E Failed to open mutex " + name + ", already open",
        "T Locked shared mutex '" + name + "'",
        "T Unlocked shared mutex '" + name + "'",
        "E Failed to create mutex 'inner/slash': Invalid argument",
    };
    EXPECT_EQ(log.Lines(), expected);
}

}  // namespace
