// A process that writes to a shared log file, for the tests.
//   file_log_writer write PATH NAME LINES MAXSIZE   logs "NAME N" for each N below LINES; prints "done"
//   file_log_writer hold PATH...                    takes the locks of the files, prints "held", waits for
//   input

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "Logging/FileLogHandler.h"
#include "Logging/Log.h"
#include "Logging/LogConfig.h"
#include "Utils/OSUtils.h"

namespace {

int WriteLines(char** argv) {
    LogConfig& config = LogConfig::Instance();
    config.DeleteLogHandler(config.FindLogHandler(LogTarget::Stdout));
    auto* const handler = config.EnsureLogHandler<FileLogHandler>(LogTarget::File);
    handler->SetLocation(argv[2]);
    handler->SetMaxFileSize(std::strtoul(argv[5], nullptr, 10));
    std::string const name = argv[3];
    int const lines = std::atoi(argv[4]);
    for (int line = 0; line < lines; ++line) {
        LOG_I("%s %d", name.c_str(), line);
    }
    handler->Close();
    std::puts("done");
    return 0;
}

int HoldLocks(int argc, char** argv) {
    for (int i = 2; i < argc; ++i) {
        std::FILE* const file = OpenSharedFile(argv[i], "a+");
        if (file == nullptr || !LockFile(file, std::chrono::seconds(60))) {
            return 1;
        }
    }
    std::puts("held");
    std::fflush(stdout);
    std::cin.get();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 6 && std::strcmp(argv[1], "write") == 0) {
        return WriteLines(argv);
    }
    return argc > 2 && std::strcmp(argv[1], "hold") == 0 ? HoldLocks(argc, argv) : 2;
}
