#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <set>
#include <string_view>

#include "Commands.h"
#include "ProtocolVersion.h"
#include "SparseDevice/ManifestProcessor.h"

// Follows the way that the library goes when it connects, and stops where it would fail.

namespace vq::rigctl {

namespace {

/// The library gives a provider so long to answer.
constexpr std::chrono::seconds kExchangeLimit{5};
/// A late answer is worth waiting for: it tells more than none.
constexpr std::chrono::seconds kProviderLimit{8};

std::string Seconds(Clock::duration duration) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g s", std::chrono::duration<double>(duration).count());
    return text;
}

/// What is said of one thing that was looked at. Without advice it is fine.
struct Finding {
    std::string finding;
    std::string advice;
};

class Doctor {
public:
    explicit Doctor(Session& session) : m_session(session) {}

    Status Examine() {
        // Each needs what the one before has found.
        for (auto const& [name, check] : {std::pair{"registry", &Doctor::Registry},
                                          {"server", &Doctor::Server},
                                          {"protocol", &Doctor::Protocol},
                                          {"manifest", &Doctor::Manifest},
                                          {"channel", &Doctor::Channel},
                                          {"provider", &Doctor::Provider},
                                          {"history", &Doctor::History}}) {
            m_session.RestartTimeLimit();
            std::optional<Finding> finding;
            try {
                finding = (this->*check)();
            } catch (Failure const& failure) {
                finding = Finding{failure.what(), m_advice};
            }
            Print(name, *finding);
            if (m_stop) {
                break;
            }
        }
        return m_trouble ? Status::FoundTrouble : Status::Done;
    }

private:
    void Print(char const* name, Finding const& finding) {
        bool const fine = finding.advice.empty();
        m_trouble |= !fine;
        Output const& output = m_session.Out();
        if (output.IsJson()) {
            Json::Value row;
            row["check"] = name;
            row["ok"] = fine;
            row["finding"] = finding.finding;
            row["advice"] = finding.advice;
            output.Object(row);
            return;
        }
        std::string const word = fine ? output.Good("ok ") : output.Bad("bad");
        std::printf("%s  %-8s  ", word.c_str(), name);
        output.Line(finding.finding);
        if (!fine) {
            output.Line("               What to do: " + finding.advice);
        }
    }

    /// Nothing behind this check can succeed when it fails.
    void Need(std::string advice) {
        m_advice = std::move(advice);
        m_stop = true;
    }
    Finding Pass(std::string finding) {
        m_stop = false;
        return {std::move(finding), ""};
    }

    Finding Registry() {
        Need("'RIGCTL registry recover', then start the programs again that hang.");
        rigctl::Registry const registry = ReadRegistry(m_session.Deadline());
        m_stop = false;
        if (!registry.whole) {
            return {"The table has a broken line, which hides those behind it.",
                    "start a server with 'RIGCTL -r': its entry rewrites the table."};
        }
        for (ServerDescriptor const& line : registry.lines) {
            if (!Session::IsAlive(line.pid)) {
                return {"The line '" + line.name + "' is dead: there is no process " +
                            std::to_string(line.pid) + ". Programs may choose that server.",
                        "'RIGCTL registry remove " + line.name + "'."};
            }
        }
        return {"The table can be read; servers in it: " + std::to_string(registry.lines.size()) + ".", ""};
    }

    Finding Server() {
        Need("start one with 'RIGCTL -s', or choose another with VQ_VDS_ADDRESS or VQ_VDS_NAME.");
        std::string const& address = m_session.ServerAddress();
        Need("end the server's process and start it again: 'RIGCTL -s'.");
        m_session.Ask("vq.vds.Ping");
        if (m_session.ServerLine() == nullptr) {
            // Its heartbeat address is in its line, and the library wants the heartbeat.
            return {"The server at " + address + " answers, but is not in the registry, where programs look.",
                    "'RIGCTL -r' starts it again and enters it; HOME has to be the same for all programs."};
        }
        char const* const chosen = std::getenv("VQ_VDS_ADDRESS");
        if (chosen != nullptr && std::string_view(chosen).starts_with("IPC:") &&
            m_session.ChosenAddress() == address && chosen != address) {
            return {"The server at " + address + " answers, but VQ_VDS_ADDRESS says '" + chosen +
                        "', and the library looks for that letter by letter.",
                    "set VQ_VDS_ADDRESS to '" + address + "'."};
        }
        return Pass("The server at " + address + " answers.");
    }

    Finding Protocol() {
        Need("use a server and a library of one release.");
        int const version = m_session.Ask("vq.vds.GetProtocolVersion")["protocol_version"].asInt();
        std::string const text = "The server speaks protocol " + std::to_string(version);
        if (version > SdkShim::kProtocolVersion) {
            return {text + ", the library only up to " + std::to_string(SdkShim::kProtocolVersion) + ".",
                    m_advice};
        }
        return Pass(text + ".");
    }

    Finding Manifest() {
        Need("start the server with '--data' and the directory that holds the manifest.");
        std::string const path =
            m_session.Ask("vq.vds.GetDataPath")["path"].asString() + "/ShimMultiDeviceManifest.json";
        ManifestProcessor manifest;
        if (!manifest.ProcessManifest(path)) {
            return {"The manifest " + path + " cannot be read.", m_advice};
        }
        ManifestProcessor::ManifestData const* const data =
            manifest.GetDataForDevice("IdentityShimSparseDevice");
        m_channel =
            data == nullptr
                ? ""
                : data->configurationState.EnsureValue("IdentityFeatureChannel")->value().string_value();
        if (m_channel.empty()) {
            return {"The manifest " + path + " names no channel for the identity feature.", m_advice};
        }
        return Pass("The identity feature has the channel '" + m_channel + "'.");
    }

    Finding Channel() {
        Need("start a provider, such as mock_identity_device, or map one: 'RIGCTL mappings add DEVICE " +
             m_channel + "'.");
        for (Json::Value const mappings = m_session.Ask("vq.vds.GetChannelMappings")["mappings"];
             Json::Value const& mapping : mappings) {
            if (mapping["channel"].asString() == m_channel) {
                m_device = mapping["device"].asString();
                return Pass("The device '" + m_device + "' serves it.");
            }
        }
        return {"No device serves the channel '" + m_channel + "'.", m_advice};
    }

    Finding Provider() {
        Need("see what the provider does, end it with 'RIGCTL quit --application " + m_device +
             "' and start it again; then start the applications again that have asked it.");
        m_session.ExtendTimeLimit(kProviderLimit);
        Clock::time_point const begin = Clock::now();
        m_session.AskDevice(m_device, "vq.sd.VQIdentityGetAttributeNames");
        Clock::duration const time = Clock::now() - begin;
        m_stop = false;
        if (time >= kExchangeLimit) {
            return {"The provider answers after " + Seconds(time) + ", and programs wait for " +
                        Seconds(kExchangeLimit) + ".",
                    "make the provider faster; then start the applications again that have asked it: a late "
                    "answer leaves them cut off."};
        }
        return {"The provider answers after " + Seconds(time) + ".", ""};
    }

    /// A step of the provider that was too long has left somebody waiting, who is cut off since.
    Finding History() {
        Json::Value const stats = m_session.AskDevice(m_device, "vq.sd.RequestStats")["stats"];
        Clock::duration longest{0};
        for (Json::Value const& timer : stats["timers"]) {
            if (timer["name"] == "SparseDevice_ProcessMessages") {
                longest = std::chrono::nanoseconds(timer["maximum"].asInt64());
            }
        }
        if (longest < kExchangeLimit) {
            return {"It has never been too slow.", ""};
        }
        std::string const programs = Programs();
        return {"The provider once took " + Seconds(longest) +
                    " to answer: whoever asked then has a stuck pipe and is cut off from identity.",
                programs.empty()
                    ? "start the application again that failed then."
                    : "start the applications again that have run since then: " + programs + "."};
    }

    /// Those that use the library now.
    std::string Programs() {
        std::set<std::string> processes;
        for (Json::Value const infos = m_session.Ask("vq.vds.GetDeviceInfos")["infos"];
             Json::Value const& info : infos) {
            if (info["type"] == "Shim") {
                processes.insert(info["second_process_id"].asString());
            }
        }
        std::string text;
        for (std::string const& process : processes) {
            text += (text.empty() ? "process " : ", ") + process;
        }
        return text;
    }

    Session& m_session;
    std::string m_advice;
    std::string m_channel;
    std::string m_device;
    bool m_stop = false;
    bool m_trouble = false;
};

}  // namespace

Status Examine(Session& session) {
    return Doctor(session).Examine();
}

}  // namespace vq::rigctl
