#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <thread>

#include "Commands.h"

// A table of the devices, over and over.

namespace vq::rigctl {

namespace {

/// What a device has counted since it began, by name.
struct Reading {
    Clock::time_point when;
    std::map<std::string, std::int64_t> totals;
    std::map<std::string, std::int64_t> samples;
};

using Readings = std::map<std::string, Reading>;

Reading Read(Session& session, std::string const& device) {
    session.RestartTimeLimit();
    Json::Value const stats = session.AskDevice(device, "vq.sd.RequestStats")["stats"];
    Reading reading{.when = Clock::now(), .totals = {}, .samples = {}};
    for (char const* const kind : {"counters", "timers"}) {
        for (Json::Value const& entry : stats[kind]) {
            std::string const name = entry["name"].asString();
            reading.totals[name] = entry[entry.isMember("value") ? "value" : "total"].asInt64();
            reading.samples[name] = entry["samples"].asInt64();
        }
    }
    return reading;
}

double Rounded(double value) {
    return std::round(value * 10) / 10;
}

/// @param before  null: the device is new, or was silent
Json::Value RowOf(Json::Value const& info, Reading const* before, Reading const* now) {
    Json::Value row;
    row["device"] = info["name"];
    row["type"] = info["type"];
    row["state"] = now == nullptr ? "silent" : info["flag_7"].asBool() ? "ready" : "starting";
    for (char const* const key : {"hertz", "work_percent", "work_ms", "messages_ms"}) {
        row[key] = Json::Value();
    }
    if (before == nullptr || now == nullptr) {
        return row;
    }
    auto const difference = [&](auto member, char const* name) {
        auto const of = [&](Reading const& reading) {
            auto const found = (reading.*member).find(name);
            return found != (reading.*member).end() ? static_cast<double>(found->second) : 0.0;
        };
        return of(*now) - of(*before);
    };
    double const seconds = std::chrono::duration<double>(now->when - before->when).count();
    double const steps = difference(&Reading::samples, "SparseDevice_UpdateWorkTime");
    double const work = difference(&Reading::totals, "SparseDevice_UpdateWorkTime") * 1e-9;
    double const messages = difference(&Reading::totals, "SparseDevice_ProcessMessages") * 1e-9;
    if (seconds > 0 && steps >= 0) {
        row["hertz"] = Rounded(steps / seconds);
        row["work_percent"] = Rounded(100 * work / seconds);
        row["work_ms"] = Rounded(1000 * work);
        row["messages_ms"] = Rounded(1000 * messages);
    }
    return row;
}

class Table {
public:
    explicit Table(Session& session) : m_session(session) {}

    /// Asks everybody. The rows tell what has happened since the last time.
    std::vector<Json::Value> Refresh() {
        m_session.RestartTimeLimit();
        Json::Value const infos = m_session.Ask("vq.vds.GetDeviceInfos")["infos"];
        Readings now;
        std::vector<Json::Value> rows;
        for (Json::Value const& info : infos) {
            std::string const name = info["name"].asString();
            try {
                now[name] = Read(m_session, name);
            } catch (Failure const&) {
                // It may have gone meanwhile, or be busy: the table says so.
            }
            rows.push_back(RowOf(info, Find(m_before, name), Find(now, name)));
        }
        m_before = std::move(now);
        return rows;
    }

private:
    static Reading const* Find(Readings const& readings, std::string const& name) {
        auto const found = readings.find(name);
        return found != readings.end() ? &found->second : nullptr;
    }

    Session& m_session;
    Readings m_before;
};

}  // namespace

Status Top(Session& session, TopOptions const& options) {
    bool const live = !session.Out().IsJson() && ::isatty(STDOUT_FILENO) == 1;
    Table table(session);
    table.Refresh();
    for (unsigned shown = 0; !options.count || shown < *options.count; ++shown) {
        std::this_thread::sleep_for(options.interval);
        std::vector<Json::Value> const rows = table.Refresh();
        if (live) {
            std::fputs("\x1b[H\x1b[2J", stdout);
        }
        session.Out().List({{"DEVICE", "device"},
                            {"TYPE", "type"},
                            {"STATE", "state"},
                            {"HERTZ", "hertz"},
                            {"WORK %", "work_percent"},
                            {"WORK MS", "work_ms"},
                            {"MESSAGES MS", "messages_ms"}},
                           rows);
        std::fflush(stdout);
    }
    return Status::Done;
}

}  // namespace vq::rigctl
