#include "Utils/ServerRegistry.h"

#include <algorithm>
#include <cstdio>

#include "Commands.h"

// The table of the servers of this machine.

namespace vq::rigctl {

namespace {

std::chrono::milliseconds RestUntil(Clock::time_point deadline) {
    auto const rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return std::max(rest, std::chrono::milliseconds(1));
}

Json::Value RowOf(ServerDescriptor const& line) {
    Json::Value row;
    row["name"] = line.name;
    row["address"] = line.address.ToString();
    row["process"] = line.pid;
    row["alive"] = Session::IsAlive(line.pid);
    row["heartbeat_address"] = line.heartbeatAddress.ToString();
    row["memory_event_address"] = line.memoryEventAddress.ToString();
    row["protocol"] = line.protocol;
    row["minimum_protocol"] = line.minimumProtocol;
    return row;
}

}  // namespace

Registry ReadRegistry(Clock::time_point deadline) {
    Registry registry;
    bool timedOut = false;
    registry.whole = ServerRegistry::Instance().GetServers(registry.lines, RestUntil(deadline), &timedOut);
    if (timedOut) {
        throw Failure(Status::NoAnswer,
                      "The registry of servers is locked, and whoever locked it does not let go: "
                      "'RIGCTL registry recover' replaces its mutex.");
    }
    return registry;
}

Status ShowRegistry(Session& session) {
    Registry const registry = ReadRegistry(session.Deadline());
    std::vector<Json::Value> rows;
    for (ServerDescriptor const& line : registry.lines) {
        rows.push_back(RowOf(line));
    }
    session.Out().List({{"NAME", "name"},
                        {"ADDRESS", "address"},
                        {"PROCESS", "process"},
                        {"ALIVE", "alive"},
                        {"HEARTBEAT", "heartbeat_address"},
                        {"PROTOCOL", "protocol"}},
                       rows);
    if (!registry.whole) {
        std::fputs(
            "The next line of the table is broken, and nobody reads past it: the next change drops it.\n",
            stderr);
    }
    return registry.whole ? Status::Done : Status::Refused;
}

Status RemoveRegistryLine(Session& session, std::string const& which) {
    Registry const registry = ReadRegistry(session.Deadline());
    auto const found = std::ranges::find_if(registry.lines, [&](ServerDescriptor const& line) {
        return line.name == which || line.address.ToString() == which;
    });
    if (found == registry.lines.end()) {
        throw Failure(Status::Refused, "The registry has no server '" + which + "'.");
    }
    if (!ServerRegistry::Instance().RemoveServer(*found, RestUntil(session.Deadline()), nullptr)) {
        throw Failure(Status::Refused, "Cannot write the registry of servers.");
    }
    return Status::Done;
}

Status RecoverRegistry(Session& session) {
    bool const wedged = [&session] {
        try {
            ReadRegistry(session.Deadline());
            return false;
        } catch (Failure const&) {
            // Held for the whole time limit: nobody needs it for that long.
            return true;
        }
    }();
    if (wedged) {
        ServerRegistry::Instance().Recover();
        session.RestartTimeLimit();
        ReadRegistry(session.Deadline());
    }
    if (session.Out().IsJson()) {
        Json::Value row;
        row["replaced"] = wedged;
        session.Out().Object(row);
    } else {
        session.Out().Line(wedged ? "The mutex was replaced. Programs that run now have to be started again."
                                  : "The mutex is free: there is nothing to recover.");
    }
    return Status::Done;
}

}  // namespace vq::rigctl
