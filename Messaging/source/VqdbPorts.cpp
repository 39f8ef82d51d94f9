// Ports that the bridge connects, and their end.

#include <exception>
#include <future>
#include <utility>

#include "Logging/Log.h"
#include "Messaging/VqdbAccessor.h"
#include "Utils/ThreadUtils.h"

namespace {

std::string Tcp(int port) {
    return "tcp:" + std::to_string(port);
}

}  // namespace

bool VqdbAccessor::ForwardPort(int local, int remote) {
    return RunAndThen({"forward", "--no-rebind", Tcp(local), Tcp(remote)}, [&](ProcessResult const& result) {
        if (result.code != 0) {
            LOG_E("Error %d forwarding port %d to %d:\n%s\n%s\n", result.code, local, remote,
                  result.standardOutput.c_str(), result.standardError.c_str());
            return false;
        }
        LOG_V("Forwarded local port %d to remote port %d", local, remote);
        std::lock_guard const lock(m_mutex);
        m_forwardedPorts[local] = remote;
        return true;
    });
}

bool VqdbAccessor::ReversePort(int local, int remote) {
    return RunAndThen({"reverse", "--no-rebind", Tcp(remote), Tcp(local)}, [&](ProcessResult const& result) {
        if (result.code != 0) {
            LOG_E("Error %d reversing port %d to %d:\n%s\n%s\n", result.code, local, remote,
                  result.standardOutput.c_str(), result.standardError.c_str());
            return false;
        }
        LOG_V("Reversed local port %d to remote port %d", local, remote);
        std::lock_guard const lock(m_mutex);
        m_reversedPorts[remote] = local;
        return true;
    });
}

bool VqdbAccessor::UnforwardPort(int local, int remote) {
    return RunAndThen({"forward", "--remove", Tcp(local)}, [&](ProcessResult const& result) {
        if (result.code != 0) {
            LOG_E("Error %d un-forwarding port %d:\n%s\n%s\n", result.code, local,
                  result.standardOutput.c_str(), result.standardError.c_str());
            return false;
        }
        LOG_V("Un-forwarded local port %d to %d", local, remote);
        std::lock_guard const lock(m_mutex);
        m_forwardedPorts.erase(local);
        return true;
    });
}

bool VqdbAccessor::UnreversePort(int local, int remote) {
    return RunAndThen({"reverse", "--remove", Tcp(remote)}, [&](ProcessResult const& result) {
        if (result.code != 0) {
            LOG_E("Error %d un-reversing port %d\n%s\n%s\n", result.code, remote,
                  result.standardOutput.c_str(), result.standardError.c_str());
            return false;
        }
        LOG_V("Un-reversed local port %d to remote port %d", local, remote);
        std::lock_guard const lock(m_mutex);
        m_reversedPorts.erase(remote);
        return true;
    });
}

bool VqdbAccessor::RemovePorts(Ports const& ports, bool forwarded) const {
    std::vector<std::future<bool>> tasks;
    {
        BlockedSignals const blocked;
        for (auto const& [port, target] : ports) {
            auto const remove = [this, forwarded, number = port,
                                 commandLine = CompleteArguments(
                                     {forwarded ? "forward" : "reverse", "--remove", Tcp(port)})] {
                UseDefaultScheduling();
                ProcessResult const result = Run(commandLine);
                if (result.code != 0 && forwarded) {
                    LOG_E("Error %d removing forwarded port %d:\n%s\n%s\n", result.code, number,
                          result.standardOutput.c_str(), result.standardError.c_str());
                } else if (result.code != 0) {
                    LOG_E("Error %d removing reversed port mapping to %d:\n%s\n%s\n", result.code, number,
                          result.standardOutput.c_str(), result.standardError.c_str());
                } else {
                    LOG_V("Removed %s port %d", forwarded ? "forwarded" : "reversed", number);
                }
                return result.code == 0;
            };
            tasks.push_back(std::async(std::launch::async, remove));
        }
    }
    bool good = true;
    for (std::future<bool>& task : tasks) {
        good = task.get() && good;
    }
    return good;
}

bool VqdbAccessor::CleanupPorts(bool stopOnError) {
    Ports forwarded;
    Ports reversed;
    {
        std::lock_guard const lock(m_mutex);
        forwarded = std::exchange(m_forwardedPorts, {});
        reversed = std::exchange(m_reversedPorts, {});
    }
    try {
        bool const good = RemovePorts(forwarded, true);
        if (!good && stopOnError) {
            return false;
        }
        return RemovePorts(reversed, false) && good;
    } catch (std::exception const& error) {
        LOG_E("Failed to remove forwarded/reversed port via vqdb. Reason: %s", error.what());
        return false;
    }
}
