#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "Logging/FileLogHandler.h"
#include "Logging/Log.h"
#include "Utils/OSUtils.h"

namespace {

/// Whether a name is the log's own or that of a rotated sibling: behind the base name any dashes and digits,
/// then the extension.
bool Belongs(LogFileNames const& names, std::string_view name) {
    if (names.extension.empty() || !name.starts_with(names.baseName)) {
        return false;
    }
    name.remove_prefix(names.baseName.size());
    std::size_t const dot = name.find_first_not_of("-0123456789");
    return dot != std::string_view::npos && name.substr(dot) == names.extension;
}

std::string FormatText(char const* format, std::tm const& time) {
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &time)};
}

}  // namespace

LogFileNames LogFileNames::FromPath(std::string const& path) {
    std::string const name = GetFileNameOf(path);
    std::size_t const dot = std::min(name.rfind('.'), name.size());
    return {GetDirectoryOf(path), name.substr(0, dot), name.substr(dot)};
}

std::string LogFileNames::InDirectory(std::string const& name) const {
    return directory == "./" || directory == ".\\" ? name : directory + name;
}

std::vector<DatedLog> LogFileNames::List() const {
    std::vector<DatedLog> logs;
    for (std::string const& name : GetDirectoryEntries(directory)) {
        if (!Belongs(*this, name)) {
            continue;
        }
        std::string path = InDirectory(name);
        struct stat entry {};
        if (::stat(path.c_str(), &entry) != 0) {
            LOG_PLAIN_W("Failed to get file attributes for %s", path.c_str());
            continue;
        }
        logs.push_back({entry.st_mtime, std::move(path)});
    }
    std::stable_sort(logs.begin(), logs.end(),
                     [](DatedLog const& a, DatedLog const& b) { return a.time < b.time; });
    return logs;
}

bool LogFileNames::MakeUniqueDatedLogFile(std::string const& log, int count, std::string& out) const {
    struct stat entry {};
    std::time_t const written = ::stat(log.c_str(), &entry) == 0 ? entry.st_mtime : std::time(nullptr);
    std::tm local{};
    ::localtime_r(&written, &local);
    std::string const stem = InDirectory(baseName) + FormatText("-%Y%m%d", local);
    out = stem + extension;
    for (int counter = 0; counter < count; ++counter) {
        if (!FileExists(out)) {
            return true;
        }
        char number[16];
        std::snprintf(number, sizeof number, "-%04d", counter + 1);
        out = stem + number + extension;
    }
    LOG_PLAIN_W("All %d existing files at %s%s exist, cannot rotate", count, stem.c_str(), extension.c_str());
    return false;
}
