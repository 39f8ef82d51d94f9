#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "TestSupport/ChildProcess.h"

namespace vq::test {

/// One of our programs that serve, in service: each says so in a line that begins with "ready".
class Program : public ChildProcess {
public:
    explicit Program(std::vector<std::string> const& arguments, Environment const& environment = {})
        : ChildProcess(arguments, environment) {
        auto const line = ReadLineWith("ready");
        EXPECT_TRUE(line) << arguments[0] << " did not start:\n" << DrainOutput();
        m_ready = line.value_or("").substr(line && !line->empty() ? 1 : 0);
    }

    /// What it said behind the word: a server its address.
    std::string const& Ready() const { return m_ready; }
    /// Ends it in order, or as another signal does; its exit status.
    int End(int signal = SIGTERM) {
        Signal(signal);
        return WaitForExit().value_or(-1);
    }
    /// Ends it in order, and nothing else will do.
    void Stop() { EXPECT_EQ(End(), 0) << DrainOutput(); }

private:
    std::string m_ready;
};

}  // namespace vq::test
