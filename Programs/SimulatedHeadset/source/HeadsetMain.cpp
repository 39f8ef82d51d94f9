// simulated_headset: a headset on this machine, reached through the simulated bridge.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "SimulatedHeadset/BridgeState.h"
#include "SimulatedHeadset/HeadsetServer.h"

namespace {

using vq::headset::BridgeState;
using vq::headset::HeadsetServer;

/// Asks a server of virtual devices whether it is there.
/// @return the type of its answer; empty when there is none
std::string Ping(std::string const& port) {
    zmq::context_t context;
    zmq::socket_t socket(context, ZMQ_REQ);
    socket.set(zmq::sockopt::linger, 0);
    socket.set(zmq::sockopt::rcvtimeo, 5000);
    socket.connect("tcp://127.0.0.1:" + port);
    socket.send(zmq::str_buffer(""), zmq::send_flags::sndmore);
    socket.send(zmq::str_buffer("vq.vds.Ping"), zmq::send_flags::sndmore);
    socket.send(zmq::str_buffer(""));
    zmq::message_t identity;
    zmq::message_t type;
    return socket.recv(identity) && identity.more() && socket.recv(type) ? type.to_string() : "";
}

void Print(std::string const& text) {
    std::puts(text.c_str());
    std::fflush(stdout);
}

/// Says what comes in; a server that is advertised is tried.
void PrintCommand(std::string const& text) {
    Print(text);
    std::string const advertisement = "VDS port ";
    if (text.starts_with(advertisement)) {
        std::string const port = text.substr(advertisement.size(), text.find(" name") - advertisement.size());
        std::string const answer = Ping(port);
        Print("the server behind port " + port +
              (answer.empty() ? " does not answer" : " answers " + answer));
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string serial = "SIMULATED";
    int port = 0;
    std::uint32_t level = 29;
    std::vector<std::string> answers;
    CLI::App app("A headset on this machine, reached through the simulated bridge.");
    app.add_option("--serial", serial, "What the bridge calls it")->capture_default_str();
    app.add_option("--port", port, "Where it takes commands; 0: a free port")->check(CLI::Range(0, 65535));
    app.add_option("--level", level, "Platform API level that it tells")->capture_default_str();
    app.add_option("--answer", answers,
                   "COMMAND=HOW, such as GET=short, VDS=nak:TEXT, VER=late:6000 or MEM=silent");
    CLI11_PARSE(app, argc, argv);

    sigset_t signals;
    sigemptyset(&signals);
    for (int const signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        HeadsetServer server(port, level, PrintCommand);
        for (std::string const& answer : answers) {
            std::size_t const equals = answer.find('=');
            if (equals == std::string::npos ||
                !server.Answer(answer.substr(0, equals), answer.substr(equals + 1))) {
                std::fprintf(stderr, "'%s' is no COMMAND=HOW\n", answer.c_str());
                return 1;
            }
        }
        BridgeState const bridge;
        bridge.Attach({.serial = serial, .state = "device"});
        bridge.SetProcessList(
            R"([{"package": "com.corvane.tl_server", "component": ".Server", "state": "Running"}])");
        Print("ready " + std::to_string(server.Port()));
        int received = 0;
        sigwait(&signals, &received);
        bridge.Detach(serial);
    } catch (zmq::error_t const& error) {
        std::fprintf(stderr, "cannot take commands at port %d: %s\n", port, error.what());
        return 1;
    }
    return 0;
}
