#include "Logging/LogHandler.h"

#include <cstdlib>
#include <ctime>
#include <iterator>
#include <ostream>
#include <string_view>

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
    std::size_t const last = function.rfind("::");
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

void AppendShortLocation(std::string& out, LogRecord const& record, std::size_t maxLength) {
    std::string_view const function = ViewOf(record.function);
    std::string_view name;
    if (FindClassName(function, name)) {
        out += name.substr(0, maxLength);
    } else if (TellsNothing(function)) {
        if (record.file != nullptr) {
            out += GetFileNameView(record.file).substr(0, maxLength);
            out += ':';
        }
        out += std::to_string(record.line);
    } else {
        out += function.substr(0, maxLength);
    }
}

}  // namespace

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
    if (record.level > LogLevel::Error) {
        FormatShortLocation(out, record);
    } else {
        FormatMediumLocation(out, record);
    }
}

void LogHandler::FormatShortLocation(std::string& out, LogRecord const& record) {
    out += '[';
    AppendShortLocation(out, record, kShortLocationLength);
    out += "] ";
}

void LogHandler::FormatMediumLocation(std::string& out, LogRecord const& record) {
    out += '[';
    if (record.file != nullptr) {
        out += GetFileNameView(record.file);
        out += ':';
        out += std::to_string(record.line);
    } else {
        out += record.function != nullptr ? record.function : "???";
    }
    out += "] ";
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
    AppendShortLocation(location, record, maxLength);
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
    if (UsesColor()) {
        stream << EscapeText(color);
    }
}

void BaseStdioLogHandler::SetColor(std::string& line, LogColor color) const {
    if (UsesColor()) {
        line += EscapeText(color);
    }
}
