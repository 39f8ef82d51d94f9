// RIGCTL: shows and steers the servers and devices of this machine.

#include <cstdio>
#include <exception>

#include "CommandLine.h"
#include "Installation/Installation.h"
#include "Logging/LogConfig.h"
#include "Logging/LogParameterCLIProcessor.h"

using namespace vq::rigctl;

namespace {

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
    bool helpShown = false;
    int const all = argc;
    if (!LogParameterCLIProcessor::TakeParams(argc, argv, helpShown) || helpShown) {
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
    if (argc > 1 && std::string(argv[1]) == "--complete") {
        Complete(app, Texts(argv + 2, argv + argc));
        return 0;
    }
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(Status::BadUsage);
    }
    request.common.timeout = std::chrono::milliseconds(request.timeoutMs);
    request.common.timeoutGiven = app.count("--timeout") > 0;
    try {
        return static_cast<int>(RunRequest(request));
    } catch (Failure const& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return static_cast<int>(failure.GetStatus());
    } catch (std::exception const& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return static_cast<int>(Status::Refused);
    }
}
