#include "ShimSparseDeviceApplication.h"

#include <unistd.h>

#include <cstdlib>

#include "Logging/Log.h"
#include "Logging/LogConfig.h"

namespace vq::SdkShim {

ShimSparseDeviceApplication::ShimSparseDeviceApplication() {
    SetApplicationId(::getpid());
}

ShimSparseDeviceApplication::~ShimSparseDeviceApplication() = default;

ShimSparseDeviceApplication* ShimSparseDeviceApplication::Instance() {
    static ShimDeviceApplicationOwner owner;
    return &owner;
}

bool ShimSparseDeviceApplication::OnShutdown() {
    bool const shutDown = SparseDeviceApplication::OnShutdown();
    return UnregisterApplication() && shutDown;
}

ShimDeviceApplicationOwner::ShimDeviceApplicationOwner() {
    ConfigureAppFileLogging();
    LOG_V("Creating ShimDeviceApplicationOwner");
}

ShimDeviceApplicationOwner::~ShimDeviceApplicationOwner() {
    LOG_V("Destroying ShimDeviceApplicationOwner");
}

void ShimDeviceApplicationOwner::ConfigureAppFileLogging() {
    char const* const path = std::getenv("VQ_REMOTE_LOGFILE");
    if (path == nullptr || *path == '\0') {
        return;
    }
    // Trouble with the file is to be seen now, not in the file.
    LogToStderrRedirector const redirector(LogConfig::Instance());
    LogHandler* const handler = LogConfig::Instance().FindFileLogHandler();
    if (handler == nullptr) {
        return;
    }
    // An empty record opens the file and prints nothing.
    handler->Log(LogRecord());
}

}  // namespace vq::SdkShim
