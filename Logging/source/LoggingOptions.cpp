#include "Logging/LoggingOptions.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>

#include "Logging/FileLogHandler.h"
#include "Logging/Log.h"
#include "Logging/LogConfig.h"
#include "Utils/OSUtils.h"

namespace {

constexpr char kHelp[] = R"(Verbosity/logging help:

Virtual device projects can generate developer log messages.
The -V or --verbosity option controls this.  The primary function
is to set the global logging level and control where output goes.

In the short form, -V is followed by a log level (number or name) or
optional '+' or '-' to enable or disable the following options, denoted
by letter.  The default state is 'enable'.  Enablement/disablement state
sticks until the next -V option.

      -V<level> | --verbosity <level>
                          - sets maximum message level reported:
                            (0|fatal, 1|error, 2|warning, 3|info, 4|verbose,
                             5|trace)

      -V-c | --no-console - disable logging to console
      -V[+]c | --console  - enable logging to console
      -V-C | --no-console-color
                          - disable color on console
      -V[+]C | --console-color
                          - enable color on console
      -V-f                - disable logging to file
      -V[+]f | --logfile [FILE]
                          - enable logging to file
      -V-F | --no-logfile-color
                          - disable color in file
      -V[+]F | --logfile-color
                          - enable color in file
      -V-b | --no-logfile-buffer
                          - disable per-process buffering in logfiles
      -V[+]b | --logfile-buffer
                          - enable buffering in logfile (default)

For example:

   '-Vinfo-c+Ff' turns off console logging and logs in color to the default file
   '--verbosity 3 --no-console --logfile --logfile-color' is equivalent
)";

constexpr char const* kLevelWords[] = {"fatal", "error", "warning", "info", "verbose", "trace"};

constexpr LogTarget kConsoles[] = {LogTarget::Stdout, LogTarget::Stderr};

void SetConsoleSilenced(LogConfig& config, bool silenced) {
    for (LogTarget const target : kConsoles) {
        LogHandler* const handler =
            silenced ? config.FindLogHandler(target) : config.EnsureLogHandler<LogHandler>(target);
        if (handler != nullptr) {
            handler->SetSilenced(silenced);
        }
    }
}

void SetConsoleColor(LogConfig& config, bool color) {
    for (LogTarget const target : kConsoles) {
        LogHandler* const handler =
            color ? config.EnsureLogHandler<LogHandler>(target) : config.FindLogHandler(target);
        if (handler != nullptr) {
            handler->SetUsesColor(color);
        }
    }
}

/// The file log, made when missing. Null, and standard error is told, where there can be none.
FileLogHandler* EnsureFileLog(LogConfig& config) {
    auto* const file = config.EnsureLogHandler<FileLogHandler>(LogTarget::File);
    if (file == nullptr) {
        std::fputs("cannot log to file on this platform", stderr);
        std::fflush(stderr);
    }
    return file;
}

void SetFileColor(LogConfig& config, bool color) {
    if (FileLogHandler* const file = EnsureFileLog(config)) {
        file->SetUsesColor(color);
    }
}

void SetFileBuffered(LogConfig& config, bool buffered) {
    if (FileLogHandler* const file = EnsureFileLog(config)) {
        file->SetBuffered(buffered);
    }
}

/// The command line around the option at hand.
struct CommandLine {
    int argc;
    char const* const* argv;

    /// The element `back` before the next one to be scanned; null outside the command line.
    char const* Before(int back) const {
        int const index = optind - back;
        return index >= 0 && index < argc ? argv[index] : nullptr;
    }
    std::string TextBefore(int back) const {
        char const* const text = Before(back);
        return text != nullptr ? text : "";
    }
};

/// @param enable  false removes the file log. Otherwise the next element of the command line is taken as the
///                file's path, unless it looks like an option.
void EnableFile(LogConfig& config, CommandLine const& line, bool enable) {
    if (!enable) {
        config.DeleteLogHandler(config.FindFileLogHandler());
        return;
    }
    FileLogHandler* const file = EnsureFileLog(config);
    char const* const path = line.Before(0);
    if (file != nullptr && path != nullptr && *path != '-') {
        ++optind;
        file->SetLocation(path);
    }
}

/// Reads one argument in the language of -V, see kHelp.
class VerbosityParser {
public:
    VerbosityParser(char const* text, CommandLine line, LogConfig& config)
        : m_next(text), m_line(line), m_argument(line.TextBefore(1)), m_config(config) {}

    bool Parse(bool* helpShown) {
        while (*m_next != '\0') {
            if (!ParseOne(helpShown)) {
                return false;
            }
        }
        return true;
    }

private:
    bool ParseOne(bool* helpShown) {
        switch (*m_next) {
            case '+':
                m_disable = false;
                break;
            case '-':
                if (m_disable) {
                    LOG_PLAIN_E("Multiple '-' in -V at %s", m_next);
                    return false;
                }
                m_disable = true;
                break;
            case 'c':
                SetConsoleSilenced(m_config, m_disable);
                break;
            case 'C':
                SetConsoleColor(m_config, !m_disable);
                break;
            case 'f':
                return ParseFile();
            case 'F':
                SetFileColor(m_config, !m_disable);
                break;
            case 'b':
                SetFileBuffered(m_config, !m_disable);
                break;
            case 'h':
                std::fputs(kHelp, stdout);
                std::fflush(stdout);
                if (helpShown != nullptr) {
                    *helpShown = true;
                }
                break;
            default:
                return ParseLevel(true);
        }
        ++m_next;
        return true;
    }

    /// "f" for the file, unless it begins the word of a level.
    bool ParseFile() {
        char const* const before = m_next;
        if (!ParseLevel(false)) {
            return false;
        }
        if (m_next == before) {
            ++m_next;
            EnableFile(m_config, m_line, !m_disable);
        }
        return true;
    }

    /// A number, or at least two letters of a level's word.
    /// @param strict  something else is an error; otherwise it is left alone.
    bool ParseLevel(bool strict) {
        char* end = nullptr;
        long long const number = std::strtoll(m_next, &end, 10);
        if (end != m_next) {
            bool const known = number >= 0 && number <= static_cast<int>(LogLevel::Trace);
            m_next = end;
            if (!known && !m_disable) {
                LOG_PLAIN_W("Log level clamped to 5 (trace) in %s", m_argument.c_str());
            }
            return SetLevel(known ? static_cast<int>(number) : static_cast<int>(LogLevel::Trace));
        }
        for (int level = 0; level <= static_cast<int>(LogLevel::Trace); ++level) {
            std::size_t matched = 0;
            while (kLevelWords[level][matched] != '\0' && kLevelWords[level][matched] == m_next[matched]) {
                ++matched;
            }
            if (matched >= 2) {
                m_next += matched;
                return SetLevel(level);
            }
        }
        if (strict) {
            LOG_PLAIN_E("Unexpected option at %s in %s", m_next, m_argument.c_str());
        }
        return !strict;
    }

    bool SetLevel(int level) {
        if (m_disable) {
            LOG_PLAIN_E("Using '-' with log level makes no sense in %s", m_argument.c_str());
            return false;
        }
        m_config.SetLevel(static_cast<LogLevel>(level));
        return true;
    }

    char const* m_next;
    CommandLine const m_line;
    std::string const m_argument;  // as on the command line, for errors
    LogConfig& m_config;
    bool m_disable = false;
};

bool SetMaxSize(char const* argument, CommandLine const& line, LogConfig& config) {
    std::string const option = argument == line.Before(1)
                                   ? line.TextBefore(2)
                                   : line.TextBefore(1).substr(0, line.TextBefore(1).find('='));
    std::istringstream stream(argument);
    long long size = 0;
    if (!(stream >> size)) {
        LOG_PLAIN_E("Expected integral size, got %s for %s", argument, option.c_str());
        return false;
    }
    if (size < 1) {
        LOG_PLAIN_E("Expected positive size, got %s for %s", argument, option.c_str());
        return false;
    }
    if (FileLogHandler* const file = EnsureFileLog(config)) {
        file->SetMaxFileSize(static_cast<unsigned long>(size));
    }
    return true;
}

bool UsesColorOnConsole(LogConfig const& config) {
    bool color = false;
    for (LogTarget const target : kConsoles) {
        LogHandler const* const handler = config.FindLogHandler(target);
        color = color || (handler != nullptr && handler->UsesColor());
    }
    return color;
}

/// Collects arguments; letters of -V are gathered into one.
class Exporter {
public:
    void AddLetters(std::string_view letters) { m_letters += letters; }
    void AddArgument(std::string argument) {
        Flush();
        m_arguments.push_back(std::move(argument));
    }
    std::vector<std::string> Take() {
        Flush();
        return std::move(m_arguments);
    }

private:
    void Flush() {
        if (!m_letters.empty()) {
            m_arguments.push_back("-V" + m_letters);
            m_letters.clear();
        }
    }

    std::string m_letters;
    std::vector<std::string> m_arguments;
};

void ExportConsole(LogConfig const& config, LogConfig const& defaults, Exporter& out) {
    bool const hasStdout = config.FindLogHandler(LogTarget::Stdout) != nullptr;
    bool const hasStderr = config.FindLogHandler(LogTarget::Stderr) != nullptr;
    if (!hasStdout && !hasStderr) {
        out.AddLetters("-c");
    } else if (hasStdout && hasStderr) {
        bool const color = UsesColorOnConsole(config);
        if (color != UsesColorOnConsole(defaults)) {
            out.AddLetters(color ? "C" : "-C");
        }
    }
}

void ExportFile(FileLogHandler const& file, LogConfig& defaults, Exporter& out) {
    FileLogHandler const standard(defaults);
    out.AddLetters("f");
    if (file.GetLocation() != FileLogHandler::GetDefaultLocation()) {
        out.AddArgument(GetFullPath(file.GetLocation()));
    }
    if (file.UsesColor() != standard.UsesColor()) {
        out.AddLetters(file.UsesColor() ? "F" : "-F");
    }
    if (file.IsBuffered() != standard.IsBuffered()) {
        out.AddLetters(file.IsBuffered() ? "b" : "-b");
    }
    if (file.GetMaxFileSize() != standard.GetMaxFileSize()) {
        out.AddArgument("--logfile-maxsize");
        out.AddArgument(std::to_string(file.GetMaxFileSize()));
    }
}

}  // namespace

bool HandleLoggingOption(int option, char const* argument, int argc, char const* const* argv, bool* helpShown,
                         LogConfig& config) {
    CommandLine const line{argc, argv};
    char const* const text = argument != nullptr ? argument : "";
    switch (option) {
        case kVerbosityOption:
            return VerbosityParser(text, line, config).Parse(helpShown);
        case kConsoleOption:
        case kNoConsoleOption:
            SetConsoleSilenced(config, option == kNoConsoleOption);
            return true;
        case kConsoleColorOption:
        case kNoConsoleColorOption:
            SetConsoleColor(config, option == kConsoleColorOption);
            return true;
        case kLogfileOption:
        case kNoLogfileOption:
            EnableFile(config, line, option == kLogfileOption);
            return true;
        case kLogfileColorOption:
        case kNoLogfileColorOption:
            SetFileColor(config, option == kLogfileColorOption);
            return true;
        case kLogfileBufferOption:
        case kNoLogfileBufferOption:
            SetFileBuffered(config, option == kLogfileBufferOption);
            return true;
        case kLogfileMaxsizeOption:
            return SetMaxSize(text, line, config);
        default:
            LOG_PLAIN_E("Unhandled argument value %d for %s", option, line.TextBefore(1).c_str());
            return true;
    }
}

std::vector<std::string> ExportLoggingOptions(LogConfig const& config) {
    LogConfig defaults(true);
    Exporter out;
    if (config.GetLevel() != defaults.GetLevel()) {
        out.AddLetters(std::to_string(static_cast<int>(config.GetLevel())));
    }
    ExportConsole(config, defaults, out);
    if (auto const* const file = dynamic_cast<FileLogHandler*>(config.FindFileLogHandler())) {
        ExportFile(*file, defaults, out);
    }
    return out.Take();
}
