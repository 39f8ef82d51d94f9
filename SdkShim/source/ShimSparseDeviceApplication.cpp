#include "ShimSparseDeviceApplication.h"

#include <unistd.h>

#include <cstdlib>

#include "Logging/FileLogHandler.h"
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
    auto* const handler = dynamic_cast<FileLogHandler*>(LogConfig::Instance().FindFileLogHandler());
    if (handler == nullptr) {
        return;
    }
    handler->SetLocation(path);
    if (std::getenv("VDS_TESTS_DIR") != nullptr) {
        handler->SetBuffered(false);  // a test driver sees every line as it is written
    }
    // An empty record opens the file and prints nothing.
    handler->Log(LogRecord());
}

}  // namespace vq::SdkShim
