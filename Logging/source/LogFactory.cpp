#include <cstdio>

#include "Logging/LogHandler.h"
#include "Logging/StdioLogHandler.h"

/// Makes the file log in a program that has it. The file log stands above the platform library and that above
/// the log core, which must not know it: so this is a weak reference, null without the file log. The linker
/// resolves it; nothing has to be registered while the program starts.
extern "C" [[gnu::weak]] LogHandler* vq_create_file_log_handler(LogConfig& config);

LogHandler* LogFactory::CreateLogHandler(LogConfig& config, LogTarget target) {
    switch (target) {
        case LogTarget::Stdout:
        case LogTarget::Stderr:
            return new StdioLogHandler(config, target);
        case LogTarget::File:
            return vq_create_file_log_handler != nullptr ? vq_create_file_log_handler(config) : nullptr;
    }
    std::fprintf(stderr, "Unknown log target %d\n", static_cast<int>(target));
    std::fflush(stderr);
    return nullptr;
}
