#include "Commands.h"

// The statistics that devices collect about themselves.

namespace vq::rigctl {

namespace {

Json::Value RowOf(std::string const& device, char const* kind, char const* total, Json::Value const& data) {
    Json::Value row;
    row["device"] = device;
    row["kind"] = kind;
    row["name"] = data["name"];
    row["total"] = data[total];
    for (char const* const key : {"samples", "minimum", "maximum", "last"}) {
        row[key] = data[key];
    }
    return row;
}

}  // namespace

Status ListStats(Session& session, Texts const& devices) {
    Texts names = devices;
    if (names.empty()) {
        for (Json::Value const list = session.Ask("vq.vds.GetDeviceInfos")["infos"];
             Json::Value const& info : list) {
            names.push_back(info["name"].asString());
        }
    }
    std::vector<Json::Value> rows;
    Status status = Status::Done;
    for (std::string const& name : names) {
        try {
            // A silent device takes its own time, not that of the others.
            session.RestartTimeLimit();
            Json::Value const stats = session.AskDevice(name, "vq.sd.RequestStats")["stats"];
            for (Json::Value const& counter : stats["counters"]) {
                rows.push_back(RowOf(name, "counter", "value", counter));
            }
            for (Json::Value const& timer : stats["timers"]) {
                rows.push_back(RowOf(name, "timer_ns", "total", timer));
            }
        } catch (Failure const& failure) {
            if (names.size() == 1) {
                throw;
            }
            Output::Complain(failure.what());
            status = failure.GetStatus();
        }
    }
    session.Out().List({{"DEVICE", "device"},
                        {"NAME", "name"},
                        {"KIND", "kind"},
                        {"TOTAL", "total"},
                        {"SAMPLES", "samples"},
                        {"MIN", "minimum"},
                        {"MAX", "maximum"},
                        {"LAST", "last"}},
                       rows);
    return status;
}

}  // namespace vq::rigctl
