// A process that writes to a shared log file, for the tests: file_log_writer PATH NAME LINES MAXSIZE
// It logs "NAME N" for each N below LINES, and prints "done".

#include <cstdio>
#include <cstdlib>

#include "Logging/FileLogHandler.h"
#include "Logging/Log.h"
#include "Logging/LogConfig.h"

int main(int, char** argv) {
    LogConfig& config = LogConfig::Instance();
    config.DeleteLogHandler(config.FindLogHandler(LogTarget::Stdout));
    auto* const handler = config.EnsureLogHandler<FileLogHandler>(LogTarget::File);
    handler->SetLocation(argv[1]);
    handler->SetMaxFileSize(std::strtoul(argv[4], nullptr, 10));
    int const lines = std::atoi(argv[3]);
    for (int line = 0; line < lines; ++line) {
        LOG_I("%s %d", argv[2], line);
    }
    handler->Close();
    std::puts("done");
}
