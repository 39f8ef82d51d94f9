#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "Logging/LogHandler.h"
#include "Logging/StdioLogHandler.h"

namespace {

void SayThatThereIsNoFileLog() {
    for (char const* name : {"VQ_REMOTE_LOGFILE", "VDS_TEST_DIR"}) {
        if (std::getenv(name) != nullptr) {
            std::fprintf(stderr, "File logging is not available in this build: %s has no effect\n", name);
            std::fflush(stderr);
            return;
        }
    }
}

}  // namespace

LogHandler* LogFactory::CreateLogHandler(LogConfig& config, LogTarget target) {
    switch (target) {
        case LogTarget::Stdout:
        case LogTarget::Stderr:
            return new StdioLogHandler(config, target);
        case LogTarget::File: {
            static std::once_flag said;
            std::call_once(said, SayThatThereIsNoFileLog);
            return nullptr;
        }
    }
    std::fprintf(stderr, "Unknown log target %d\n", static_cast<int>(target));
    std::fflush(stderr);
    return nullptr;
}
