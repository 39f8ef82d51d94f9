#include <algorithm>
#include <cstdio>
#include <ctime>

#include "Codec.h"
#include "Commands.h"
#include "Utils/ProtoDump.h"
#include "WireReader.h"

// Events of the server and samples of the channels, as they come.

namespace vq::rigctl {

namespace {

/// A server that is silent for so long is gone: devices leave then too.
constexpr std::chrono::seconds kSilence{10};
/// Read in one go before the clock is looked at.
constexpr int kBatch = 100;

std::string TimeText() {
    auto const now = std::chrono::system_clock::now();
    std::time_t const seconds = std::chrono::system_clock::to_time_t(now);
    auto const fraction =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char day[32];
    std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &parts);
    char text[48];
    std::snprintf(text, sizeof text, "%s.%03dZ", day, static_cast<int>(fraction));
    return text;
}

/// Nothing when the type is not known, or the message is broken.
Json::Value FieldsOf(std::string const& type, std::string_view payload) {
    MessageType const* const known = Schema::Instance().FindMessage(type);
    if (known == nullptr) {
        return {};
    }
    try {
        return Decode(*known, payload);
    } catch (Failure const&) {
        return {};
    }
}

/// An event that a device gave to the server has another message inside, which is what counts.
Json::Value FieldsOf(Subscription::Event const& event) {
    Json::Value fields = FieldsOf(event.type, event.payload);
    if (event.type == "vq.vds.DeviceEvent" && !fields.isNull()) {
        for (WireReader reader(event.payload); reader.Next();) {
            if (reader.number == 3) {
                fields["event_data"] = FieldsOf(fields["event_type"].asString(), reader.bytes);
            }
        }
    }
    return fields;
}

/// "name=value" for every field.
std::string TextOfFields(Json::Value const& fields) {
    std::string text;
    for (std::string const& name : fields.getMemberNames()) {
        text.append(text.empty() ? "" : " ").append(name).append("=").append(TextOf(fields[name]));
    }
    return text;
}

void Print(Output const& output, Subscription::Event const& event) {
    Json::Value row;
    row["time"] = TimeText();
    row["type"] = event.type;
    row["channel"] = event.channel;
    row["size"] = Json::UInt64(event.payload.size());
    if (output.IsJson()) {
        row["fields"] = FieldsOf(event);
        output.Object(row);
        return;
    }
    std::string text;
    ProtoUtils::DumpToString(event.type, event.payload, text);
    if (text.empty()) {
        text = TextOfFields(FieldsOf(event));
    }
    if (text.empty() && !event.payload.empty()) {
        text = std::to_string(event.payload.size()).append(" bytes");
    }
    text.erase(text.find_last_not_of(' ') + 1);
    std::string line = row["time"].asString() + "  ";
    line.append(event.channel.empty() ? "" : event.channel + "  ")
        .append(event.type)
        .append("  ")
        .append(text);
    output.Line(line);
}

/// Those that tell that somebody is there, and nothing else.
bool IsSignOfLife(std::string const& type) {
    return type == "vq.vds.HelloEvent" || type == "vq.ch.HelloDataEvent" || type == "vq.vds.ServerHeartbeat";
}

class Watcher {
public:
    Watcher(Session& session, WatchOptions const& options)
        : m_session(session),
          m_options(options),
          m_events(AddressOf("vq.vds.GetServerEventAddress"), "vq."),
          m_samples(AddressOf("vq.vds.GetServerDataEventBroadcastAddress"), "vq."),
          m_heartbeat(AddressOf("vq.vds.GetServerHeartbeatEventAddress"), "vq.vds.ServerHeartbeat") {}

    void Watch() {
        Clock::time_point const begin = Clock::now();
        Clock::time_point const end =
            m_options.duration ? begin + *m_options.duration : Clock::time_point::max();
        Clock::time_point heard = begin;
        while (!m_done && Clock::now() < end) {
            Subscription::Wait({&m_events, &m_samples, &m_heartbeat}, std::min(end, heard + kSilence));
            bool any = false;
            while (m_heartbeat.Take()) {
                any = true;
            }
            any = Drain(m_events) || any;
            any = Drain(m_samples) || any;
            if (any) {
                heard = Clock::now();
            } else if (Clock::now() >= heard + kSilence) {
                throw Failure(Status::NoAnswer, "The server has fallen silent.");
            }
        }
    }

private:
    std::string AddressOf(char const* request) { return m_session.Ask(request)["address"].asString(); }

    /// Prints what has come, up to a bound: more may come for ever. False when there was nothing.
    bool Drain(Subscription& subscription) {
        bool any = false;
        for (int left = kBatch; left > 0 && !m_done; --left) {
            auto const event = subscription.Take();
            if (!event) {
                break;
            }
            any = true;
            if (IsWanted(*event)) {
                Print(m_session.Out(), *event);
                ++m_printed;
                m_done = m_options.count && m_printed >= *m_options.count;
            }
            if (!m_done && event->type == "vq.vds.ServerStoppingEvent") {
                throw Failure(Status::NoServer, "The server has stopped.");
            }
        }
        return any;
    }

    bool IsWanted(Subscription::Event const& event) const {
        return !IsSignOfLife(event.type) &&
               (m_options.channels.empty() || std::ranges::count(m_options.channels, event.channel) > 0);
    }

    Session& m_session;
    WatchOptions const& m_options;
    Subscription m_events;
    Subscription m_samples;
    Subscription m_heartbeat;
    unsigned m_printed = 0;
    bool m_done = false;
};

}  // namespace

Status Watch(Session& session, WatchOptions const& options) {
    Watcher watcher(session, options);
    Output::Progress("Watching the server at " + session.ServerAddress() + "; Ctrl-C ends it.");
    watcher.Watch();
    return Status::Done;
}

}  // namespace vq::rigctl
