// Logging options: any texts as arguments, and what a state exports.
//
// The input is a command line without the program's name, its arguments separated by NULs. Those that begin
// with -V or are --logfile-maxsize=... are handled as such.

#include "Logging/LoggingOptions.h"

#include <getopt.h>

#include <memory>

#include "FuzzTarget.h"
#include "Logging/FileLogHandler.h"
#include "Logging/LogConfig.h"

namespace {

constexpr std::string_view kMaxSize = "--logfile-maxsize";

using Arguments = std::vector<std::string>;

/// As a getopt_long loop would do it, without its messages. No option asks for the help text.
/// @return false at the first option that is refused.
bool Apply(Arguments const& arguments, LogConfig& config) {
    std::vector<char const*> argv;
    for (std::string const& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    int const argc = static_cast<int>(argv.size());
    argv.push_back(nullptr);
    optind = 0;
    while (optind < argc) {
        std::string_view const argument = arguments[static_cast<std::size_t>(optind)];
        char const* const text = argv[static_cast<std::size_t>(optind)];
        ++optind;
        int option = kVerbosityOption;
        char const* value = text + 2;
        if (argument.starts_with(kMaxSize)) {
            option = kLogfileMaxsizeOption;
            value = text + kMaxSize.size() + 1;
            if (argument == kMaxSize) {
                value = argv[static_cast<std::size_t>(optind)];
                optind += optind < argc;
            }
        } else if (!argument.starts_with("-V")) {
            continue;
        }
        int const before = optind;
        if (!HandleLoggingOption(option, value, argc, argv.data(), nullptr, config)) {
            return false;
        }
        FUZZ_CHECK(optind >= before && optind <= argc);
    }
    return true;
}

/// All that an export tells but the location, of which it tells the full path.
std::string State(LogConfig const& config) {
    std::string state = std::to_string(static_cast<int>(config.GetLevel()));
    LogHandler const* const console = config.FindLogHandler(LogTarget::Stdout);
    state += console != nullptr && console->UsesColor() ? " color" : "";
    if (auto const* const file = dynamic_cast<FileLogHandler*>(config.FindFileLogHandler())) {
        state += std::string(" file") + (file->UsesColor() ? " color" : "") +
                 (file->IsBuffered() ? " buffered " : " ") + std::to_string(file->GetMaxFileSize());
    }
    return state;
}

}  // namespace

void TryInput(std::string_view input) {
    static bool const silent = [] {
        ::setenv("VQLOG_COLOR", "0", 1);  // a "-C" in an export would not come back alone
        LogConfig::Instance().Reset(false);
        return true;
    }();
    static_cast<void>(silent);
    Arguments arguments(1);
    for (char const c : input) {
        if (c == '\0') {
            arguments.emplace_back();
        } else if (c != 'h') {  // prints the help text
            arguments.back() += c;
        }
    }
    LogConfig config(true);
    if (!Apply(arguments, config)) {
        return;
    }
    Arguments const exported = ExportLoggingOptions(config);
    LogConfig again(true);
    FUZZ_CHECK(Apply(exported, again));
    FUZZ_CHECK(State(again) == State(config));
    FUZZ_CHECK(ExportLoggingOptions(again) == exported);
}
