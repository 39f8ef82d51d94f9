#include "ProcessExit.h"

#include <atomic>

#include "Logging/LogConfig.h"
#include "Messaging/AMessageManager.h"
#include "Messaging/ChannelFactory.h"
#include "Utils/OSUtils.h"
#include "Utils/ServerRegistry.h"

namespace vq::SdkShim {

namespace {

/// Trivially destroyed, so that it can be asked at any time.
constinit std::atomic<bool> g_exiting{false};

}  // namespace

void ConstructSingletons() {
    LogConfig::Instance();
    GetExecutableName();
    GetUserTempDirectory();
    ServerRegistry::Instance();
    AMessageManager::Instance();
    ChannelFactory::Registrar::GetInstance();
}

bool IsProcessExiting() {
    return g_exiting;
}

void MarkProcessExiting() {
    g_exiting = true;
}

}  // namespace vq::SdkShim
