#pragma once

#include <memory>
#include <string>

namespace bench {

/// Another library's log file. Any thread.
class BaseLog {
public:
    virtual ~BaseLog() = default;
    /// Writes the line that our log writes for LOG_I("Registered '%s' with id %d", device, id).
    virtual void WriteLine(char const* device, int id) = 0;
};

// Each where its package was found: VQ_BENCH_SPDLOG, VQ_BENCH_GLOG.
std::unique_ptr<BaseLog> OpenSpdlog(std::string const& path);
/// One a process.
std::unique_ptr<BaseLog> OpenGlog(std::string const& path);

}  // namespace bench
