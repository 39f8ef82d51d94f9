#include "Logging/LogHandler.h"

#include <cstdlib>
#include <ctime>
#include <iterator>
#include <ostream>
#include <string_view>

#include "LogPlace.h"
#include "Utils/PathText.h"

namespace {

constexpr std::size_t kShortLocationLength = 16;

struct LevelTraits {
    char const* shortName;
    char const* longName;
    LogColor color;
};

constexpr LevelTraits kLevels[] = {
    {"F", "FATAL", LogColor::Error},      // 0
    {"E", "error", LogColor::Error},      // 1
    {"W", "warning", LogColor::Warning},  // 2
    {"I", "info", LogColor::Reset},       // 3
    {"V", "verbose", LogColor::Verbose},  // 4
    {"T", "trace", LogColor::Trace},      // 5
};
constexpr LevelTraits kNoLevel = {"?", "???", LogColor::Error};

LevelTraits const& TraitsOf(LogLevel level) {
    auto const index = static_cast<std::uint32_t>(level);
    return index < std::size(kLevels) ? kLevels[index] : kNoLevel;
}

char const* EscapeText(LogColor color) {
    switch (color) {
        case LogColor::Reset:
            return "\033[m";
        case LogColor::Bright:
            return "\033[1;37m";
        case LogColor::Header:
            return "\033[2m";
        case LogColor::Location:
            return "\033[35m";
        case LogColor::Verbose:
            return "\033[1;34m";
        case LogColor::Trace:
            return "\033[2;30m";
        case LogColor::Warning:
            return "\033[1;33m";
        case LogColor::Error:
            return "\033[1;31m";
    }
    return "";
}

constexpr auto npos = std::string_view::npos;

/// The class of a qualified function name, or what stands before its only "::"; false without one.
bool FindClassName(std::string_view function, std::string_view& name) {
    std::size_t const last = function.find(':') == npos ? npos : function.rfind("::");
    if (last == npos) {
        return false;
    }
    std::size_t const previous = last >= 2 ? function.rfind("::", last - 2) : npos;
    std::size_t const start = previous == npos ? 0 : previous + 2;
    name = function.substr(start, last - start);
    return true;
}

bool TellsNothing(std::string_view function) {
    return function == "TestBody" || function.find("lambda") != npos || function.find("operator") != npos;
}

std::string_view ViewOf(char const* text) {
    return text != nullptr ? std::string_view(text) : std::string_view();
}

void AppendPlace(std::string& out, LogPlace const& place, LogRecord const& record) {
    out += place.name;
    if (place.HasColon(record)) {
        out += ':';
    }
    if (place.withLine) {
        out += std::to_string(record.line);
    }
}

void AppendInBrackets(std::string& out, LogPlace const& place, LogRecord const& record) {
    out += '[';
    AppendPlace(out, place, record);
    out += "] ";
}

}  // namespace

LogPlace LogPlace::FindShort(LogRecord const& record, std::size_t maxLength) {
    std::string_view const function = ViewOf(record.function);
    std::string_view name;
    if (FindClassName(function, name)) {
        return {name.substr(0, maxLength)};
    }
    if (TellsNothing(function)) {
        return {GetFileNameView(ViewOf(record.file)).substr(0, maxLength), true};
    }
    return {function.substr(0, maxLength)};
}

LogPlace LogPlace::FindMedium(LogRecord const& record) {
    if (record.file != nullptr) {
        return {GetFileNameView(record.file), true};
    }
    return {record.function != nullptr ? record.function : "???"};
}

LogPlace LogPlace::FindForConsole(LogRecord const& record) {
    return record.level > LogLevel::Error ? FindShort(record, kShortLocationLength) : FindMedium(record);
}

LogHandler::~LogHandler() = default;

bool LogHandler::SetColorFromEnvironment() {
    char const* const value = std::getenv("VQLOG_COLOR");
    if (value == nullptr) {
        return false;
    }
    std::string_view const text = value;
    m_color = text != "0" && text != "off" && text != "no" && text != "false";
    return true;
}

char const* LogHandler::ShortLevelName(LogLevel level) {
    return TraitsOf(level).shortName;
}

char const* LogHandler::LongLevelName(LogLevel level) {
    return TraitsOf(level).longName;
}

LogColor LogHandler::GetLevelColor(LogLevel level) {
    return TraitsOf(level).color;
}

void LogHandler::FormatConsoleLocation(std::string& out, LogRecord const& record) {
    AppendInBrackets(out, LogPlace::FindForConsole(record), record);
}

void LogHandler::FormatShortLocation(std::string& out, LogRecord const& record) {
    AppendInBrackets(out, LogPlace::FindShort(record, kShortLocationLength), record);
}

void LogHandler::FormatMediumLocation(std::string& out, LogRecord const& record) {
    AppendInBrackets(out, LogPlace::FindMedium(record), record);
}

void LogHandler::FormatLongLocation(std::string& out, LogRecord const& record) {
    out += '[';
    out += GetFileNameView(ViewOf(record.file));
    out += ':';
    out += std::to_string(record.line);
    out += ' ';
    out += ViewOf(record.function);
    out += "] ";
}

std::string LogHandler::GetShortLocation(LogRecord const& record, std::size_t maxLength) {
    std::string location;
    AppendPlace(location, LogPlace::FindShort(record, maxLength), record);
    return location;
}

void LogHandler::FormatTime(std::ostream& stream, LogTimePoint time, bool longForm) {
    auto const seconds = std::chrono::floor<std::chrono::seconds>(time);
    std::time_t const clock = std::chrono::system_clock::to_time_t(seconds);
    std::tm local{};
    ::localtime_r(&clock, &local);
    char text[256];
    text[std::strftime(text, sizeof text, longForm ? "%c" : "%H%M%S", &local)] = '\0';
    stream << text;
    if (!longForm) {
        auto const milliseconds = std::chrono::floor<std::chrono::milliseconds>(time - seconds).count();
        stream << '.' << std::to_string(1000 + milliseconds).substr(1);
    }
}

void BaseStdioLogHandler::SetColor(std::stringstream& stream, LogColor color) const {
    stream << ColorText(color);
}

std::string_view BaseStdioLogHandler::FindColorText(LogColor color) {
    return EscapeText(color);
}
