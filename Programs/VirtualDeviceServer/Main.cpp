// vdserver: the server of virtual devices for one machine.

#include <google/protobuf/stubs/logging.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <map>
#include <string>

#include "Installation/Installation.h"
#include "Logging/Log.h"
#include "Logging/LogConfig.h"
#include "Logging/LogParameterCLIProcessor.h"
#include "Messaging/AMessageManager.h"
#include "Utils/FileDescriptor.h"
#include "Utils/OSUtils.h"
#include "VirtualDeviceServer/VirtualDeviceServer.h"

namespace {

using vq::server::ServerOptions;

struct Arguments {
    ServerOptions options;
    LogLevel logLevel = LogLevel::Info;
    int readyDescriptor = -1;
};

void AddOptions(CLI::App& app, Arguments& arguments, std::string& address) {
    ServerOptions& options = arguments.options;
    app.add_option("--address", address,
                   "Where to take requests, such as IPC:/tmp/vds or SOCKET:127.0.0.1:6000")
        ->capture_default_str();
    app.add_option("--name", options.name,
                   "Name in the registry of servers (default: made from the address)");
    app.add_option("--data", options.dataDirectory,
                   "Directory that holds ShimMultiDeviceManifest.json (default: found)");
    auto const milliseconds = [&app](char const* name, std::chrono::milliseconds& value, char const* text) {
        app.add_option_function<unsigned>(
               name, [&value](unsigned const& count) { value = std::chrono::milliseconds(count); }, text)
            ->default_str(std::to_string(value.count()))
            ->type_name("MS");
    };
    milliseconds("--prune-after", options.pruneAfter, "Drop a device that is silent for so long; 0: never");
    milliseconds("--heartbeat", options.heartbeatPeriod, "Time between two heartbeats, 1 to 1000");
    milliseconds("--stop-grace", options.stopGrace,
                 "Time that devices have to unregister when the server stops");
    app.add_option("--protocol-version", options.protocolVersion, "Protocol version to tell clients")
        ->capture_default_str();
    app.add_option("--launch-from", options.launchDirectory,
                   "Let clients start the programs in this directory (default: they may start none)");
    app.add_option("--headset-level", options.minimumHeadsetLevel,
                   "Least platform API level of headsets to connect")
        ->capture_default_str();
    app.add_option("--ready-fd", arguments.readyDescriptor,
                   "Descriptor that also gets the line \"ready ADDRESS\" once the server can be reached");
    std::map<std::string, LogLevel> const levels = {{"error", LogLevel::Error},
                                                    {"warning", LogLevel::Warning},
                                                    {"info", LogLevel::Info},
                                                    {"verbose", LogLevel::Verbose},
                                                    {"trace", LogLevel::Trace}};
    app.add_option("--log-level", arguments.logLevel, "Most verbose level that is printed")
        ->transform(CLI::CheckedTransformer(levels, CLI::ignore_case));
}

/// From now on these signals only make a descriptor readable, in every thread that is started later too.
FileDescriptor TakeStopSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    for (int const signal : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaddset(&signals, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

/// Every client costs some descriptors, and the usual soft limit is low.
void RaiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/// Bad payloads are the sender's fault, and answered: no news for the console.
void LogParserComplaint(google::protobuf::LogLevel, char const*, int, std::string const& text) {
    LOG_V("%s", text.c_str());
}

void TellReady(std::string const& address, int descriptor) {
    std::string const line = "ready " + address + "\n";
    std::fputs(line.c_str(), stdout);
    std::fflush(stdout);
    if (descriptor >= 0) {
        static_cast<void>(!::write(descriptor, line.data(), line.size()));
        ::close(descriptor);
    }
}

int Serve(Arguments const& arguments) {
    FileDescriptor const signals = TakeStopSignals();
    vq::server::VirtualDeviceServer server(arguments.options);
    server.StopWhenReadable(signals.Get());
    if (!server.Start()) {
        return 1;
    }
    TellReady(server.GetAddress().ToString(), arguments.readyDescriptor);
    server.Run();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    arguments.options.dataDirectory = vq::FindDataDirectory("ShimMultiDeviceManifest.json");
    std::string address = arguments.options.address.ToString();
    CLI::App app("The server of virtual devices: registers devices, maps channels, publishes events.");
    AddOptions(app, arguments, address);
    vq::AddVersionOption(app, "vdserver");
    app.footer(LogParameterCLIProcessor::GetHelpLine());
    bool helpShown = false;
    if (!LogParameterCLIProcessor::TakeParams(argc, argv, helpShown) || helpShown) {
        return helpShown ? 0 : 1;
    }
    CLI11_PARSE(app, argc, argv);

    if (app.count("--log-level") != 0) {
        LogConfig::Instance().SetLevel(arguments.logLevel);
    }
    google::protobuf::SetLogHandler(&LogParserComplaint);
    std::signal(SIGPIPE, SIG_IGN);
    RaiseDescriptorLimit();
    arguments.options.address = MessageAddress::FromString(address);
    if (arguments.options.address.transport == MessageAddress::Transport::NONE) {
        LOG_PLAIN_E("'%s' is no address: say SOCKET:host:port or IPC:path", address.c_str());
        return 1;
    }
    int const status = Serve(arguments);
    AMessageManager::Instance().Cleanup();
    return status;
}
