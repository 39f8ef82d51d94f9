#include "CommandLine.h"

namespace vq::rigctl {

namespace {

Clock::duration Seconds(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

void AddLiveCommands(CLI::App& app, Request& r) {
    CLI::App* const watch = AddCommand(app, r, "watch", "Server events and channel samples as they come",
                                       "watch my_channel --count 10 --json", nullptr);
    watch->add_option("CHANNEL", r.texts, "Samples of these only");
    CLI::Option* const count =
        watch->add_option("--count", r.count, "End after so many")->check(CLI::PositiveNumber);
    CLI::Option* const seconds =
        watch->add_option("--for", r.number, "End after so many seconds")->check(CLI::Range(0.0, 1e9));
    watch->final_callback([&r, count, seconds] {
        WatchOptions options;
        options.count = count->count() > 0 ? std::optional(r.count) : std::nullopt;
        options.duration = seconds->count() > 0 ? std::optional(Seconds(r.number)) : std::nullopt;
        r.action = [&r, options](Session& s) mutable {
            options.channels = r.texts;
            return Watch(s, options);
        };
    });
    CLI::App* const top = AddCommand(app, r, "top", "A live table of what the devices are busy with",
                                     "top --interval 0.5 --count 20", nullptr);
    CLI::Option* const tables =
        top->add_option("--count", r.count, "End after so many tables")->check(CLI::PositiveNumber);
    CLI::Option* const interval =
        top->add_option("--interval", r.number, "Seconds between two")->check(CLI::Range(0.0, 1e6));
    top->final_callback([&r, tables, interval] {
        TopOptions options;
        options.count = tables->count() > 0 ? std::optional(r.count) : std::nullopt;
        options.interval = interval->count() > 0 ? Seconds(r.number) : options.interval;
        r.action = [options](Session& s) { return Top(s, options); };
    });
}

}  // namespace

void AddMachineCommands(CLI::App& app, Request& r) {
    AddLiveCommands(app, r);
    AddCommand(app, r, "identity", "Make the library's calls and print the profile", "identity --json",
               &ShowIdentity);
    AddCommand(app, r, "run", "Run a program with a home, a server and an identity provider of its own",
               "run -- ./my_program --its-option",
               [&r](Session& s) { return RunProgram(s.Options(), r.texts); })
        ->add_option("PROGRAM", r.texts, "The program and its arguments, behind '--'")
        ->required();
    CLI::App* const registry = AddCommand(app, r, "registry", "The table of servers that programs look into",
                                          "registry", &ShowRegistry);
    AddCommand(*registry, r, "remove", "Remove a line, such as that of a dead server",
               "registry remove my_server", [&r](Session& s) { return RemoveRegistryLine(s, r.name); })
        ->add_option("SERVER", r.name, "Its name or address")
        ->required();
    AddCommand(*registry, r, "recover", "Replace the mutex if a program died holding it", "registry recover",
               &RecoverRegistry);
    AddCommand(app, r, "doctor", "What would keep programs from connecting, and what to do", "doctor",
               &Examine);
}

}  // namespace vq::rigctl
