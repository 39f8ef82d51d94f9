#include "Messaging/VqdbOutput.h"

#include <algorithm>
#include <array>

#include "Utils/JsonUtils.h"
#include "Utils/TextUtils.h"

namespace {

constexpr std::array<std::string_view, 7> kStates = {"NotReady", "StartNotReg", "Running",    "OnPause",
                                                     "Paused",   "OnStop",      "SigkillSent"};

}  // namespace

std::vector<std::string> ParseVqdbDevices(std::string_view output) {
    std::vector<std::string> serials;
    for (std::string const& line : SplitLines(output, false)) {
        if (std::size_t const tab = line.find('\t'); tab != std::string::npos) {
            serials.push_back(line.substr(0, tab));
        }
    }
    return serials;
}

VqdbPackageState ParseVqdbPackageState(std::string_view text, bool& known) {
    auto const found = std::ranges::find(kStates, text);
    known = found != kStates.end();
    return static_cast<VqdbPackageState>(found - kStates.begin());
}

VqdbPackageQuery FindVqdbPackage(std::string_view output, std::string_view package,
                                 std::string_view component) {
    VqdbPackageQuery query;
    Json::Value root;
    query.parsed = ParseJson(output, root, query.errors);
    if (!query.parsed) {
        return query;
    }
    if (!root.isArray()) {
        query.unexpectedFormat = true;
        return query;
    }
    for (Json::Value const& entry : root) {
        std::array<std::string_view, 3> const keys = {"package", "component", "state"};
        auto const members = FindJsonMembers(entry, keys);
        if (!std::ranges::all_of(
                members, [](auto const* member) { return member != nullptr && member->isString(); })) {
            query.unexpectedFormat = true;
        } else if (StringViewOf(*members[0]) == package && StringViewOf(*members[1]) == component) {
            query.found = true;
            query.state = StringViewOf(*members[2]);
            return query;
        }
    }
    return query;
}
