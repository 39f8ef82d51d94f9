#include "Output.h"

#include <json/writer.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "Failure.h"

namespace vq::rigctl {

namespace {

bool WantsColor(std::string const& choice) {
    if (choice != "auto") {
        return choice == "always";
    }
    char const* const noColor = std::getenv("NO_COLOR");
    if (noColor != nullptr && *noColor != '\0') {
        return false;
    }
    char const* const terminal = std::getenv("TERM");
    return (terminal == nullptr || std::strcmp(terminal, "dumb") != 0) && ::isatty(STDOUT_FILENO) == 1;
}

/// True for a byte of UTF-8 that goes on with a character.
bool IsInsideCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// Characters of UTF-8, each of which is taken to fill one place of the terminal.
std::size_t WidthOf(std::string const& text) {
    return text.size() - static_cast<std::size_t>(std::ranges::count_if(text, IsInsideCharacter));
}

/// A cell of any but the last column: a wider one would push all others off the screen. JSON shows the whole.
std::string Fitted(std::string text) {
    constexpr std::size_t kWidest = 60;
    constexpr std::size_t kKept = kWidest - 3;
    if (WidthOf(text) > kWidest) {
        std::size_t end = 0;
        for (std::size_t width = 0; width <= kKept; ++end) {
            width += !IsInsideCharacter(text[end]);
        }
        text.replace(end - 1, std::string::npos, "...");
    }
    return text;
}

/// One line on standard output. A reader that has gone ends the command, also where its signal is ignored.
void Put(std::string const& text) {
    if (std::puts(text.c_str()) == EOF) {
        throw Failure(Status::Refused, "Cannot write to standard output.");
    }
}

/// The shortest digits that are read back as the same number.
std::string TextOfDouble(double value) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

/// The JSON library would write all numbers with seventeen digits.
void AppendJson(std::string& text, Json::Value const& value) {
    if (value.type() == Json::realValue) {
        text += TextOfDouble(value.asDouble());
    } else if (value.isObject()) {
        char separator = '{';
        for (std::string const& name : value.getMemberNames()) {
            text += separator + Json::valueToQuotedString(name.c_str()) + ":";
            AppendJson(text, value[name]);
            separator = ',';
        }
        text += value.empty() ? "{}" : "}";
    } else if (value.isArray()) {
        char separator = '[';
        for (Json::Value const& element : value) {
            text += separator;
            AppendJson(text, element);
            separator = ',';
        }
        text += value.empty() ? "[]" : "]";
    } else {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "";
        text += Json::writeString(builder, value);
    }
}

}  // namespace

Output::Output(bool json, std::string const& color) : m_json(json), m_color(!json && WantsColor(color)) {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

void Output::Object(Json::Value const& object) const {
    Put(CompactJson(object));
}

void Output::Line(std::string const& text) const {
    Put(Printable(text));
}

void Output::List(std::vector<Column> const& columns, std::vector<Json::Value> const& rows) const {
    if (m_json) {
        for (Json::Value const& row : rows) {
            Object(row);
        }
        return;
    }
    std::vector<std::string> const lines = Table(columns, rows);
    Put(Bold(lines[0]));
    for (std::size_t i = 1; i < lines.size(); ++i) {
        Put(lines[i]);
    }
}

std::vector<std::string> Output::Table(std::vector<Column> const& columns,
                                       std::vector<Json::Value> const& rows) {
    std::vector<std::vector<std::string>> cells(1);
    for (Column const& column : columns) {
        cells[0].emplace_back(column.title);
    }
    for (Json::Value const& row : rows) {
        auto& line = cells.emplace_back();
        for (Column const& column : columns) {
            std::string cell = Printable(TextOf(row[column.key]));
            bool const last = &column == &columns.back();
            line.push_back(last ? std::move(cell) : Fitted(std::move(cell)));
        }
    }
    std::vector<std::size_t> widths(columns.size());
    for (auto const& line : cells) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], WidthOf(line[i]));
        }
    }
    std::vector<std::string> lines;
    for (auto const& line : cells) {
        std::string text;
        for (std::size_t i = 0; i < line.size(); ++i) {
            text += line[i];
            if (i + 1 < line.size()) {
                text.append(widths[i] - WidthOf(line[i]) + 2, ' ');
            }
        }
        text.erase(text.find_last_not_of(' ') + 1);
        lines.push_back(std::move(text));
    }
    return lines;
}

void Output::Progress(std::string const& text) {
    if (::isatty(STDERR_FILENO) == 1) {
        Complain(text);
    }
}

void Output::Complain(std::string const& text) {
    std::fprintf(stderr, "%s\n", Printable(text).c_str());
}

std::string Output::Colored(char const* code, std::string const& text) const {
    return m_color ? std::string("\x1b[") + code + "m" + text + "\x1b[0m" : text;
}

std::string Printable(std::string text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto const byte = static_cast<unsigned char>(text[i]);
        if (byte < ' ' || byte == 0x7FU) {
            text[i] = ' ';
        } else if (byte >= 0x80U && byte <= 0x9FU && i > 0 && text[i - 1] == '\xC2') {
            text[i - 1] = text[i] = ' ';  // UTF-8 of a control character
        }
    }
    return text;
}

std::string TextOf(Json::Value const& value) {
    if (value.isNull()) {
        return "";
    }
    if (value.isBool()) {
        return value.asBool() ? "yes" : "no";
    }
    if (value.isArray() && std::ranges::none_of(value, [](auto const& e) { return e.isObject(); })) {
        std::string text;
        for (Json::Value const& element : value) {
            text += (text.empty() ? "" : ", ") + TextOf(element);
        }
        return text;
    }
    return value.isString() ? value.asString() : CompactJson(value);
}

std::string CompactJson(Json::Value const& value) {
    std::string text;
    AppendJson(text, value);
    return text;
}

}  // namespace vq::rigctl
