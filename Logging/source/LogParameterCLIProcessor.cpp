#include "Logging/LogParameterCLIProcessor.h"

#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <vector>

#include "Logging/LogConfig.h"
#include "Logging/LoggingOptions.h"

namespace {

constexpr option kOptions[] = {
    {"verbosity", required_argument, nullptr, kVerbosityOption},
    {"console", no_argument, nullptr, kConsoleOption},
    {"no-console", no_argument, nullptr, kNoConsoleOption},
    {"console-color", no_argument, nullptr, kConsoleColorOption},
    {"no-console-color", no_argument, nullptr, kNoConsoleColorOption},
    {"logfile", optional_argument, nullptr, kLogfileOption},
    {"no-logfile", no_argument, nullptr, kNoLogfileOption},
    {"logfile-color", no_argument, nullptr, kLogfileColorOption},
    {"no-logfile-color", no_argument, nullptr, kNoLogfileColorOption},
    {"logfile-buffer", no_argument, nullptr, kLogfileBufferOption},
    {"no-logfile-buffer", no_argument, nullptr, kNoLogfileBufferOption},
    {"logfile-maxsize", required_argument, nullptr, kLogfileMaxsizeOption},
    {nullptr, 0, nullptr, 0},
};

bool IsLoggingOption(std::string_view argument) {
    if (argument.starts_with("-V")) {
        return true;
    }
    if (!argument.starts_with("--")) {
        return false;
    }
    std::string_view const name = argument.substr(2, argument.find('=') - 2);
    return std::any_of(std::begin(kOptions), std::end(kOptions) - 1,
                       [name](option const& known) { return known.name == name; });
}

bool IsOurs(int value) {
    return value == kVerbosityOption || (value >= kConsoleOption && value <= kLogfileMaxsizeOption);
}

}  // namespace

bool LogParameterCLIProcessor::ProcessParams(int argc, char** argv) {
    optind = 0;  // starts the scan anew
    for (;;) {
        int const value = ::getopt_long(argc, argv, "V:", kOptions, nullptr);
        if (value == -1) {
            return true;
        }
        if (!IsOurs(value)) {
            std::fprintf(stderr, "huh?  %d", value);
            std::fflush(stderr);
            continue;
        }
        bool helpShown = false;
        if (!HandleLoggingOption(value, optarg, argc, argv, &helpShown, LogConfig::Instance())) {
            return false;
        }
    }
}

bool LogParameterCLIProcessor::TakeParams(int& argc, char** argv, bool& helpShown) {
    std::vector<char*> left(argv, argv + std::min(argc, 1));
    int next = 1;
    while (next < argc) {
        std::string_view const argument = argv[next];
        if (argument == "--") {
            break;
        }
        if (!IsLoggingOption(argument)) {
            left.push_back(argv[next++]);
            continue;
        }
        // A scan of this option alone; what follows may be its argument.
        std::vector<char*> scanned(argv + next - 1, argv + argc + 1);
        scanned[0] = argv[0];
        int const count = argc - next + 1;
        optind = 0;
        int const value = ::getopt_long(count, scanned.data(), "+V:", kOptions, nullptr);
        if (!IsOurs(value) ||
            !HandleLoggingOption(value, optarg, count, scanned.data(), &helpShown, LogConfig::Instance())) {
            return false;
        }
        next += optind - 1;
    }
    left.insert(left.end(), argv + next, argv + argc);
    std::copy(left.begin(), left.end(), argv);
    argc = static_cast<int>(left.size());
    argv[argc] = nullptr;
    return true;
}

char const* LogParameterCLIProcessor::GetHelpLine() {
    return "Logging: -V TEXT or --verbosity TEXT, where -Vh tells more; --[no-]console, "
           "--[no-]console-color,\n"
           "--logfile [FILE], --no-logfile, --[no-]logfile-color, --[no-]logfile-buffer, --logfile-maxsize "
           "BYTES";
}
