// vqdb: stands in for the tool that reaches headsets. Knows what programs of this system ask of it, and
// connects ports of this one machine.

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "Misbehaviour.h"
#include "SimulatedHeadset/BridgeState.h"
#include "SimulatedHeadset/BridgeTunnels.h"

namespace {

using namespace vq::headset;
using Words = std::vector<std::string>;

struct Outcome {
    std::string output;
    std::string error;
};

/// Port of "tcp:PORT"; 0 for any other text.
int PortOf(std::string const& text) {
    std::string const prefix = "tcp:";
    int port = 0;
    char const* const end = text.data() + text.size();
    if (!text.starts_with(prefix) ||
        std::from_chars(text.data() + prefix.size(), end, port) != std::from_chars_result{end, std::errc()} ||
        port < 1 || port > 65535) {
        return 0;
    }
    return port;
}

class Tool {
public:
    explicit Tool(Words arguments) : m_words(std::move(arguments)) {
        if (m_words.size() >= 2 && m_words[0] == "-s") {
            m_serial = m_words[1];
            m_words.erase(m_words.begin(), m_words.begin() + 2);
        }
    }

    /// The command's name, with what tells removal apart.
    std::string Command() const {
        std::string const word = m_words.empty() ? "" : m_words[0];
        bool const removes = m_words.size() > 1 && m_words[1] == "--remove";
        return removes ? "un" + word : word;
    }

    Outcome Run() {
        std::string const command = Command();
        if (command == "devices") {
            return ListDevices();
        }
        std::string state;
        if (std::string const error = ChooseDevice(state); !error.empty()) {
            return {.output = "", .error = error};
        }
        if (command == "get-state") {
            return {.output = state + "\n", .error = ""};
        }
        if (command == "ps" && m_words.size() == 2 && m_words[1] == "-j") {
            return {.output = m_state.ProcessList(), .error = ""};
        }
        if (m_words[0] == "forward" || m_words[0] == "reverse") {
            return Connect(m_words[0] == "forward" ? BridgeTunnels::Kind::Forward
                                                   : BridgeTunnels::Kind::Reverse);
        }
        return {.output = "", .error = "unknown command '" + command + "'"};
    }

private:
    Outcome ListDevices() const {
        std::string text = "List of devices attached\n";
        for (BridgeState::Device const& device : m_state.Devices()) {
            text += device.serial + "\t" + device.state + "\n";
        }
        return {.output = text + "\n", .error = ""};
    }

    /// @return why there is none
    std::string ChooseDevice(std::string& state) {
        auto const devices = m_state.Devices();
        if (m_words.empty()) {
            return "say a command";
        }
        if (m_serial.empty()) {
            if (devices.size() != 1) {
                return devices.empty() ? "no devices found" : "more than one device";
            }
            m_serial = devices.front().serial;
        }
        for (BridgeState::Device const& device : devices) {
            if (device.serial == m_serial) {
                state = device.state;
                return "";
            }
        }
        return "device '" + m_serial + "' not found";
    }

    Outcome Connect(BridgeTunnels::Kind kind) const {
        BridgeTunnels const tunnels(m_state);
        Words words(m_words.begin() + 1, m_words.end());
        std::optional<std::string> error =
            "expected [--no-rebind] tcp:PORT tcp:PORT, or --remove tcp:PORT, or --list";
        if (words == Words{"--list"}) {
            std::string text;
            for (auto const& tunnel : tunnels.List()) {
                text += tunnel.kind != kind ? ""
                                            : tunnel.serial + " tcp:" + std::to_string(tunnel.listen) +
                                                  " tcp:" + std::to_string(tunnel.target) + "\n";
            }
            return {.output = text, .error = ""};
        }
        bool const removes = words.size() == 2 && words[0] == "--remove";
        bool const keeps = words.size() == 3 && words[0] == "--no-rebind";
        if (removes || keeps) {
            words.erase(words.begin());
        }
        int const listen = words.empty() ? 0 : PortOf(words[0]);
        int const target = words.size() == 2 ? PortOf(words[1]) : 0;
        if (removes && listen > 0) {
            error = tunnels.Remove(kind, listen);
        } else if (!removes && listen > 0 && target > 0) {
            error = tunnels.Add({kind, m_serial, listen, target}, !keeps);
        }
        return {.output = "", .error = error.value_or("")};
    }

    BridgeState m_state;
    Words m_words;
    std::string m_serial;
};

}  // namespace

int main(int argc, char** argv) {
    Words const arguments(argv + 1, argv + argc);
    std::string call;
    for (std::string const& argument : arguments) {
        call += (call.empty() ? "" : " ") + argument;
    }
    BridgeState const state;
    state.NoteCall(call);
    Tool tool(arguments);
    auto const rule = state.MisbehaviourOf(tool.Command());
    // What never answers does nothing either.
    Outcome const outcome = rule.first == "hang" || rule.first == "exit" ? Outcome() : tool.Run();
    if (!outcome.error.empty()) {
        std::fprintf(stderr, "error: %s\n", outcome.error.c_str());
    }
    return vq::headset::AnswerBadly(rule, outcome.output,
                                    outcome.error.empty() ? EXIT_SUCCESS : EXIT_FAILURE);
}
