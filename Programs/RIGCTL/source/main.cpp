// RIGCTL: shows and steers the servers and devices of this machine.

#include <cstdio>
#include <exception>
#include <string_view>

#include "CommandLine.h"
#include "Installation/Installation.h"
#include "Logging/LogConfig.h"
#include "Logging/LogParameterCLIProcessor.h"

using namespace vq::rigctl;

namespace {

/// The parser takes a word in brackets, such as "[a,b]", for a list wherever several words may stand, and
/// cannot be told otherwise. With this at its end the word passes.
constexpr char kMark = '\x1f';

void Parse(CLI::App& app, int argc, char** argv, Request& request) {
    Texts words(argv, argv + argc);
    std::vector<char const*> pointers;
    pointers.reserve(words.size());
    for (std::string& word : words) {
        if (word.starts_with('[') && word.ends_with(']')) {
            word += kMark;
        }
        pointers.push_back(word.c_str());
    }
    app.parse(argc, pointers.data());
    auto const unmark = [](std::string& text) {
        if (text.ends_with(kMark)) {
            text.pop_back();
        }
    };
    std::ranges::for_each(request.texts, unmark);
    for (std::string* const text :
         {&request.target, &request.name, &request.text, &request.common.address, &request.common.name}) {
        unmark(*text);
    }
}

Status RunRequest(Request const& request) {
    Session session(request.common);
    if (request.restart) {
        return RestartServer(session);
    }
    return request.stop    ? StopServer(session)
           : request.start ? StartServer(session)
                           : request.action(session);
}

}  // namespace

int main(int argc, char** argv) {
    // What stands behind it is a line that a user is still writing.
    bool const completes = argc > 1 && std::string_view(argv[1]) == "--complete";
    bool helpShown = false;
    int const all = argc;
    if (!completes && (!LogParameterCLIProcessor::TakeParams(argc, argv, helpShown) || helpShown)) {
        return helpShown ? 0 : static_cast<int>(Status::BadUsage);
    }
    if (argc == all) {
        // Who asks for no log gets none: what goes wrong is said in a sentence of our own.
        LogConfig::Instance().SetLogCallback(
            [](LogRecord const& record) { return record.level == LogLevel::Fatal; });
    }
    vq::rigctl::Request request;
    CLI::App app("Shows and steers the servers and devices of this machine.");
    app.fallthrough();
    app.require_subcommand(0, 1);
    AddCommonOptions(app, request);
    vq::AddVersionOption(app, "RIGCTL");
    AddListings(app, request);
    AddDeviceCommands(app, request);
    AddMachineCommands(app, request);
    AddRemoteCommands(app, request);
    if (completes) {
        Complete(app, Texts(argv + 2, argv + argc));
        return 0;
    }
    try {
        Parse(app, argc, argv, request);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(Status::BadUsage);
    }
    request.common.timeout = std::chrono::milliseconds(request.timeoutMs);
    request.common.timeoutGiven = app.count("--timeout") > 0;
    try {
        return static_cast<int>(RunRequest(request));
    } catch (Failure const& failure) {
        Output::Complain(failure.what());
        return static_cast<int>(failure.GetStatus());
    } catch (std::exception const& error) {
        Output::Complain(error.what());
        return static_cast<int>(Status::Refused);
    }
}
