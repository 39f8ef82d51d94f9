#include <cstdlib>

#include "Logging/FileLogHandler.h"
#include "Logging/LogConfig.h"

void ConfigureFileLogging() {
    LogConfig& config = LogConfig::Instance();
    LogToStderrRedirector const redirector(config);
    LogHandler* handler = config.FindFileLogHandler();
    if (char const* const directory = std::getenv("VDS_TEST_DIR")) {
        handler = config.EnsureLogHandler<LogHandler>(LogTarget::File);
        auto* const file = dynamic_cast<FileLogHandler*>(handler);
        if (file != nullptr && file->GetLocation() == FileLogHandler::GetDefaultLocation()) {
            file->SetLocation(std::string(directory) + "/VDSTests.log");
        }
    }
    if (handler == nullptr) {
        handler = config.EnsureLogHandler<LogHandler>(LogTarget::File);
    }
    if (handler != nullptr) {
        // Empty: opens the file and writes nothing else.
        handler->Log(LogRecord());
    }
}
