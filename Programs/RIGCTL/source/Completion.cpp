#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>

#include "CommandLine.h"
#include "Schema.h"

// For the shell, which waits for us: with live names, and no later than a user would notice.

namespace vq::rigctl {

namespace {

constexpr std::chrono::milliseconds kAskLimit{120};
/// Counted from here, so that with the start of the program it is less than 200 ms.
constexpr int kLimitMicroseconds = 170'000;

/// From now on the process ends in time, whatever hangs.
void EndInTime() {
    std::signal(SIGALRM, [](int) { ::_exit(0); });
    itimerval const limit{.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = kLimitMicroseconds}};
    ::setitimer(ITIMER_REAL, &limit, nullptr);
}

/// Where in the command line the last word stands.
struct Place {
    CLI::App const* command = nullptr;
    std::size_t position = 0;             ///< among the command's positional arguments
    CLI::Option const* option = nullptr;  ///< whose value it is; null: none's
    std::string device;                   ///< whose settings are meant
    CommonOptions common;
};

std::vector<CLI::Option const*> Positionals(CLI::App const& command) {
    return command.get_options([](CLI::Option const* option) { return option->get_positional(); });
}

CLI::App const* FindPart(CLI::App const& command, std::string const& word) {
    auto const parts =
        command.get_subcommands([&word](CLI::App const* part) { return part->get_name() == word; });
    return parts.empty() ? nullptr : parts[0];
}

/// Options may stand behind a command that does not know them itself.
CLI::Option const* FindOption(CLI::App const* command, std::string const& word) {
    for (; command != nullptr; command = command->get_parent()) {
        if (CLI::Option const* const option = command->get_option_no_throw(word); option != nullptr) {
            return option;
        }
    }
    return nullptr;
}

void Take(Place& place, std::string const& word) {
    if (place.option != nullptr) {
        std::string const name = place.option->get_name();
        if (name == "--address") {
            place.common.address = word;
        } else if (name == "--name") {
            place.common.name = word;
        }
        place.option = nullptr;
    } else if (word.starts_with("-")) {
        CLI::Option const* const option = FindOption(place.command, word);
        place.option = option != nullptr && option->get_items_expected_max() > 0 ? option : nullptr;
    } else if (CLI::App const* const part = FindPart(*place.command, word); part != nullptr) {
        place.command = part;
        place.position = 0;
    } else {
        auto const positionals = Positionals(*place.command);
        if (place.position < positionals.size() && positionals[place.position]->get_name(true) == "DEVICE") {
            place.device = word;
        }
        place.position += positionals.size() > place.position + 1 ? 1 : 0;
    }
}

void PrintNames(Json::Value const& list, char const* key) {
    for (Json::Value const& entry : list) {
        std::puts(entry[key].asCString());
    }
}

void PrintLiveNames(Session& session, Place const& place, std::string const& kind) {
    if (kind == "DEVICE") {
        PrintNames(session.Ask("vq.vds.GetDeviceInfos")["infos"], "name");
    } else if (kind == "CHANNEL") {
        PrintNames(session.Ask("vq.vds.GetChannelInfos")["infos"], "name");
    } else if (kind.starts_with("NAME")) {
        for (std::string const& name : SettingNames(session, place.device)) {
            std::puts(name.c_str());
        }
    } else if (kind == "SERVER") {
        for (ServerDescriptor const& line : ReadRegistry(session.Deadline()).lines) {
            std::puts(line.name.c_str());
        }
    } else if (kind == "TYPE") {
        for (std::string const& request : Schema::Instance().Requests()) {
            std::puts(request.substr(request.rfind('.') + 1).c_str());
        }
    }
}

/// What stands in the program itself.
void PrintCommands(CLI::App const& command) {
    for (CLI::App const* const part : command.get_subcommands(nullptr)) {
        std::puts(part->get_name().c_str());
    }
}

void PrintOptions(CLI::App const* command) {
    for (; command != nullptr; command = command->get_parent()) {
        for (CLI::Option const* const option : command->get_options()) {
            for (std::string const& name : option->get_lnames()) {
                std::printf("--%s\n", name.c_str());
            }
        }
    }
}

}  // namespace

void Complete(CLI::App const& app, Texts const& words) {
    EndInTime();
    Place place;
    place.command = &app;
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (words[i] == "--") {
            return;  // behind it nothing of ours follows
        }
        Take(place, words[i]);
    }
    if (!words.empty() && words.back().starts_with("-")) {
        PrintOptions(place.command);
        return;
    }
    std::string kind = place.option != nullptr && place.option->get_name() == "--device" &&
                               place.command->get_name() == "call"
                           ? "DEVICE"
                           : "";
    if (place.option == nullptr) {
        PrintCommands(*place.command);
        auto const positionals = Positionals(*place.command);
        kind = place.position < positionals.size() ? positionals[place.position]->get_name(true) : "";
    }
    std::fflush(stdout);
    place.common.timeout = kAskLimit;
    try {
        Session session(place.common);
        PrintLiveNames(session, place, kind);
    } catch (std::exception const&) {
        // No names then.
    }
}

}  // namespace vq::rigctl
